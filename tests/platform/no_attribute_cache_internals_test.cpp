#include "ostrel/platform/file/no_attribute_cache.h"

#include <fcntl.h>
#include <sys/xattr.h>

#include "ostrel/platform/base/host_descriptor.h"
#include "support/file_calls.h"

namespace {

// What any other program changes shows at once: its change gives the file another ctime.
TEST(NoAttributeCache, AreKnownUntilTheirChangeTimeIsAnother) {
    const Planted dir("file=");
    struct statx file;
    ASSERT_EQ(statx(AT_FDCWD, "file", 0, STATX_BASIC_STATS, &file), 0);
    const ostrel_platform::HostDescriptor folder(open(".", O_RDONLY | O_DIRECTORY));
    const ostrel_platform::FileRef place = {folder.Get(), "file"};
    ostrel_platform::remember_without_attributes(file, place);
    EXPECT_FALSE(ostrel_platform::is_known_without_attributes(
        file));  // the next change may have the same time
    file.stx_ctime.tv_sec -= 3600;
    ostrel_platform::remember_without_attributes(file, {AT_FDCWD, "file"});
    EXPECT_FALSE(
        ostrel_platform::is_known_without_attributes(file));  // a path may lead elsewhere meanwhile
    ostrel_platform::remember_without_attributes(file, place);
    EXPECT_TRUE(ostrel_platform::is_known_without_attributes(file));
    for (int i = 0; i < 4; ++i) {
        struct statx other = file;
        other.stx_ctime.tv_nsec += i == 0;
        other.stx_ctime.tv_sec += i == 1;
        other.stx_ino += i == 2;
        other.stx_dev_minor += i == 3;
        EXPECT_FALSE(ostrel_platform::is_known_without_attributes(other)) << i;
    }
    EXPECT_EQ(GetFileAttributesW(TEXT("file")), kNormal);
    ASSERT_EQ(setxattr("file", "user.DOSATTRIB", "0x2", 3, 0), 0);
    EXPECT_EQ(GetFileAttributesW(TEXT("file")), kHidden);
}

}  // namespace
