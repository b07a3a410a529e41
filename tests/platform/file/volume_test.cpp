#include "ostrel/platform/volume.h"

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
}

}  // namespace
