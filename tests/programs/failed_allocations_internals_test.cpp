// What runs out of memory: nothing is lost and nothing is half done.

#include <sqlite3.h>

#include <cerrno>
#include <cstdlib>
#include <functional>
#include <memory>
#include <new>

#include "ostrel/config/cm_IdMapping.h"
#include "ostrel/config/cm_ini_reader.h"
#include "ostrel/core/cm_guid.h"
#include "ostrel/core/crypt_random.h"
#include "ostrel/core/exception.h"
#include "ostrel/core/x_string.h"
#include "ostrel/platform/error.h"
#include "ostrel/platform/handle.h"
#include "ostrel/platform/stream.h"
#include "ostrel/platform/sync.h"
#include "ostrel/platform/version.h"
#include "ostrel/regex/regex_matcher.h"
#include "ostrel/regex/regex_program.h"
#include "support/failing_memory.h"
#include "support/modules.h"
#include "support/registry.h"
#include "support/test.h"
#include "support/version_image.h"

namespace {

using namespace OS::regex;

// Lets each allocation of `act` fail in turn, until one run needs no more; an `act` that tells
// whether it is complete must be so in that run alone. Result: how many failed.
template <class Act>
int fail_each_allocation(Act act) {
    int failing = 0;
    for (bool failed = true; failed; ++failing) {
        failing_memory::fail_after(failing);
        try {
            if constexpr (std::is_void_v<decltype(act())>) {
                act();
            } else {
                const bool complete = act();
                EXPECT_EQ(complete, !failing_memory::has_failed()) << failing;
            }
        } catch (const std::bad_alloc &) {
        } catch (const OS::CSystemException &error) {
            EXPECT_EQ(error.GetErrorCode(), ENOMEM);
        }
        failed = failing_memory::has_failed();
        failing_memory::fail_after(-1);
    }
    EXPECT_GT(failing, 1);
    return failing - 1;
}

void expect_ids(const CIDMapping &mapping, int first) {
    for (int id = first; id < first + 3; ++id) {
        ASSERT_NE(mapping.GetID(id), nullptr);
        EXPECT_EQ(mapping.GetID(mapping.GetID(id)), id);
    }
}

TEST(FailedAllocations, OfAReaderCloseItsFile) {
    const TempDir dir;
    const std::string line(400, 'x');
    dir.Write("file", line + '\n' + line + '\n' + line);
    fail_each_allocation([] { CINIReader().Parse(TEXT("file"), TEXT("r")); });
    EXPECT_EQ(_flushall(), 3);
}

TEST(FailedAllocations, OfALoadedModuleLeaveNothingLoaded) {
    const TempDir dir;
    plant_module("needed_library", "lib/sample.so");
    for (const DWORD flags : {LOAD_WITH_ALTERED_SEARCH_PATH, LOAD_LIBRARY_AS_DATAFILE}) {
        fail_each_allocation([flags] {
            const HMODULE module = LoadLibraryExW(TEXT("lib\\sample.dll"), nullptr, flags);
            EXPECT_EQ(module != nullptr ? 8 : GetLastError(), ERROR_NOT_ENOUGH_MEMORY);
            EXPECT_EQ(FreeLibrary(module), module != nullptr);
            return module != nullptr;
        });
        EXPECT_EQ(content_of("/proc/self/maps").find("/lib/sample.so"), std::string::npos);
    }
}

TEST(FailedAllocations, OfAMappingLeaveSourceAndTarget) {
    const TempDir dir;
    const CIDMapping one(dir.Write("1", "1 first_name x\n2 second_name x\n3 c x").c_str());
    const CIDMapping two(dir.Write("2", "5 fifth_name x\n6 sixth_name x\n7 g x").c_str());
    std::unique_ptr<CIDMapping> copy;
    fail_each_allocation([&] {
        expect_ids(one, 1);
        copy = std::make_unique<CIDMapping>(one);
    });
    fail_each_allocation([&] {
        expect_ids(*copy, 1);
        expect_ids(two, 5);
        *copy = two;
    });
    expect_ids(*copy, 5);
    fail_each_allocation([&] {
        expect_ids(*copy, 5);
        EXPECT_EQ(copy->GetID(u"another_name"), -1);
        copy->AddItem(6, u"another_name", u"a longer category");
    });
    EXPECT_EQ(copy->GetID(u"another_name"), 6);
}

TEST(FailedAllocations, OfGuidsAndProvidersGiveTheirCodes) {
    CGUID guid;
    fail_each_allocation([&] { guid = CGUID().GetGUID(); });
    fail_each_allocation([] {
        const OS::CCryptRandom random;
        char byte;
        return random.Get(&byte, 1) != 0;
    });
}

// The code page is asked for once in a program.
const int kFailedToSet = setenv("LC_ALL", "ja_JP.SJIS", 1);

TEST(FailedAllocations, OfFormatComeWithTheAssignmentAlone) {
    OS::x_astring narrow;
    OS::x_wstring wide;
    const std::u16string text(600, u'\u30C6');
    for (const int allowed : {-1, 0}) {  // the first turn opens the converter and grows the strings
        failing_memory::fail_after(allowed);
        narrow.Format("%-1300S|%.1S", text.c_str(), text.c_str());
        wide.Format(TEXT("%700hs"), narrow.c_str());
        EXPECT_EQ(failing_memory::has_failed(), allowed < 0);
        failing_memory::fail_after(-1);
    }
    EXPECT_EQ(wide, text + std::u16string(100, u' ') + u"|\u30C6");
    EXPECT_EQ(kFailedToSet, 0);
}

TEST(FailedAllocations, OfAReplacementLeaveAllOrNothing) {
    const std::string search = std::string(10, 'a') + 'b' + std::string(9, 'a');
    const std::string tail(40'000, 'a');  // resembles what is searched all along
    const OS::x_astring before(search + tail + search), sought(search);
    for (const OS::x_astring replacement :
         {"x", "longer than what it stands for, and on the heap"}) {
        SCOPED_TRACE(replacement);
        OS::x_astring text(before);
        const std::string after = replacement + tail + replacement;
        fail_each_allocation([&] {
            EXPECT_TRUE(text == before);
            text.FindAndReplaceAll(sought, replacement);
            EXPECT_TRUE(text == after);
            text.assign(before);
        });
    }
}

TEST(FailedAllocations, OfACompilationEndItWithItsCode) {
    const std::u16string deep = std::u16string(3000, u'{') + u'a' + std::u16string(3000, u'}');
    const int failures = fail_each_allocation([&] {
        CompiledPattern program;
        const int result = program.Compile(deep.c_str(), 0);
        EXPECT_TRUE(result == RegexOk || result == RegexOutOfMemory) << result;
        return result == RegexOk;
    });
    EXPECT_GE(failures, 6);
}

TEST(FailedAllocations, OfASearchEndItWithoutAMatch) {
    const std::u16string text = std::u16string(5000, u'A') + u"b";
    CompiledPattern program;
    ASSERT_EQ(program.Compile(TEXT("^{a}*b$"), 0), RegexOk);
    const int failures = fail_each_allocation([&] {
        MatchContext context(0);
        const WCHAR *stopped = text.c_str();
        const bool matched = program.Match(text.c_str(), &context, &stopped) != 0;
        EXPECT_EQ(stopped != nullptr, matched);
        for (const WCHAR *at : {context.matchStart, context.matchEnd}) {  // none in the copy
            EXPECT_TRUE(at == nullptr || (at >= text.c_str() && at <= &text.back() + 2));
        }
        return matched;
    });
    EXPECT_GT(failures, 5);
}

TEST(FailedAllocations, OfAVersionEndTheCallWithItsCode) {
    const TempDir dir;
    const std::string texts = version_texts(u"040904E4", {version_text(u"FileVersion", u"5.1")});
    dir.Write("module", pe_version(version_block({version_translations({1}), texts})));
    char block[1000];
    fail_each_allocation([&block] {
        const bool is_read = GetFileVersionInfoW(u"module", 0, sizeof block, block) != FALSE;
        EXPECT_TRUE(is_read || GetLastError() == 8) << GetLastError();
        return is_read;
    });
}

// SQLite's memory, which fails together with that of C++.
sqlite3_mem_methods s_sqlite;

bool may_allocate() {
    void *const block = failing_memory::allocate(1);
    std::free(block);
    return block != nullptr;
}

void let_sqlite_fail() {
    sqlite3_config(SQLITE_CONFIG_GETMALLOC, &s_sqlite);
    static sqlite3_mem_methods methods = s_sqlite;
    methods.xMalloc = [](int size) { return may_allocate() ? s_sqlite.xMalloc(size) : nullptr; };
    methods.xRealloc = [](void *block, int size) {
        return may_allocate() ? s_sqlite.xRealloc(block, size) : nullptr;
    };
    sqlite3_config(SQLITE_CONFIG_MALLOC, &methods);
    sqlite3_config(SQLITE_CONFIG_LOOKASIDE, 0, 0);
}

TEST(FailedAllocations, OfRegistryCallsEndThemWithTheirCode) {
    let_sqlite_fail();
    const RegistryFolder folder;
    const HANDLE event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    const auto watch = [event] {
        return RegNotifyChangeKeyValue(HKEY_CURRENT_USER, TRUE, REG_NOTIFY_CHANGE_LAST_SET, event,
                                       TRUE);
    };
    const struct {
        const char *name;
        std::function<LSTATUS()> call;
    } kRows[] = {
        {"the first call of the process", watch},
        {"a first write", [] { return set_number(HKEY_CURRENT_USER, u"value", 1); }},
        {"an arming with a change to look at", watch},
        {"a new key",
         [] {
             HKEY key = nullptr;
             const LSTATUS code = RegCreateKeyExW(HKEY_CURRENT_USER, u"Software\\a\\b", 0, nullptr,
                                                  0, KEY_READ, nullptr, &key, nullptr);
             RegCloseKey(key);
             return code;
         }},
        {"a deleted tree", [] { return RegDeleteTreeW(HKEY_CURRENT_USER, u"Software\\a"); }},
    };
    for (const auto &row : kRows) {
        for (const auto rest : {failing_memory::Rest::kNone, failing_memory::Rest::kAll}) {
            if (row.name == std::string_view("a deleted tree")) {
                created(HKEY_CURRENT_USER, u"Software\\a\\b");
            }
            bool has_failed = true;
            for (int left = 0; has_failed; ++left) {
                failing_memory::fail_after(left, rest);
                const LSTATUS code = row.call();
                has_failed = failing_memory::has_failed();
                failing_memory::fail_after(-1);
                EXPECT_TRUE(code == 0 || code == 8 || (left > 0 && code == 2))
                    << row.name << ' ' << left << ' ' << code;
                ASSERT_EQ(set_number(HKEY_CURRENT_USER, u"other", 1), 0) << row.name << ' ' << left;
            }
        }
    }
    CloseHandle(event);
    // A connection that has just been opened, as in the child of a fork, cannot even roll back.
    created(HKEY_CURRENT_USER, u"Software\\a\\b");
    for (int left = 0; left < 200; left += 25) {
        EXPECT_TRUE(holds_in_child([left] {
            EXPECT_EQ(set_number(HKEY_CURRENT_USER, u"other", 1), 0);
            failing_memory::fail_after(left, failing_memory::Rest::kAll);
            RegDeleteTreeW(HKEY_CURRENT_USER, u"Software\\a");
            failing_memory::fail_after(-1);
            EXPECT_EQ(set_number(HKEY_CURRENT_USER, u"other", 1), 0) << left;
        }));
    }
}

}  // namespace
