#ifndef OSTREL_PLATFORM_REGISTRY_DATABASE_H
#define OSTREL_PLATFORM_REGISTRY_DATABASE_H

// Internal. A thin owner of a connection to an SQLite database and of its prepared statements.

#include <sqlite3.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <string>
#include <string_view>

#include "ostrel/platform/registry/schema.h"
#include "ostrel/platform/types.h"

namespace ostrel_platform {

// Returns the system's code for a result of SQLite, and the errno of the host's call that failed.
DWORD code_of_sqlite(int result, int host_errno) noexcept;

// What the room throws when the store fails, and turns into a code where a call leaves the room.
struct StoreFailure {
    DWORD code;
    int sqlite = 0;  // SQLite's result, 0 without one
};

// A connection. Ownership: owns its statements. Threads: one at a time, by the caller's lock.
class Database {
public:
    Database() = default;
    Database(Database &&other) noexcept { Swap(other); }
    Database &operator=(Database &&other) noexcept {
        Swap(other);
        return *this;
    }
    ~Database() { Close(); }

    // Opens a file, or ":memory:". `flags` are SQLite's. Throws StoreFailure.
    void Open(const char *name, int flags);
    void Close() noexcept;
    bool IsOpen() const { return m_database != nullptr; }
    sqlite3 *Get() const { return m_database; }

    // Runs SQL text without results. Throws StoreFailure.
    void Run(const char *sql);

    // Returns the prepared statement. Throws StoreFailure.
    sqlite3_stmt *Prepared(Sql sql);

    // Throws the failure of a call of SQLite, before which errno was 0. sqlite3_system_errno does
    // not tell what made a commit fail.
    [[noreturn]] void Fail(int result);

private:
    void Swap(Database &other) noexcept {
        std::swap(m_database, other.m_database);
        std::swap(m_statements, other.m_statements);
    }

    sqlite3 *m_database = nullptr;
    std::array<sqlite3_stmt *, static_cast<std::size_t>(Sql::kCount)> m_statements{};
};

// One use of a prepared statement, which is reset at the end of the scope.
//
//   Query query(database, Sql::kFindKey);
//   query.Bind(parent).Bind(name);
//   while (query.Step()) use(query.Number(0), query.Bytes(1));
class Query {
public:
    Query(Database &database, Sql sql)
        : m_database(database), m_statement(database.Prepared(sql)) {}
    ~Query() { sqlite3_reset(m_statement); }
    Query &operator=(Query &&) = delete;  // nor copied

    // Binds the next parameter. Bytes must live as long as the use.
    Query &Bind(std::int64_t number) {
        return Check(sqlite3_bind_int64(m_statement, ++m_bound, number));
    }
    Query &Bind(std::string_view bytes) {
        return Check(sqlite3_bind_blob64(m_statement, ++m_bound,
                                         bytes.data() == nullptr ? "" : bytes.data(), bytes.size(),
                                         SQLITE_STATIC));
    }
    Query &BindText(const char *text) {
        return Check(sqlite3_bind_text(m_statement, ++m_bound, text, -1, SQLITE_STATIC));
    }
    Query &BindNull() { return Check(sqlite3_bind_null(m_statement, ++m_bound)); }

    // Moves to the next row. Returns false behind the last. Throws StoreFailure.
    bool Step() {
        errno = 0;
        const int result = sqlite3_step(m_statement);
        if (result != SQLITE_ROW && result != SQLITE_DONE) {
            m_database.Fail(result);
        }
        return result == SQLITE_ROW;
    }

    std::int64_t Number(int column) const { return sqlite3_column_int64(m_statement, column); }
    bool IsNull(int column) const {
        return sqlite3_column_type(m_statement, column) == SQLITE_NULL;
    }
    // The bytes live until the next step.
    std::string_view Bytes(int column) const {
        const void *const bytes = sqlite3_column_blob(m_statement, column);
        const int size = sqlite3_column_bytes(m_statement, column);
        return {static_cast<const char *>(bytes), static_cast<std::size_t>(size)};
    }

private:
    Query &Check(int result) {
        if (result != SQLITE_OK) {
            m_database.Fail(result);
        }
        return *this;
    }

    Database &m_database;
    sqlite3_stmt *m_statement;
    int m_bound = 0;
};

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_REGISTRY_DATABASE_H
