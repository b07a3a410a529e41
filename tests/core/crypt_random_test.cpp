#include "ostrel/core/crypt_random.h"

#include <memory>
#include <thread>

#include "support/test.h"

namespace {

std::string bytes_of(const OS::CCryptRandom &random) {
    std::string bytes(16, '\0');
    EXPECT_NE(random.Get(bytes.data(), 16), 0);
    return bytes;
}

TEST(CryptRandom, DrawsOtherBytesEachTimeAndFromACopyThatOutlivesIt) {
    auto random = std::make_unique<OS::CCryptRandom>();
    const OS::CCryptRandom copy(*random);
    const std::string drawn = bytes_of(*random);
    EXPECT_NE(bytes_of(*random), drawn);
    random.reset();
    EXPECT_NE(bytes_of(copy), drawn);
    EXPECT_EQ(copy.Get(nullptr, 1), 0);
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
