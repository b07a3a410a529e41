#include "ostrel/platform/registry/database.h"

#include <cerrno>

#include "ostrel/platform/base/errno_code.h"
#include "ostrel/platform/error.h"

namespace ostrel_platform {

DWORD code_of_sqlite(int result, int host_errno) noexcept {
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
            if (result == SQLITE_IOERR_SHMLOCK) {  // see shm_locks.h
                return ERROR_BUSY;
            }
            const DWORD code = code_of_errno(host_errno);
            return code != ERROR_GEN_FAILURE ? code : ERROR_REGISTRY_IO_FAILED;
        }
    }
}

void Database::Open(const char *name, int flags) {
    const int result = sqlite3_open_v2(name, &m_database, flags, nullptr);
    if (result != SQLITE_OK) {
        const int host_errno = m_database != nullptr ? sqlite3_system_errno(m_database) : 0;
        const StoreFailure failure{code_of_sqlite(result, host_errno), result};
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
    errno = 0;
    const int result = sqlite3_exec(m_database, sql, nullptr, nullptr, nullptr);
    if (result != SQLITE_OK) {
        Fail(result);
    }
}

sqlite3_stmt *Database::Prepared(Sql sql) {
    const auto index = static_cast<std::size_t>(sql);
    if (m_statements[index] == nullptr) {
        const std::string_view text = text_of(sql);
        errno = 0;
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
    const int host_errno = errno != 0 ? errno : sqlite3_system_errno(m_database);
    throw StoreFailure{code_of_sqlite(result, host_errno), result};
}

}  // namespace ostrel_platform
