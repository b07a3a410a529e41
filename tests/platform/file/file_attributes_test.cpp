#include <sys/xattr.h>
#include <unistd.h>

#include "support/file_calls.h"

namespace {

constexpr char kStored[] = "user.DOSATTRIB";

// The text that the host keeps for a file; "-" for none.
std::string stored_text(const char *path) {
    char text[100];
    const ssize_t length = getxattr(path, kStored, text, sizeof text);
    return length < 0 ? "-" : std::string(text, static_cast<std::size_t>(length));
}

TEST(FileAttributes, AreSetByModeAndByStoredText) {
    const Planted dir("file= sub/ link->file loop->loop");
    chmod("file", 0664);
    const std::tuple<std::string, DWORD, DWORD, mode_t, const char *> steps[] = {
        {"file", kReadOnly | kHidden, kReadOnly | kHidden, 0444, "0x2"},
        {"file", 0x26 | 0x10 | 0x400, 0x26, 0644, "0x26"},
        {"link", kReadOnly, 0x426, 0777, "0x26"},  // the target's, and not set
        {"loop", kReadOnly, 0x400, 0777, "-"},
        {"file", kNormal, kNormal, 0644, "-"},
        {"sub", kReadOnly | kHidden, 0x10 | kReadOnly | kHidden, 0755, "0x3"},
        {"sub/", 0, 0x10, 0755, "-"}};
    const auto written = fs::last_write_time("file");
    for (const auto &[name, wanted, told, mode, stored] : steps) {
        SCOPED_TRACE(name + ' ' + std::to_string(wanted));
        const std::u16string path(name.begin(), name.end());
        set(path.c_str(), wanted);
        EXPECT_EQ(GetFileAttributesW(path.c_str()), told);
        EXPECT_EQ(host_facts(name).st_mode & 0777, mode);
        EXPECT_EQ(stored_text(name.c_str()), stored);
    }
    EXPECT_EQ(fs::last_write_time("file"), written);
}

TEST(FileAttributes, TakeTheTextThatFileServersStore) {
    const Planted dir("file=");
    const std::pair<std::string, DWORD> cases[] = {
        {std::string("0x22\0\3\0\3\0and more", 17), 0x22},
        {"22", kNormal},
        {"0x2z", kNormal},
        {"0x100000002", kNormal},
        {"0x1121", 0x20},  // READONLY of a file is in its mode
    };
    for (const auto &[text, told] : cases) {
        ASSERT_EQ(setxattr("file", kStored, text.data(), text.size(), 0), 0);
        EXPECT_EQ(GetFileAttributesW(TEXT("file")), told) << text;
    }
    set(TEXT("file"), kHidden);
    EXPECT_EQ(stored_text("file"), "0x1102");  // what it does not know stays
}

TEST(FileAttributes, AnOrdinaryOwnerNeedsNoWritePermissionAndOthersGetNothing) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "cannot become another user";
    }
    const Planted dir("own= other=");
    constexpr uid_t kNobody = 65534;
    ASSERT_EQ(chmod("own", 0444) | chown("own", kNobody, kNobody) | chmod(".", 0755), 0);
    ASSERT_EQ(seteuid(kNobody), 0);
    set(TEXT("own"), kReadOnly | kHidden);
    set(TEXT("other"), kNormal);
    EXPECT_EQ(error_of(SetFileAttributesW(TEXT("other"), kHidden)), ERROR_ACCESS_DENIED);
    ASSERT_EQ(seteuid(0), 0);
    EXPECT_EQ(host_facts("own").st_mode & 0777, 0444u);
    EXPECT_EQ(stored_text("own"), "0x2");
}

}  // namespace
