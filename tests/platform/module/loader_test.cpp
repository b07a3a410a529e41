// LoadLibraryW, LoadLibraryExW, GetProcAddress and FreeLibrary.

#include "support/modules.h"
#include "support/signals.h"

namespace {

std::string g_notes;  // of the modules

}  // namespace

extern "C" void note_of_module(const char *note) {
    g_notes += note;
}

namespace {

constexpr DWORD kData = LOAD_LIBRARY_AS_DATAFILE, kOwnFolder = LOAD_WITH_ALTERED_SEARCH_PATH;

// A current directory with the sample module under a name, and the library that it needs.
struct ModuleFolder : TempDir {
    explicit ModuleFolder(const std::string &name = "sample.so") {
        plant_module("sample_module", name);
        plant_module("needed_library", fs::path(name).parent_path() / "needed_library.so");
    }
};

std::string message(DWORD capacity = 600) {
    std::u16string text(capacity, u'x');
    text.resize(platform_loader_message(text.data(), capacity));
    return fs::path(text);
}

TEST(Loader, FindsTheFileOfAName) {
    const std::tuple<const char *, std::u16string, DWORD, const char *> cases[] = {
        {"sample.so", u".\\sample.dll", kOwnFolder, "sample.so"},
        {"libsample.so", u"./sample.DLL", kOwnFolder, "libsample.so"},
        {"sample.dll", u"SAMPLE\\..\\sample", kOwnFolder, "sample.dll"},
        {"sample", u".\\sample", kOwnFolder, "sample"},
        {"Sample.so", u".\\sample.so", kOwnFolder, "126"},
        {"sample.so", u"needed_library.dll", 0, "126"},  // no code of the current directory
        {"sample.so", u"sample.dll", kData, "sample.so"},
        {"$LIB/sample.so", u"$LIB\\sample", kOwnFolder, "161"},
        {"sub/sample.so", u"sub\\sample", 0, "126"},  // without the library that it needs
    };
    for (const auto &[planted, name, flags, expected] : cases) {
        const ModuleFolder dir(planted);
        EXPECT_EQ(loaded_file(name, flags), expected) << planted << ' ' << PrintToString(name);
    }
}

TEST(Loader, LooksInTheProgramsFolderAndByTheHostsRules) {
    const fs::path own = fs::read_symlink("/proc/self/exe").replace_filename("libloader_own.so");
    plant_module("needed_library", own);
    EXPECT_EQ(loaded_file(u"loader_own.dll"), "libloader_own.so");
    EXPECT_EQ(loaded_file(u"loader_own", kData), "libloader_own.so");
    fs::remove(own);
    EXPECT_EQ(loaded_file(u"loader_own"), "126");
    EXPECT_EQ(loaded_file(u"libc.so.6", kData), "libc.so.6");
}

TEST(Loader, TellsWhyAModuleCannotBeLoaded) {
    const ModuleFolder dir("lone/sample.so");
    fs::remove("lone/needed_library.so");
    plant("empty.so= dir.so/ ");
    plant_module("unbound_module", "unbound.so");
    ASSERT_EQ(mkfifo("fifo.so", 0600), 0);
    const std::tuple<std::u16string, DWORD, const char *> cases[] = {
        {u"", 0, "87"},
        {u"none\\none", kData, "126"},
        {u"\\\\server\\share\\x.dll", 0, "53"},
        {u".\\lone\\sample", kOwnFolder, "126"},
        {u".\\dir", 0, "5"},
        {u".\\empty", kData, "193"},
        {u".\\fifo", 0, "193"},
        {u"C:\\dev\\zero", kData, "193"},
        {std::u16string(260, u'x'), 0, "206"},
        {u".\\unbound", 0, "127"}};
    for (const auto &[name, flags, code] : cases) {
        EXPECT_EQ(loaded_file(name, flags), code) << PrintToString(name);
    }
    EXPECT_EQ(message(), dir.Path().string() + "/unbound.so: undefined symbol: missing_function");
    EXPECT_EQ(message(5), dir.Path().string().substr(0, 4));
    loaded_file(u"libc.so.6");
    EXPECT_EQ(message(), "");
}

TEST(Loader, TellsWhyAlsoBehindALongPath) {
    const TempDir dir;
    const std::u16string folder(80, u'\u4E2D');  // 240 bytes
    plant_module("unbound_module", fs::path(folder) / folder / "unbound.so");
    EXPECT_EQ(loaded_file(u".\\" + folder + u'\\' + folder + u"\\unbound.so"), "127");
}

TEST(Loader, CountsTheLoadsOfAModuleAndGivesWhatItExports) {
    const ModuleFolder dir;
    g_notes.clear();
    const HMODULE module = LoadLibraryExW(u".\\sample.so", nullptr, kOwnFolder);
    ASSERT_NE(module, nullptr) << message();
    EXPECT_EQ(message(), "");  // not that of a load in the constructor
    const HMODULE libc = LoadLibraryW(u"libc.so.6");
    EXPECT_NE(GetProcAddress(libc, "getpid"), nullptr);
    EXPECT_TRUE(FreeLibrary(libc));
    EXPECT_EQ(error_of(FreeLibrary(libc)), ERROR_MOD_NOT_FOUND);
    EXPECT_EQ(error_of(FreeLibrary(nullptr)), ERROR_MOD_NOT_FOUND);
    EXPECT_EQ(reinterpret_cast<int (*)()>(GetProcAddress(module, "sample_number"))(), 42);
    EXPECT_EQ(GetProcAddress(nullptr, "note_of_module"),
              reinterpret_cast<FARPROC>(&note_of_module));
    EXPECT_EQ(GetProcAddress(module, "none"), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_PROC_NOT_FOUND);
    EXPECT_EQ(GetProcAddress(module, "getpid"), nullptr);
    EXPECT_EQ(GetProcAddress(module, reinterpret_cast<char *>(std::uintptr_t{7})), nullptr);
    EXPECT_EQ(GetProcAddress(reinterpret_cast<HMODULE>(&g_notes), "none"), nullptr);
    EXPECT_EQ(LoadLibraryW(u"C:\\proc\\self\\cwd\\sample.so"), module);
    EXPECT_EQ(LoadLibraryW(u"sample.dll"), module);  // is loaded already
    EXPECT_EQ(file_of(module), "sample.so");
    EXPECT_TRUE(DisableThreadLibraryCalls(module));
    EXPECT_TRUE(FreeLibrary(module) && FreeLibrary(module) && g_notes == "+");
    EXPECT_TRUE(FreeLibrary(module) && g_notes == "+-") << g_notes;
    EXPECT_EQ(file_of(module), "126");
}

TEST(Loader, MapsAFileForReadingAndRunsNothing) {
    const ModuleFolder dir;
    plant("sample/");
    g_notes.clear();
    const HMODULE module = LoadLibraryExW(u".\\sample", nullptr, kData);
    ASSERT_EQ(reinterpret_cast<std::uintptr_t>(module) & 1, 1u);
    EXPECT_EQ(std::string(reinterpret_cast<const char *>(module), 3), "ELF");
    EXPECT_EQ(GetProcAddress(module, "sample_number"), nullptr);
    EXPECT_FALSE(DisableThreadLibraryCalls(module));
    EXPECT_EQ(file_of(module), "sample.so");
    EXPECT_TRUE(FreeLibrary(module) && !FreeLibrary(module));
    EXPECT_EQ(file_of(module) + g_notes, "126");
}

// ThreadSanitizer does not see the lock of the host's loader, so it may see this test alone.
TEST(Loader, CountsTheLoadsOfThreads) {
    const ModuleFolder dir;
    const HMODULE first = LoadLibraryExW(u".\\sample", nullptr, kOwnFolder);
    on_threads(4, [](std::size_t) {
        for (int i = 0; i < 100; ++i) {
            const HMODULE module = LoadLibraryExW(u".\\sample", nullptr, kOwnFolder);
            const HMODULE file = LoadLibraryExW(u".\\sample", nullptr, kData);
            EXPECT_NE(GetProcAddress(module, "sample_number"), nullptr);
            EXPECT_EQ(file_of(file), "sample.so");
            EXPECT_TRUE(FreeLibrary(module) && FreeLibrary(file));
        }
    });
    EXPECT_TRUE(FreeLibrary(first) && !FreeLibrary(first));
}

}  // namespace
