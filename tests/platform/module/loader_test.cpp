// LoadLibraryW, LoadLibraryExW, GetProcAddress and FreeLibrary.

#include <unistd.h>

#include <atomic>
#include <thread>

#include "support/modules.h"

namespace {

std::string g_notes;  // of the modules
std::atomic<bool> g_notesAreKept{true};

}  // namespace

extern "C" void note_of_module(const char *note) {
    if (g_notesAreKept) {
        g_notes += note;
    }
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

std::string message() {
    WCHAR text[600];
    const DWORD size = platform_loader_message(text, 600);
    EXPECT_EQ(size, std::u16string(text).size());
    return fs::path(text);
}

TEST(Loader, FindsTheFileOfAName) {
    const std::tuple<const char *, std::u16string, DWORD, const char *> cases[] = {
        {"sample.so", u".\\sample.dll", kOwnFolder, "sample.so"},
        {"libsample.so", u"./sample.DLL", kOwnFolder, "libsample.so"},
        {"sample.dll", u"SAMPLE\\..\\sample", kOwnFolder, "sample.dll"},
        {"libsample.so", u".\\sample", kOwnFolder, "libsample.so"},
        {"sample", u".\\sample", kOwnFolder, "sample"},
        {"sample", u".\\sample.", kOwnFolder, "sample"},
        {"sample.dll", u".\\sample.", kOwnFolder, "126"},
        {"sample.so", u".\\sample.so.1", kOwnFolder, "126"},
        {"libsample.so.1", u".\\libsample.so.1", kOwnFolder, "libsample.so.1"},
        {"Sample.so", u".\\sample.so", kOwnFolder, "126"},
        {"sample.so", u"needed_library.dll", 0, "126"},  // no code of the current directory
        {"sample.so", u"sample.dll", kData, "sample.so"},
        {"sample.so", u"sample.dll", kData | kOwnFolder, "sample.so"},
        {"sub/sample.so", u"sub\\sample", kOwnFolder, "sample.so"},
        {"$LIB/sample.so", u"$LIB\\sample", kOwnFolder, "161"},
        {"$LIB/sample.so", u"$LIB\\sample", kData, "sample.so"},
        {"sub/sample.so", u"sub\\sample", 0, "126"},  // without the library that it needs
    };
    for (const auto &[planted, name, flags, expected] : cases) {
        const ModuleFolder dir(planted);
        EXPECT_EQ(loaded_file(name, flags), expected) << planted << ' ' << PrintToString(name);
    }
}

TEST(Loader, LooksInTheProgramsFolderAndByTheHostsRules) {
    const fs::path program = fs::read_symlink("/proc/self/exe");
    const fs::path own = program.parent_path() / "libloader_test_own.so";
    plant_module("needed_library", own);
    EXPECT_EQ(loaded_file(u"loader_test_own.dll"), "libloader_test_own.so");
    EXPECT_EQ(loaded_file(u"loader_test_own", kData), "libloader_test_own.so");
    fs::remove(own);
    EXPECT_EQ(loaded_file(u"loader_test_own"), "126");
    EXPECT_EQ(loaded_file(program.filename().u16string() + u'.', kData), program.filename());
    for (const DWORD flags : {DWORD{0}, kData}) {
        EXPECT_EQ(loaded_file(u"libc.so.6", flags), "libc.so.6");
    }
}

TEST(Loader, TellsWhyAModuleCannotBeLoaded) {
    const ModuleFolder dir("lone/sample.so");
    fs::remove("lone/needed_library.so");
    plant("empty.so= text.so=text dir.so/ ");
    plant_module("unbound_module", "unbound.so");
    plant_module("sample_module", "cut.so");
    fs::resize_file("cut.so", fs::file_size("cut.so") / 8);
    ASSERT_EQ(mkfifo("fifo.so", 0600), 0);
    const std::tuple<const WCHAR *, DWORD, DWORD> cases[] = {
        {nullptr, 0, ERROR_INVALID_PARAMETER},
        {u"", 0, ERROR_INVALID_PARAMETER},
        {u"x", 1, ERROR_INVALID_PARAMETER},
        {u"none", 0, ERROR_MOD_NOT_FOUND},
        {u"none\\none", kData, ERROR_MOD_NOT_FOUND},
        {u"text.so\\none", 0, ERROR_MOD_NOT_FOUND},
        {u"Q:\\none", 0, ERROR_MOD_NOT_FOUND},
        {u".", 0, ERROR_MOD_NOT_FOUND},
        {u"\\\\server\\share\\x.dll", 0, ERROR_BAD_NETPATH},
        {u".\\lone\\sample", kOwnFolder, ERROR_MOD_NOT_FOUND},
        {u".\\unbound", 0, ERROR_PROC_NOT_FOUND},
        {u".\\dir", 0, ERROR_ACCESS_DENIED},
        {u".\\dir.so\\", kData, ERROR_ACCESS_DENIED},
        {u".\\empty", 0, ERROR_BAD_EXE_FORMAT},
        {u".\\empty", kData, ERROR_BAD_EXE_FORMAT},
        {u".\\text", 0, ERROR_BAD_EXE_FORMAT},
        {u".\\cut", 0, ERROR_BAD_EXE_FORMAT},
        {u".\\fifo", 0, ERROR_BAD_EXE_FORMAT},
        {u".\\fifo", kData, ERROR_BAD_EXE_FORMAT},
        {u"C:\\dev\\zero", kData, ERROR_BAD_EXE_FORMAT},
        {u"C:\\dev\\zero", 0, ERROR_BAD_EXE_FORMAT},
    };
    for (const auto &[name, flags, code] : cases) {
        SetLastError(0);
        EXPECT_EQ(LoadLibraryExW(name, nullptr, flags), nullptr);
        EXPECT_EQ(GetLastError(), code) << (name != nullptr ? PrintToString(name) : "null");
    }
    EXPECT_EQ(loaded_file(std::u16string(260, u'x')), "206");
    EXPECT_EQ(LoadLibraryExW(u"x", INVALID_HANDLE_VALUE, 0), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
}

TEST(Loader, TellsWhyAlsoBehindALongPath) {
    const TempDir dir;
    const std::u16string folder(80, u'\u4E2D');  // 240 bytes
    plant_module("unbound_module", fs::path(folder) / folder / "unbound.so");
    EXPECT_EQ(loaded_file(u".\\" + folder + u'\\' + folder + u"\\unbound.so"), "127");
}

TEST(Loader, KeepsTheTextOfTheHostsLoader) {
    const TempDir dir;
    plant_module("unbound_module", "unbound.so");
    loaded_file(u".\\unbound");
    EXPECT_EQ(message(), dir.Path().string() + "/unbound.so: undefined symbol: missing_function");
    WCHAR text[5];
    SetLastError(3);
    EXPECT_EQ(platform_loader_message(text, 5), 4u);
    EXPECT_EQ(text, dir.Path().u16string().substr(0, 4));
    EXPECT_EQ(platform_loader_message(nullptr, 5) + platform_loader_message(text, 0), 0u);
    EXPECT_EQ(GetLastError(), 3u);
    loaded_file(u"libc.so.6");
    EXPECT_EQ(message(), "");
}

TEST(Loader, CountsTheLoadsOfAModule) {
    const ModuleFolder dir;
    g_notes.clear();
    const HMODULE module = LoadLibraryExW(u".\\sample.so", nullptr, kOwnFolder);
    ASSERT_NE(module, nullptr) << message();
    EXPECT_EQ(message(), "");  // not that of a load in the constructor
    EXPECT_EQ(LoadLibraryW(u"C:\\proc\\self\\cwd\\sample.so"), module);
    EXPECT_EQ(LoadLibraryW(u"sample.dll"), module);  // is loaded already
    EXPECT_EQ(file_of(module), "sample.so");
    EXPECT_TRUE(DisableThreadLibraryCalls(module));
    EXPECT_TRUE(FreeLibrary(module) && FreeLibrary(module));
    EXPECT_EQ(g_notes, "+");
    EXPECT_TRUE(FreeLibrary(module));
    EXPECT_EQ(g_notes, "+-");
    EXPECT_FALSE(FreeLibrary(module));
    EXPECT_EQ(GetLastError(), ERROR_MOD_NOT_FOUND);
    EXPECT_EQ(file_of(module), "126");
}

TEST(Loader, FreesNothingThatItHasNotLoaded) {
    const HMODULE libc = LoadLibraryW(u"libc.so.6");
    ASSERT_TRUE(FreeLibrary(libc));
    for (const std::intptr_t value :
         {std::intptr_t{0}, std::intptr_t{-1}, std::intptr_t{5},
          reinterpret_cast<std::intptr_t>(libc), reinterpret_cast<std::intptr_t>(libc) + 1}) {
        SetLastError(0);
        EXPECT_FALSE(FreeLibrary(reinterpret_cast<HMODULE>(value)));
        EXPECT_EQ(GetLastError(), ERROR_MOD_NOT_FOUND) << value;
    }
}

TEST(Loader, MapsAFileForReadingAndRunsNothing) {
    const ModuleFolder dir;
    plant("lone.dll=MZ sample/");
    g_notes.clear();
    const HMODULE module = LoadLibraryExW(u".\\sample", nullptr, kData);
    const HMODULE other = LoadLibraryExW(u".\\lone.dll", nullptr, kData);
    ASSERT_TRUE(module != nullptr && other != nullptr);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(module) & 1, 1u);
    EXPECT_EQ(std::string(reinterpret_cast<const char *>(other) - 1, 2), "MZ");
    EXPECT_EQ(GetProcAddress(module, "sample_number"), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_MOD_NOT_FOUND);
    EXPECT_FALSE(DisableThreadLibraryCalls(module));
    EXPECT_EQ(file_of(module) + file_of(other), "sample.solone.dll");
    EXPECT_TRUE(FreeLibrary(module) && FreeLibrary(other));
    EXPECT_FALSE(FreeLibrary(module));
    EXPECT_EQ(file_of(module), "126");
    EXPECT_EQ(g_notes, "");
}

TEST(Loader, GivesWhatTheModuleItselfExports) {
    const ModuleFolder dir;
    const HMODULE module = LoadLibraryExW(u".\\sample", nullptr, kOwnFolder);
    ASSERT_NE(module, nullptr) << message();
    const FARPROC number = GetProcAddress(module, "sample_number");
    ASSERT_NE(number, nullptr);
    EXPECT_EQ(reinterpret_cast<int (*)()>(number)(), 49);
    const HMODULE libc = LoadLibraryW(u"libc.so.6");
    EXPECT_NE(GetProcAddress(libc, "getpid"), nullptr);
    EXPECT_EQ(GetProcAddress(nullptr, "note_of_module"),
              reinterpret_cast<FARPROC>(&note_of_module));
    const std::tuple<HMODULE, const char *, DWORD> cases[] = {
        {module, "none", ERROR_PROC_NOT_FOUND},
        {module, "Sample_number", ERROR_PROC_NOT_FOUND},
        {module, "needed_number", ERROR_PROC_NOT_FOUND},
        {module, "getpid", ERROR_PROC_NOT_FOUND},
        {nullptr, "getpid", ERROR_PROC_NOT_FOUND},
        {module, nullptr, ERROR_INVALID_ORDINAL},
        {module, reinterpret_cast<const char *>(std::uintptr_t{0xFFFF}), ERROR_INVALID_ORDINAL},
        {reinterpret_cast<HMODULE>(&g_notes), "none", ERROR_MOD_NOT_FOUND},
    };
    for (const auto &[where, name, code] : cases) {
        EXPECT_EQ(GetProcAddress(where, name), nullptr);
        EXPECT_EQ(GetLastError(), code) << (&name - &std::get<1>(cases[0]));
    }
    EXPECT_TRUE(FreeLibrary(libc) && FreeLibrary(module));
}

// Loads and frees a module and a mapping on four threads. Returns how often that has failed.
int failures_of_threads() {
    std::atomic<int> failures{0};
    std::thread threads[4];
    for (std::thread &thread : threads) {
        thread = std::thread([&failures] {
            for (int i = 0; i < 100; ++i) {
                const HMODULE module = LoadLibraryExW(u".\\sample", nullptr, kOwnFolder);
                const HMODULE file = LoadLibraryExW(u".\\sample", nullptr, kData);
                const bool done = GetProcAddress(module, "sample_number") != nullptr &&
                                  file_of(file) == "sample.so" && FreeLibrary(module) &&
                                  FreeLibrary(file);
                failures += done ? 0 : 1;
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    return failures;
}

// ThreadSanitizer does not see the lock of the host's loader, so it may see this test alone.
TEST(Loader, CountsTheLoadsOfThreads) {
    const ModuleFolder dir;
    const HMODULE module = LoadLibraryExW(u".\\sample", nullptr, kOwnFolder);
    EXPECT_EQ(failures_of_threads(), 0);
    EXPECT_TRUE(FreeLibrary(module));
    EXPECT_FALSE(FreeLibrary(module));
}

TEST(Loader, LoadsAndUnloadsOnThreads) {
    const ModuleFolder dir;
    g_notesAreKept = false;
    EXPECT_EQ(failures_of_threads(), 0);
    g_notesAreKept = true;
}

}  // namespace
