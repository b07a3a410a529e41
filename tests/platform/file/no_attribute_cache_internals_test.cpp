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
    // The next change may have the same time.
    EXPECT_FALSE(ostrel_platform::is_known_without_attributes(file));
    file.stx_ctime.tv_sec -= 3600;
    ostrel_platform::remember_without_attributes(file, {AT_FDCWD, "file"});
    // Meanwhile a path may lead elsewhere.
    EXPECT_FALSE(ostrel_platform::is_known_without_attributes(file));
    ostrel_platform::remember_without_attributes(file, place);
    EXPECT_TRUE(ostrel_platform::is_known_without_attributes(file));
    for (const std::string changed : {"nanoseconds", "seconds", "inode", "device"}) {
        struct statx other = file;
        other.stx_ctime.tv_nsec += changed == "nanoseconds";
        other.stx_ctime.tv_sec += changed == "seconds";
        other.stx_ino += changed == "inode";
        other.stx_dev_minor += changed == "device";
        EXPECT_FALSE(ostrel_platform::is_known_without_attributes(other)) << changed;
    }
    EXPECT_EQ(GetFileAttributesW(TEXT("file")), kNormal);
    ASSERT_EQ(setxattr("file", "user.DOSATTRIB", "0x2", 3, 0), 0);
    EXPECT_EQ(GetFileAttributesW(TEXT("file")), kHidden);
}

}  // namespace
