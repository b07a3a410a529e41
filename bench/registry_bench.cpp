// The registry beside SQLite alone, LMDB, QSettings and GKeyFile.
//
//   Load        brings a store to its number of values: the registry with a commit for each, as
//               programs write, SQLite and LMDB in one transaction
//   Read        a value of an open key, again and again
//   OpenRead    opens a key of three levels, reads a value and closes the key
//   Missing     opens a key that does not exist
//   Write       sets a value of 4 bytes in a commit of its own
//   ReadAny     a random value of all that the store has
//   Told        from before a write to its value in another process, which was notified
//
// The argument is the number of values in the store: the cost of each has to stay flat.
//
// A write of the registry, of SQLite (WAL, NORMAL) and of LMDB survives a crash of the
// process and leaves no damage after a loss of power. LMDB has no such mode beside the one that
// forces each commit to the disk. GKeyFile and QSettings hold the file in the memory of the
// process: a write of theirs rewrites the file, and other processes see it when they read the file
// again.

#include <benchmark/benchmark.h>
#include <glib.h>
#include <lmdb.h>
#include <sqlite3.h>
#include <sys/mman.h>
#include <unistd.h>

#include <QSettings>
#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <random>
#include <string>
#include <vector>

#undef FALSE  // macros of GLib
#undef TRUE
#include "ostrel/platform/handle.h"
#include "ostrel/platform/registry.h"
#include "ostrel/platform/sync.h"

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

std::string narrow(std::u16string_view text) {
    return {text.begin(), text.end()};
}

// One database of keys "path\\name". Each commit is forced to the disk.
class Lmdb {
public:
    explicit Lmdb(unsigned count) {
        mdb_env_create(&m_environment);
        mdb_env_set_mapsize(m_environment, std::size_t{1} << 30);
        mdb_env_open(m_environment, (folder().path + "/lmdb").c_str(), MDB_NOSUBDIR, 0600);
        mdb_txn_begin(m_environment, nullptr, 0, &m_write);
        mdb_dbi_open(m_write, nullptr, 0, &m_table);
        for (static unsigned s_count = 0; s_count < count; ++s_count) {
            Put(name_of(s_count), s_count);
        }
        mdb_txn_commit(m_write);
        mdb_txn_begin(m_environment, nullptr, MDB_RDONLY, &m_read);
        mdb_txn_reset(m_read);
    }
    ~Lmdb() {
        mdb_txn_abort(m_read);
        mdb_env_close(m_environment);
    }
    void Write(const std::u16string &name, std::uint32_t value) {
        mdb_txn_begin(m_environment, nullptr, 0, &m_write);
        Put(name, value);
        mdb_txn_commit(m_write);
    }
    std::uint32_t Read(const std::u16string &name) { return Read(kPath, name); }
    std::uint32_t OpenRead(const std::u16string &name) { return Read(name); }
    bool Misses() { return Read(kMissing, u"") == 0; }

private:
    static MDB_val Key(const std::u16string &text) {
        return {2 * text.size(), const_cast<char16_t *>(text.data())};
    }
    void Put(const std::u16string &name, std::uint32_t value) {
        const std::u16string text = kPath + name;
        MDB_val key = Key(text), data{sizeof value, &value};
        mdb_put(m_write, m_table, &key, &data, 0);
    }
    std::uint32_t Read(std::u16string_view path, const std::u16string &name) {
        const std::u16string text = std::u16string(path) + name;
        MDB_val key = Key(text), data;
        mdb_txn_renew(m_read);
        const bool is_found = mdb_get(m_read, m_table, &key, &data) == 0;
        const std::uint32_t value = is_found ? *static_cast<std::uint32_t *>(data.mv_data) : 0;
        mdb_txn_reset(m_read);
        return value;
    }

    MDB_env *m_environment = nullptr;
    MDB_txn *m_write = nullptr, *m_read = nullptr;
    MDB_dbi m_table = 0;
};

// An INI file.
class QtSettings {
public:
    explicit QtSettings(unsigned count)
        : m_settings(QString::fromStdString(folder().path + "/qt.ini"), QSettings::IniFormat) {
        m_settings.beginGroup(Text(kPath));
        for (static unsigned s_count = 0; s_count < count; ++s_count) {
            m_settings.setValue(Text(name_of(s_count)), s_count);
        }
        m_settings.sync();
    }
    void Write(const std::u16string &name, std::uint32_t value) {
        m_settings.setValue(Text(name), value);
        m_settings.sync();
    }
    std::uint32_t Read(const std::u16string &name) { return m_settings.value(Text(name)).toUInt(); }
    std::uint32_t OpenRead(const std::u16string &name) {
        QSettings settings(m_settings.fileName(), QSettings::IniFormat);
        settings.beginGroup(Text(kPath));
        return settings.value(Text(name)).toUInt();
    }
    bool Misses() { return !m_settings.contains(Text(kMissing)); }

private:
    // QSettings separates keys with '/' on this platform.
    static QString Text(std::u16string_view text) {
        return QString::fromUtf16(text.data(), static_cast<int>(text.size())).replace('\\', '/');
    }

    QSettings m_settings;
};

