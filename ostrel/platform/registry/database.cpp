#include "ostrel/platform/registry/database.h"

#include <cerrno>

#include "ostrel/platform/base/errno_code.h"
#include "ostrel/platform/error.h"

namespace ostrel_platform {

DWORD code_of_sqlite(int result, sqlite3 *database) noexcept {
    // SQLite keeps the errno of some failures only.
    const int kept = database != nullptr ? sqlite3_system_errno(database) : 0;
    const int host_errno = kept != 0 ? kept : errno;
    switch (result & 0xFF) {
        case SQLITE_OK:
        case SQLITE_ROW:
        case SQLITE_DONE:
            return ERROR_SUCCESS;
        case SQLITE_BUSY:
        case SQLITE_LOCKED:
        case SQLITE_PROTOCOL:
            return ERROR_BUSY;
        case SQLITE_CORRUPT:
        case SQLITE_NOTADB:
        case SQLITE_FORMAT:
        case SQLITE_ERROR:  // a table or column that a registry has is missing
        case SQLITE_SCHEMA:
            return ERROR_BADDB;
        case SQLITE_FULL:
            return ERROR_DISK_FULL;
        case SQLITE_NOMEM:
            return ERROR_NOT_ENOUGH_MEMORY;
        case SQLITE_TOOBIG:
            return ERROR_NO_SYSTEM_RESOURCES;
        case SQLITE_READONLY:
        case SQLITE_PERM:
        case SQLITE_AUTH:
            return ERROR_ACCESS_DENIED;
        default: {
            const DWORD code = code_of_errno(host_errno);
            return code != ERROR_GEN_FAILURE ? code : ERROR_REGISTRY_IO_FAILED;
        }
    }
}

void Database::Open(const char *name, int flags) {
    const int result = sqlite3_open_v2(name, &m_database, flags, nullptr);
    if (result != SQLITE_OK) {
        const StoreFailure failure{code_of_sqlite(result, m_database), result};
        Close();
        throw failure;
    }
    sqlite3_extended_result_codes(m_database, 1);
}

void Database::Close() noexcept {
    for (sqlite3_stmt *&statement : m_statements) {
        sqlite3_finalize(statement);
        statement = nullptr;
    }
    sqlite3_close_v2(m_database);
    m_database = nullptr;
}

void Database::Run(const char *sql) {
    const int result = sqlite3_exec(m_database, sql, nullptr, nullptr, nullptr);
    if (result != SQLITE_OK) {
        Fail(result);
    }
}

sqlite3_stmt *Database::Prepared(Sql sql) {
    const auto index = static_cast<std::size_t>(sql);
    if (m_statements[index] == nullptr) {
        const std::string_view text = text_of(sql);
        const int result =
            sqlite3_prepare_v3(m_database, text.data(), static_cast<int>(text.size()),
                               SQLITE_PREPARE_PERSISTENT, &m_statements[index], nullptr);
        if (result != SQLITE_OK) {
            Fail(result);
        }
    }
    return m_statements[index];
}

void Database::Fail(int result) {
    throw StoreFailure{code_of_sqlite(result, m_database), result};
}

}  // namespace ostrel_platform
