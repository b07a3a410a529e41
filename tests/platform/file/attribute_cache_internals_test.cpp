#include "ostrel/platform/file/attribute_cache.h"

#include <fcntl.h>
#include <sys/xattr.h>

#include "ostrel/platform/base/host_descriptor.h"
#include "support/file_calls.h"

namespace {

using ostrel_platform::cache_attributes;
using ostrel_platform::find_cached_attributes;

// What any other program changes shows at once: its change gives the file another ctime.
TEST(AttributeCache, HoldsAFileUntilItsChangeTimeIsAnother) {
    const Planted dir("file=");
    struct statx file;
    ASSERT_EQ(statx(AT_FDCWD, "file", 0, STATX_BASIC_STATS, &file), 0);
    const ostrel_platform::HostDescriptor folder(open(".", O_RDONLY | O_DIRECTORY));
    const ostrel_platform::FileRef place = {folder.Get(), "file"};
    cache_attributes(file, place, {});
    EXPECT_FALSE(find_cached_attributes(file));  // the next change may have the same time
    file.stx_ctime.tv_sec -= 3600;
    cache_attributes(file, {AT_FDCWD, "file"}, {});
    EXPECT_FALSE(find_cached_attributes(file));  // meanwhile a path may lead elsewhere
    cache_attributes(file, place, {});
    ASSERT_TRUE(find_cached_attributes(file));
    EXPECT_FALSE(find_cached_attributes(file)->creation);
    cache_attributes(file, place, {0x26, 0});
    EXPECT_EQ(find_cached_attributes(file)->bits, 0x26u);
    EXPECT_EQ(find_cached_attributes(file)->creation, 0);
    for (const std::string changed : {"nanoseconds", "seconds", "inode", "device"}) {
        struct statx other = file;
        other.stx_ctime.tv_nsec += changed == "nanoseconds";
        other.stx_ctime.tv_sec += changed == "seconds";
        other.stx_ino += changed == "inode";
        other.stx_dev_minor += changed == "device";
        EXPECT_FALSE(find_cached_attributes(other)) << changed;
    }
    EXPECT_EQ(GetFileAttributesW(TEXT("file")), kNormal);
    ASSERT_EQ(setxattr("file", "user.DOSATTRIB", "0x2", 3, 0), 0);
    EXPECT_EQ(GetFileAttributesW(TEXT("file")), kHidden);
}

}  // namespace
