// The registry beside SQLite alone, with the same tables and settings.
//
//   Read        a value of an open key, again and again
//   OpenRead    opens a key of three levels, reads a value and closes the key
//   Missing     opens a key that does not exist
//   Write       sets a value of 4 bytes in a commit of its own
//   ReadAny     a random value of all that the store has
//
// The argument is the number of values in the store: the cost of each has to stay flat.

#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include <cstdlib>
#include <filesystem>
#include <random>
#include <string>

#include "ostrel/platform/registry.h"

namespace {

constexpr char16_t kPath[] = u"Software\\Bench\\Settings";
constexpr char16_t kMissing[] = u"Software\\Bench\\Missing";

class Folder {
public:
    Folder() {
        std::string name = std::filesystem::temp_directory_path() / "ostrel-bench-XXXXXX";
        path = mkdtemp(name.data());
        setenv("OSTREL_REGISTRY", path.c_str(), 1);
    }
    ~Folder() { std::filesystem::remove_all(path); }
    std::string path;
};

const Folder &folder() {
    static const Folder folder;
    return folder;
}

std::u16string name_of(unsigned number) {
    const std::string digits = std::to_string(number);
    return u"value " + std::u16string(digits.begin(), digits.end());
}

class Registry {
public:
    explicit Registry(unsigned count) {
        folder();
        RegCreateKeyExW(HKEY_CURRENT_USER, kPath, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &m_key,
                        nullptr);
        for (static unsigned s_count = 0; s_count < count; ++s_count) {
            Write(name_of(s_count), s_count);
        }
    }
    ~Registry() { RegCloseKey(m_key); }
    void Write(const std::u16string &name, std::uint32_t value) {
        RegSetValueExW(m_key, name.c_str(), 0, REG_DWORD, reinterpret_cast<const BYTE *>(&value),
                       sizeof value);
    }
    std::uint32_t Read(const std::u16string &name) { return Read(m_key, name); }
    std::uint32_t OpenRead(const std::u16string &name) {
        HKEY key = nullptr;
        RegOpenKeyExW(HKEY_CURRENT_USER, kPath, 0, KEY_READ, &key);
        const std::uint32_t value = Read(key, name);
        RegCloseKey(key);
        return value;
    }
    bool Misses() {
        HKEY key = nullptr;
        return RegOpenKeyExW(HKEY_CURRENT_USER, kMissing, 0, KEY_READ, &key) != 0;
    }

private:
    static std::uint32_t Read(HKEY key, const std::u16string &name) {
        std::uint32_t value = 0;
        DWORD size = sizeof value;
        RegQueryValueExW(key, name.c_str(), nullptr, nullptr, reinterpret_cast<BYTE *>(&value),
                         &size);
        return value;
    }

    HKEY m_key = nullptr;
};

// A table of values with the path in the row, in the same mode of SQLite.
class Sqlite {
public:
    explicit Sqlite(unsigned count) {
        sqlite3_open((folder().path + "/bare.db").c_str(), &m_database);
        Run("PRAGMA journal_mode = WAL; PRAGMA synchronous = NORMAL;"
            "CREATE TABLE IF NOT EXISTS vals (key BLOB, name BLOB, data BLOB,"
            " PRIMARY KEY (key, name)) WITHOUT ROWID");
        Prepare("SELECT data FROM vals WHERE key = ? AND name = ?", &m_read);
        Prepare(
            "INSERT INTO vals VALUES (?, ?, ?)"
            " ON CONFLICT DO UPDATE SET data = excluded.data",
            &m_write);
        Run("BEGIN");
        for (static unsigned s_count = 0; s_count < count; ++s_count) {
            Write(name_of(s_count), s_count);
        }
        Run("COMMIT");
    }
    ~Sqlite() {
        sqlite3_finalize(m_read);
        sqlite3_finalize(m_write);
        sqlite3_close(m_database);
    }
    void Write(const std::u16string &name, std::uint32_t value) {
        Bind(m_write, kPath, name);
        sqlite3_bind_blob(m_write, 3, &value, sizeof value, SQLITE_STATIC);
        sqlite3_step(m_write);
        sqlite3_reset(m_write);
    }
    std::uint32_t Read(const std::u16string &name) { return Read(kPath, name); }
    std::uint32_t OpenRead(const std::u16string &name) { return Read(name); }
    bool Misses() { return Read(kMissing, u"") == 0; }

private:
    void Run(const char *sql) { sqlite3_exec(m_database, sql, nullptr, nullptr, nullptr); }
    void Prepare(const char *sql, sqlite3_stmt **statement) {
        sqlite3_prepare_v2(m_database, sql, -1, statement, nullptr);
    }
    static void Bind(sqlite3_stmt *statement, std::u16string_view key, std::u16string_view name) {
        sqlite3_bind_blob(statement, 1, key.data(), static_cast<int>(2 * key.size()),
                          SQLITE_STATIC);
        sqlite3_bind_blob(statement, 2, name.data(), static_cast<int>(2 * name.size()),
                          SQLITE_STATIC);
    }
    std::uint32_t Read(std::u16string_view key, const std::u16string &name) {
        Bind(m_read, key, name);
        std::uint32_t value = 0;
        if (sqlite3_step(m_read) == SQLITE_ROW) {
            value = *static_cast<const std::uint32_t *>(sqlite3_column_blob(m_read, 0));
        }
        sqlite3_reset(m_read);
        return value;
    }

    sqlite3 *m_database = nullptr;
    sqlite3_stmt *m_read = nullptr, *m_write = nullptr;
};

template <class Store>
void read(benchmark::State &state) {
    Store store(static_cast<unsigned>(state.range(0)));
    const std::u16string name = name_of(7);
    for (auto _ : state) {
        benchmark::DoNotOptimize(store.Read(name));
    }
}

template <class Store>
void open_read(benchmark::State &state) {
    Store store(static_cast<unsigned>(state.range(0)));
    const std::u16string name = name_of(7);
    for (auto _ : state) {
        benchmark::DoNotOptimize(store.OpenRead(name));
    }
}

template <class Store>
void missing(benchmark::State &state) {
    Store store(static_cast<unsigned>(state.range(0)));
    for (auto _ : state) {
        benchmark::DoNotOptimize(store.Misses());
    }
}

template <class Store>
void write(benchmark::State &state) {
    Store store(static_cast<unsigned>(state.range(0)));
    const std::u16string name = name_of(7);
    std::uint32_t value = 0;
    for (auto _ : state) {
        store.Write(name, ++value);
    }
}

template <class Store>
void read_any(benchmark::State &state) {
    const auto count = static_cast<unsigned>(state.range(0));
    Store store(count);
    std::minstd_rand random(1);
    for (auto _ : state) {
        benchmark::DoNotOptimize(store.Read(name_of(static_cast<unsigned>(random()) % count)));
    }
}

// All with few values come before any with many: a store keeps what it has.
#define OSTREL_STORES(subject, count)                                   \
    BENCHMARK(subject<Registry>)->Arg(count)->Name(#subject "/Ostrel"); \
    BENCHMARK(subject<Sqlite>)->Arg(count)->Name(#subject "/Sqlite")

#define OSTREL_SUBJECTS(count)       \
    OSTREL_STORES(read, count);      \
    OSTREL_STORES(open_read, count); \
    OSTREL_STORES(missing, count);   \
    OSTREL_STORES(write, count);     \
    OSTREL_STORES(read_any, count)

OSTREL_SUBJECTS(1000);
OSTREL_SUBJECTS(1000000);

}  // namespace
