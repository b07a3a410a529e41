#include "ostrel/platform/registry/store_files.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>
#include <span>

#include "ostrel/platform/base/host_descriptor.h"
#include "ostrel/platform/base/host_rename.h"
#include "ostrel/platform/error.h"
#include "ostrel/platform/registry/key_names.h"
#include "ostrel/platform/registry/shm_locks.h"

namespace ostrel_platform {
namespace {

constexpr int kBusyWait = 1000;  // milliseconds

std::int64_t pragma_value(Database *database, const char *pragma) {
    sqlite3_stmt *statement = nullptr;
    errno = 0;
    int result = sqlite3_prepare_v2(database->Get(), pragma, -1, &statement, nullptr);
    result = result == SQLITE_OK ? sqlite3_step(statement) : result;
    const std::int64_t value = result == SQLITE_ROW ? sqlite3_column_int64(statement, 0) : 0;
    sqlite3_finalize(statement);
    if (result != SQLITE_ROW) {
        database->Fail(result);
    }
    return value;
}

std::int64_t format_of(Database *database) {
    return pragma_value(database, "PRAGMA user_version");
}

void check_format(Database *database) {
    const std::int64_t format = format_of(database);
    if (pragma_value(database, "PRAGMA application_id") != kApplicationId || format < 1 ||
        format > kFormat) {
        throw StoreFailure{ERROR_BADDB};
    }
}

void prepare_connection(Database *database) {
    sqlite3 *const connection = database->Get();
    watch_shm_locks(connection);
    sqlite3_busy_timeout(connection, kBusyWait);
    int on = 1;
    sqlite3_file_control(connection, "main", SQLITE_FCNTL_PERSIST_WAL, &on);
    // Closing would take an exclusive lock, which a reader elsewhere would have to wait for.
    sqlite3_db_config(connection, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
    // A damaged or hostile file must not reach more of SQLite than reading it needs.
    sqlite3_db_config(connection, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
    sqlite3_db_config(connection, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
    sqlite3_wal_autocheckpoint(connection, 0);
    database->Run("PRAGMA cell_size_check = ON; PRAGMA synchronous = NORMAL");
}

void add_first_keys(Database *database, StoreKind kind) {
    const bool is_machine = kind == StoreKind::kMachine;
    const std::span<const FirstKey> keys =
        is_machine ? std::span<const FirstKey>(kMachineKeys) : std::span<const FirstKey>(kUserKeys);
    const std::string user = std::to_string(geteuid());
    std::int64_t id = 0;
    for (const FirstKey &key : keys) {
        std::u16string name(key.name);
        if (name.empty() && key.parent != 0) {
            name.assign(user.begin(), user.end());
        }
        const std::string stored = bytes_of_name(name);
        const std::string upper = sort_key_of(upper_of(name));
        Query(*database, Sql::kAddFirstKey)
            .Bind(++id)
            .Bind(key.parent)
            .Bind(stored)
            .Bind(upper)
            .Bind(registry_time())
            .Step();
    }
    // No handle of a store that was removed means a key of the one in its place.
    skip_key_ids(database, std::uint64_t{1} << 45 | random_number() >> 19);
}

void fill(Database *database, StoreKind kind) {
    database->Run("BEGIN");
    upgrade_database(database);
    add_first_keys(database, kind);
    database->Run("COMMIT");
}

// Whether there is no log, or nothing in it.
bool is_log_empty(const StorePlace &place) {
    struct stat facts;
    return stat(place.log.c_str(), &facts) != 0 || facts.st_size == 0;
}

}  // namespace

std::int64_t registry_time() noexcept {
    timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    constexpr std::int64_t kSecondsTo1970 = 11'644'473'600;
    return (now.tv_sec + kSecondsTo1970) * 10'000'000 + now.tv_nsec / 100;
}

bool is_older_format(Database *database) {
    return format_of(database) < kFormat;
}

void upgrade_database(Database *database) {
    for (std::int64_t format = format_of(database); format < kFormat; ++format) {
        database->Run(kUpgrades[format]);
    }
    database->Run(("PRAGMA user_version = " + std::to_string(kFormat)).c_str());
}

void skip_key_ids(Database *database, std::uint64_t count) {
    database->Run(
        ("UPDATE sqlite_sequence SET seq = seq + " + std::to_string(count) + " WHERE name = 'keys'")
            .c_str());
}

int create_database(const StorePlace &place, StoreKind kind) {
    if (const int error = create_folders(place.folder, place.folder_mode)) {
        return error;
    }
    const std::string name = place.database + ".new-" + std::to_string(random_number());
    HostDescriptor file =
        open_host(name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW, place.file_mode);
    if (!file) {
        return errno;
    }
    int error = error_of(fchmod(file.Get(), place.file_mode));
    file.Close();
    try {
        Database database;
        database.Open(name.c_str(), SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX);
        database.Run(("PRAGMA page_size = " + std::to_string(kPageSize)).c_str());
        database.Run(
            "PRAGMA journal_mode = MEMORY; PRAGMA synchronous = FULL;"
            "PRAGMA auto_vacuum = NONE");
        database.Run(("PRAGMA application_id = " + std::to_string(kApplicationId)).c_str());
        fill(&database, kind);
        database.Run("PRAGMA journal_mode = WAL");
    } catch (...) {
        unlink(name.c_str());
        throw;
    }
    for (const char *end : {"-wal", "-shm"}) {
        unlink((name + end).c_str());
    }
    error = error != 0 ? error : rename_host(name.c_str(), place.database.c_str(), false);
    if (error != 0) {
        unlink(name.c_str());
        return error == EEXIST ? 0 : error;
    }
    return sync_folder_of(place.database);
}

void open_database(const StorePlace &place, Database *database, bool *is_alone) {
    *is_alone = false;
    try {
        database->Open(place.database.c_str(), SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX);
        prepare_connection(database);
        check_format(database);
    } catch (const StoreFailure &failure) {
        const int result = failure.sqlite & 0xFF;
        database->Close();
        if ((result != SQLITE_CANTOPEN && result != SQLITE_READONLY) || !is_log_empty(place) ||
            access(place.database.c_str(), R_OK) != 0) {
            throw;
        }
        *is_alone = true;
    }
    if (*is_alone) {
        std::string uri = "file:";
        for (const char c : place.database) {
            uri += c == '%' ? "%25" : c == '?' ? "%3f" : c == '#' ? "%23" : std::string(1, c);
        }
        database->Open((uri + "?immutable=1").c_str(),
                       SQLITE_OPEN_READONLY | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_URI);
        prepare_connection(database);
        check_format(database);
    }
}

void open_in_memory(StoreKind kind, Database *database) {
    database->Open(":memory:", SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX);
    fill(database, kind);
}

}  // namespace ostrel_platform
