#include "ostrel/core/crypt_random.h"

#include "support/signals.h"

namespace {

TEST(CryptRandom, GivesOtherBytesToEachCopyOnAnyThread) {
    const OS::CCryptRandom random;
    std::string before(16, '\0');
    EXPECT_NE(random.Get(before.data(), 16), 0);
    on_threads(4, [&](std::size_t) {
        for (int i = 0; i < 500; ++i) {
            const OS::CCryptRandom copy(random);
            std::string bytes(16, '\0');
            EXPECT_NE(copy.Get(bytes.data(), 16), 0);
            EXPECT_NE(bytes, before);
        }
    });
    EXPECT_EQ(random.Get(nullptr, 1), 0);
}

}  // namespace