class GlibKeyFile {
public:
    explicit GlibKeyFile(unsigned count) {
        g_key_file_load_from_file(m_file, Path().c_str(), G_KEY_FILE_NONE, nullptr);
        for (static unsigned s_count = 0; s_count < count; ++s_count) {
            Put(name_of(s_count), s_count);
        }
        g_key_file_save_to_file(m_file, Path().c_str(), nullptr);
    }
    ~GlibKeyFile() { g_key_file_free(m_file); }
    void Write(const std::u16string &name, std::uint32_t value) {
        Put(name, value);
        g_key_file_save_to_file(m_file, Path().c_str(), nullptr);
    }
    std::uint32_t Read(const std::u16string &name) {
        return static_cast<std::uint32_t>(
            g_key_file_get_uint64(m_file, m_group.c_str(), narrow(name).c_str(), nullptr));
    }
    std::uint32_t OpenRead(const std::u16string &name) { return Read(name); }
    bool Misses() { return g_key_file_has_group(m_file, narrow(kMissing).c_str()) == 0; }

private:
    static std::string Path() { return folder().path + "/glib.ini"; }
    void Put(const std::u16string &name, std::uint32_t value) {
        g_key_file_set_uint64(m_file, m_group.c_str(), narrow(name).c_str(), value);
    }

    GKeyFile *const m_file = g_key_file_new();
    const std::string m_group = narrow(kPath);
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

// Loading happens once, in the constructor; a store keeps what it has.
template <class Store>
void load(benchmark::State &state) {
    for (auto _ : state) {
        Store store(static_cast<unsigned>(state.range(0)));
    }
}

// What a process that is told of changes shares with the one that writes.
struct Told {
    std::atomic<std::uint32_t> value, is_ready;
};

[[noreturn]] void answer(Told *told) {
    HKEY key = nullptr;
    RegOpenKeyExW(HKEY_CURRENT_USER, kPath, 0, KEY_READ, &key);
    const HANDLE event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    for (;;) {
        RegNotifyChangeKeyValue(key, FALSE, REG_NOTIFY_CHANGE_LAST_SET, event, TRUE);
        std::uint32_t value = 0;
        DWORD size = sizeof value;
        RegQueryValueExW(key, u"told", nullptr, nullptr, reinterpret_cast<BYTE *>(&value), &size);
        told->value = value;
        told->is_ready = 1;
        WaitForSingleObject(event, INFINITE);
    }
}

// The write is in the time: the other process may be told before the call returns.
void two_processes(benchmark::State &state) {
    Registry store(1000);
    auto *const told = static_cast<Told *>(
        mmap(nullptr, sizeof(Told), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    const pid_t child = fork();
    if (child == 0) {
        answer(told);
    }
    while (told->is_ready == 0) {
        usleep(100);
    }
    std::vector<double> times;
    std::uint32_t value = 0;
    for (auto _ : state) {
        usleep(200);  // lets the other process sleep
        const auto begin = std::chrono::steady_clock::now();
        store.Write(u"told", ++value);
        while (told->value != value) {
            sched_yield();
        }
        const std::chrono::duration<double> time = std::chrono::steady_clock::now() - begin;
        times.push_back(time.count());
        state.SetIterationTime(time.count());
    }
    kill(child, SIGKILL);
    std::sort(times.begin(), times.end());
    state.counters["median_us"] = 1e6 * times[times.size() / 2];
    state.counters["p99_us"] = 1e6 * times[times.size() * 99 / 100];
}
BENCHMARK(two_processes)->UseManualTime()->Iterations(5000)->Name("told/TwoProcesses");

#define OSTREL_STORE(subject, count, store) \
    BENCHMARK(subject<store>)->Arg(count)->Name(#subject "/" #store)
#define OSTREL_DATABASES(subject, count)    \
    OSTREL_STORE(subject, count, Registry); \
    OSTREL_STORE(subject, count, Sqlite);   \
    OSTREL_STORE(subject, count, Lmdb)
#define OSTREL_FILES(subject, count)          \
    OSTREL_STORE(subject, count, QtSettings); \
    OSTREL_STORE(subject, count, GlibKeyFile)
#define OSTREL_LOAD(count)                                                               \
    BENCHMARK(load<Registry>)->Arg(count)->Iterations(1)->Unit(benchmark::kMillisecond); \
    BENCHMARK(load<Sqlite>)->Arg(count)->Iterations(1)->Unit(benchmark::kMillisecond);   \
    BENCHMARK(load<Lmdb>)->Arg(count)->Iterations(1)->Unit(benchmark::kMillisecond)

// All with few values come before any with many: a store keeps what it has.
#define OSTREL_SUBJECTS(count)          \
    OSTREL_LOAD(count);                 \
    OSTREL_DATABASES(read, count);      \
    OSTREL_FILES(read, count);          \
    OSTREL_DATABASES(open_read, count); \
    OSTREL_FILES(open_read, count);     \
    OSTREL_DATABASES(missing, count);   \
    OSTREL_FILES(missing, count);       \
    OSTREL_DATABASES(write, count);     \
    OSTREL_FILES(write, count);         \
    OSTREL_DATABASES(read_any, count);  \
    OSTREL_FILES(read_any, count)

OSTREL_SUBJECTS(1000);
OSTREL_SUBJECTS(100000);
OSTREL_SUBJECTS(1000000);

}  // namespace
