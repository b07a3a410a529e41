#include "ostrel/core/crypt_random.h"

#include <memory>
#include <set>
#include <thread>

#include "ostrel/platform/error.h"
#include "support/test.h"

namespace {

std::string bytes_of(const OS::CCryptRandom &random) {
    std::string bytes(16, '\0');
    EXPECT_NE(random.Get(bytes.data(), 16), 0);
    return bytes;
}

TEST(CryptRandom, CopiesDrawOtherBytesInWhateverOrderTheyGo) {
    std::set<std::string> drawn;
    std::unique_ptr<OS::CCryptRandom> kept[3];
    for (const std::size_t first : {0u, 1u, 2u}) {
        kept[0] = std::make_unique<OS::CCryptRandom>();
        kept[1] = std::make_unique<OS::CCryptRandom>(*kept[0]);
        kept[2] = std::make_unique<OS::CCryptRandom>();
        *kept[2] = *kept[1];
        *kept[1] = *kept[1];
        for (std::size_t i = 0; i < 3; ++i) {
            for (const auto &random : kept) {
                if (random != nullptr) {
                    drawn.insert(bytes_of(*random));
                }
            }
            kept[(first + i) % 3].reset();
        }
    }
    EXPECT_EQ(drawn.size(), 3u * 6);
}

TEST(CryptRandom, GivesNothingToABufferThatIsNone) {
    const OS::CCryptRandom random;
    EXPECT_EQ(random.Get(nullptr, 1), 0);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    EXPECT_NE(random.Get(nullptr, 0), 0);
}

TEST(CryptRandom, CopiesMayComeAndGoOnThreads) {
    const OS::CCryptRandom random;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&random] {
            for (int round = 0; round < 500; ++round) {
                const OS::CCryptRandom copy(random);
                bytes_of(copy);
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_NE(bytes_of(random), bytes_of(random));
}

}  // namespace
