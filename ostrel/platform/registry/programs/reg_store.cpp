#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "ostrel/platform/registry/programs/reg_commands.h"
#include "ostrel/platform/registry/programs/reg_keys.h"
#include "ostrel/platform/registry/programs/reg_options.h"
#include "ostrel/platform/registry/programs/reg_text.h"
#include "ostrel/platform/registry/store.h"
#include "ostrel/platform/text/charset.h"

namespace ostrel_platform {
namespace {

constexpr struct {
    const char *name;
    StoreKind kind;
} kStores[] = {{"machine", StoreKind::kMachine}, {"user", StoreKind::kUser}};

std::u16string path_text(const std::string &path) {
    return to_wide(path, kCodePageUtf8);
}

// Adds what SQLite finds wrong with a database. Adds nothing for a sound one.
void add_faults(Database &database, std::vector<std::string> *faults) {
    sqlite3_stmt *statement = nullptr;
    int result =
        sqlite3_prepare_v2(database.Get(), "PRAGMA integrity_check", -1, &statement, nullptr);
    while (result == SQLITE_OK || result == SQLITE_ROW) {
        result = sqlite3_step(statement);
        if (result == SQLITE_ROW) {
            const auto *const text = sqlite3_column_text(statement, 0);
            const std::string line(text != nullptr ? reinterpret_cast<const char *>(text) : "");
            if (line != "ok") {
                faults->push_back(line);
            }
        }
    }
    sqlite3_finalize(statement);
    if (result != SQLITE_DONE) {
        faults->emplace_back(sqlite3_errstr(result));
    }
}

// Returns how many bytes a database and its log have.
std::int64_t size_of(const StorePlace &place) {
    std::int64_t size = 0;
    for (const std::string &path : {place.database, place.log}) {
        struct stat facts;
        size += stat(path.c_str(), &facts) == 0 ? facts.st_size : 0;
    }
    return size;
}

// Returns what is wrong with a store.
std::vector<std::string> faults_of(StoreKind kind) {
    std::vector<std::string> faults;
    try {
        Store::Of(kind).Read([&faults](Database &database) {
            faults.clear();
            add_faults(database, &faults);
        });
    } catch (const StoreFailure &failure) {
        faults.push_back(failure.sqlite != 0 ? sqlite3_errstr(failure.sqlite)
                                             : message_of_code(failure.code));
    }
    return faults;
}

}  // namespace

int run_where(const RegArguments &arguments) {
    const RegOptions options(arguments, {{"json"}}, 0);
    std::string text;
    for (const auto &store : kStores) {
        const std::u16string path = path_text(place_of(store.kind).database);
        if (options.Has("json")) {
            text += text.empty() ? "{" : ", ";
            text += std::string("\"") + store.name + "\": " + json_string(path);
        } else {
            text += std::string(store.name) + "    " + printed(path) + '\n';
        }
    }
    print(options.Has("json") ? text + "}\n" : text);
    return 0;
}

int run_compact(const RegArguments &arguments) {
    const RegOptions options(arguments, {}, 0);
    bool is_done = false;
    bool is_skipped = false;
    for (const auto &store : kStores) {
        const StorePlace place = place_of(store.kind);
        const std::string line =
            std::string(store.name) + "    " + printed(path_text(place.database)) + "    ";
        if (access(place.database.c_str(), F_OK) != 0 && errno == ENOENT) {
            print(line + "none yet\n");
            continue;
        }
        const std::int64_t before = size_of(place);
        try {
            Store::Of(store.kind).Compact();
        } catch (const StoreFailure &failure) {
            if (failure.code != ERROR_ACCESS_DENIED && failure.code != ERROR_WRITE_PROTECT) {
                throw RegFailure{place.database + ": " + message_of_code(failure.code),
                                 failure.code};
            }
            is_skipped = true;
            print(line + "skipped: " + message_of_code(failure.code) + '\n');
            continue;
        }
        print(line + std::to_string(before) + " bytes before, " + std::to_string(size_of(place)) +
              " bytes now\n");
        is_done = true;
    }
    return is_done || !is_skipped ? 0 : 1;
}

int run_check(const RegArguments &arguments) {
    const RegOptions options(arguments, {}, 0);
    bool is_sound = true;
    for (const auto &store : kStores) {
        const std::string path = place_of(store.kind).database;
        struct stat facts;
        const bool exists = stat(path.c_str(), &facts) == 0;
        std::string text = std::string(store.name) + "    " + printed(path_text(path)) + "    ";
        if (!exists && errno == ENOENT) {
            print(text + "none yet\n");
            continue;
        }
        const std::vector<std::string> faults =
            exists ? faults_of(store.kind) : std::vector<std::string>{std::strerror(errno)};
        text += faults.empty() ? "sound\n" : "damaged\n";
        for (const std::string &fault : faults) {
            text += "    " + fault + '\n';
        }
        print(text);
        is_sound = is_sound && faults.empty();
    }
    return is_sound ? 0 : 1;
}

}  // namespace ostrel_platform
