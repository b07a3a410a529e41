#include "ostrel/file/class.h"

#include "support/modules.h"
#include "support/registry.h"
#include "support/trace_capture.h"

namespace {

constexpr WCHAR kKey[] = u"SOFTWARE\\Nimbara\\Larkspur\\service\\Information";
const std::string kTrace = "258 .\\class.cpp ", kFailure = "4097 .\\class.cpp ";
const std::string kMismatch =
    kTrace + "Fail query reg of ZORV main folder, or dtype mismatch, err=";

// Stores text of Latin letters, and a last byte on its own, as the folder.
void set_folder(const std::u16string &text, DWORD type = REG_SZ, const std::string &rest = "") {
    RegistryFolder::OfProcess();
    const TestKey key = created(HKEY_LOCAL_MACHINE, kKey);
    const std::string bytes(reinterpret_cast<const char *>(text.data()), 2 * text.size());
    EXPECT_EQ(set_bytes(key, u"Local_Path", type, bytes + rest), 0);
}

TEST(Class, ReadsTheFolderWithinItsBuffer) {
    const std::tuple<std::u16string, std::string, std::size_t, std::string> cases[] = {
        {u"D:\\agent\\|", "", 260, "D:\\agent\\VEKA\\"},
        {u"", "x", 260, "VEKA\\"},
        {u"D:\\", "a", 260, "D:VEKA\\"},
        {u"D:\\a|", "", 5, "D:\\a"},
        {u"D:\\a|", "", 8, "D:\\aVEK"},
        {u"|", "", 1, ""},
        {u"D:\\a|", "", 4, kMismatch + "77\n"},
    };
    for (const auto &[text, rest, size, expected] : cases) {
        set_folder(text, REG_SZ, rest);
        const TraceCapture capture;
        std::vector<WCHAR> folder(size, u'y');
        SetLastError(77);
        const int result = CUtilZorv::GetAbsVekaFolderInZorv(folder.data(), static_cast<int>(size));
        EXPECT_EQ(result, expected.starts_with(kMismatch) ? 0 : 1);
        EXPECT_EQ(result == 0 ? capture.Lines() : fs::path(folder.data()).string(), expected);
        EXPECT_TRUE(result == 0 || folder.back() == 0);
    }
    EXPECT_EQ(CUtilZorv::GetAbsVekaFolderInZorv(nullptr, 260), 0);
}

TEST(Class, LoadsByNameAndThenByFolder) {
    const TempDir dir;
    plant_module("sample_module", "VEKA/libclass_sample.so");
    plant_module("needed_library", "VEKA/needed_library.so");
    const std::u16string folder = platform_path(dir.Path() / "");
    const std::string veka = fs::path(folder).string() + "VEKA\\",
                      load = "CUtilZorv::LoadLibExPlim ";
    const auto traced = [](std::u16string name, const std::string &file) {
        const TraceCapture capture;
        const HINSTANCE module = CUtilZorv::LoadLibExPlim(name.data());
        EXPECT_EQ(module != nullptr ? file_of(module) : "", file);
        EXPECT_EQ(FreeLibrary(module), !file.empty());
        return capture.Lines();
    };
    set_folder(folder + u'|');
    const std::string flags = "', flag=00000008. ",
                      in = "VEKA folder under KORL is '" + veka + "'\n";
    const std::string fails = flags + "fail, try abs path of ZORV.\n" + kTrace;
    EXPECT_EQ(traced(u"libc.so.6", "libc.so.6"), kTrace + load + "'libc.so.6" + flags + "done.\n");
    EXPECT_EQ(traced(u"class_sample", "libclass_sample.so"),
              kTrace + load + "'class_sample" + fails + in + kTrace + load + "'" + veka +
                  "class_sample" + flags + "loaded under zorv path.\n");
    const std::string none_fails = kTrace + load + "'none" + fails;
    EXPECT_EQ(traced(u"none", ""), none_fails + in + kFailure + load + "fail of loadlib: '" + veka +
                                       "none" + flags + "(err:126)\n");
    const HINSTANCE data = CUtilZorv::LoadLibExAsDataPlim(&std::u16string(u"class_sample.dll")[0]);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(data) & 1, 1u);
    EXPECT_TRUE(FreeLibrary(data));
    const std::string end =
        "126\n" + kFailure + load + "by LoadLibrary: 'none' fail of find abs path.\n";
    set_folder(folder + u'|', REG_BINARY);
    EXPECT_EQ(traced(u"none", ""), none_fails + kMismatch.substr(kTrace.size()) + end);
    EXPECT_EQ(RegDeleteTreeW(HKEY_LOCAL_MACHINE, kKey), 0);
    EXPECT_EQ(traced(u"none", ""), none_fails + "Fail open reg of ZORV main folder, err=" + end);
}

TEST(Class, LoadsAFileOfAFolder) {
    WCHAR folder[] = u"D:\\x\\", file[] = u"libc.so.6";
    const std::tuple<WCHAR *, int, std::string> cases[] = {{nullptr, 10, "libc.so.6"},
                                                           {folder, 15, "D:\\x\\libc.so.6"},
                                                           {folder, 8, "D:\\x\\li"},
                                                           {folder, 2, "D"}};
    for (const auto &[path, size, expected] : cases) {
        const TraceCapture capture;
        std::vector<WCHAR> out(static_cast<std::size_t>(size));
        const HINSTANCE module = CUtilZorv::LoadLibEx(file, path, out.data(), size);
        EXPECT_EQ(FreeLibrary(module), path == nullptr);
        EXPECT_EQ(fs::path(out.data()), expected);
        const std::string line = kFailure + "LoadLib EX fail: '" + expected + "'. (err:126)\n";
        EXPECT_EQ(capture.Lines(), path == nullptr ? "" : line);
    }
    EXPECT_EQ(CUtilZorv::LoadLibEx(file, nullptr, file, 0), nullptr);  // not what `out` holds
    CUtilZorv::GenVekaModFilenameInZorv(file, 0, folder, folder);
    EXPECT_EQ(*file, u'l');
}

}  // namespace
