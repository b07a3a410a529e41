#include "ostrel/platform/module/loader_cache.h"

#include "support/file_tree.h"
#include "support/test.h"

namespace {

TEST(LoaderCache, GivesThePathOfALibraryOfThisProcess) {
    const TempDir dir;
    const std::string host =
        ostrel_platform::find_in_loader_cache(ostrel_platform::kLoaderCache, "libc.so.6");
    EXPECT_TRUE(host.ends_with("/libc.so.6")) << host;
    EXPECT_EQ(ostrel_platform::find_in_loader_cache("none", "libc.so.6"), "");
    EXPECT_EQ(ostrel_platform::find_in_loader_cache(".", "libc.so.6"), "");
}

TEST(LoaderCache, OutlivesDamage) {
    const TempDir dir;
    const std::string bytes = content_of(ostrel_platform::kLoaderCache);
    ASSERT_GT(bytes.size(), 100u);
    for (std::size_t size = 0; size < 400; size += 7) {
        dir.Write("cut", bytes.substr(0, size));
        EXPECT_EQ(ostrel_platform::find_in_loader_cache("cut", "libc.so.6"), "") << size;
    }
    for (std::size_t at = 20; at < 400; at += 3) {
        std::string damaged = bytes;
        damaged[at] = '\xFF';
        dir.Write("damaged", damaged);
        ostrel_platform::find_in_loader_cache("damaged", "libc.so.6");
    }
}

}  // namespace
