// What the text of a path decides, before the host sees the path.

#include "ostrel/platform/file/host_path.h"

#include <cctype>

#include "ostrel/platform/find.h"
#include "support/file_calls.h"

namespace {

// The host path, or the code that file_path sets.
std::string converted(const std::u16string &path) {
    const std::optional<std::string> host = ostrel_platform::file_path(path.c_str());
    EXPECT_EQ(ostrel_platform::host_path(path.c_str()), host);
    return host ? *host : std::to_string(GetLastError());
}

// What "." and ".." do in short paths of any kind, fuzz/host_names_fuzz.cpp checks as well.
TEST(HostPath, IsDecidedByTheText) {
    setenv("OSTREL_DRIVE_D", "/drive/./../of", 1);
    const struct {
        const WCHAR *path;
        const char *host;
        bool is_root = false;
    } cases[] = {
        {u"a/b\\..c\\d..", "a/b/..c/d.."},
        {u".hidden\\.\\x", ".hidden/x"},
        {u"a\\\\b\\\\..\\", "a/"},
        {u"a\\..", "."},
        {u"a\\b\\..\\..\\..\\x\\..\\y", "../y"},
        {u"\\a\\..\\..\\x", "/x"},
        {u"C:..", "/", true},
        {u"c:\\x\\..\\", "/", true},
        {u"D:\\..\\secret", "/drive/./../of/secret"},
        {u"d:a\\..", "/drive/./../of/", true},
        {u"D:\\a\\\xDC5C..\\..", "/drive/./../of/a"},
        {u"D:", "/drive/./../of/", true},
        {u"\\\\server\\share\\x", "53"},
        {u"\\/", "53"},
        {u"\\\\?x\\y", "53"},
        {u"\\\\.\\COM1", "2"},
        {u"//?/C:/x", "2"},
        {u"\\\\?\\d:\\a\\..b\\", "/drive/./../of/a/..b/"},
        {u"\\\\?\\C:\\", "/", true},
        {u"\\\\?\\C:", "3"},
        {u"\\\\?\\C:x", "3"},
        {u"\\\\?\\E:\\x", "3"},
        {u"\\\\?\\D:\\a\\..\\..\\secret", "3"},
        {u"\\\\?\\unc\\server\\share", "53"},
        {u"\\\\?\\UNCLE\\x", "3"},
        {u"\\\\?\\x", "3"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(PrintToString(c.path));
        EXPECT_EQ(converted(c.path), c.host);
        EXPECT_EQ(!std::isdigit(*c.host) && ostrel_platform::is_root(c.path), c.is_root);
    }
    const std::u16string longest = u"\\\\?\\C:\\" + std::u16string(32759, u'x');
    EXPECT_EQ(converted(longest).size(), 32760u);
    EXPECT_EQ(ostrel_platform::file_path((longest + u'x').c_str()), std::nullopt);
    EXPECT_EQ(GetLastError(), ERROR_FILENAME_EXCED_RANGE);
    unsetenv("OSTREL_DRIVE_D");
}

TEST(HostPath, LeadsToNothingAboveTheDrive) {
    const Planted dir("secret=kept sub/file= sub/secret= sub/link->../far far/");
    setenv("OSTREL_DRIVE_D", (dir.Path() / "sub").c_str(), 1);
    EXPECT_EQ(error_of(RemoveDirectoryW(u"D:\\x\\..")), ERROR_ACCESS_DENIED);
    EXPECT_EQ(error_of(MoveFileW(u"file", u"D:\\x\\..")), ERROR_ACCESS_DENIED);
    EXPECT_EQ(error_of(DeleteFileW(u"D:\\..\\secret")), 0u);
    EXPECT_EQ(error_of(DeleteFileW(u"D:link/../file")), 0u);  // whatever the link leads to
    WIN32_FIND_DATAW data;
    const HANDLE search = FindFirstFileW(u"D:\\x\\..\\..\\*", &data);
    EXPECT_EQ(std::u16string(data.cFileName), u"link");  // a root has no dots
    EXPECT_TRUE(FindClose(search));
    unsetenv("OSTREL_DRIVE_D");
    EXPECT_EQ(tree(), "far/ secret=kept sub/ sub/link->../far ");
}

}  // namespace
