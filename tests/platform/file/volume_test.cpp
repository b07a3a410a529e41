#include "ostrel/platform/volume.h"

#include <sys/statvfs.h>

#include "support/file_calls.h"

namespace {

TEST(Volume, IsWhatTheHostSays) {
    const Planted dir("file=");
    setenv("OSTREL_DRIVE_W", "/dev/shm", 1);
    const std::tuple<std::u16string, DWORD, DWORD> cases[] = {
        {u"C:/proc/", DRIVE_FIXED, 0},
        {u"W:\\", DRIVE_RAMDISK, 0},
        {u"C:/proc", DRIVE_FIXED, ERROR_INVALID_NAME},
        {u"X:\\", DRIVE_NO_ROOT_DIR, ERROR_PATH_NOT_FOUND},
        {u"file\\", DRIVE_NO_ROOT_DIR, ERROR_PATH_NOT_FOUND}};
    for (const auto &[path, type, code] : cases) {
        SCOPED_TRACE(PrintToString(path));
        EXPECT_EQ(GetDriveTypeW(path.c_str()), type);
        EXPECT_EQ(error_of(GetDiskFreeSpaceW(path.c_str(), nullptr, nullptr, nullptr, nullptr)),
                  code);
    }
    unsetenv("OSTREL_DRIVE_W");
    DWORD sectors, size, free, total;
    struct statvfs facts;
    ASSERT_EQ(statvfs(".", &facts), 0);
    ASSERT_TRUE(GetDiskFreeSpaceW(nullptr, &sectors, &size, &free, &total));
    EXPECT_EQ(std::uint64_t{total} * sectors * size, facts.f_blocks * facts.f_frsize);
    EXPECT_LE(free, total);
}

}  // namespace
