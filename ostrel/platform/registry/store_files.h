#ifndef OSTREL_PLATFORM_REGISTRY_STORE_FILES_H
#define OSTREL_PLATFORM_REGISTRY_STORE_FILES_H

// Internal. Makes and opens the database of a store.

#include "ostrel/platform/registry/database.h"
#include "ostrel/platform/registry/store_places.h"

namespace ostrel_platform {

// Creates the file with the first keys, unless it exists. The file comes into place whole. Returns
// 0 or errno. Throws StoreFailure.
int create_database(const StorePlace &place, StoreKind kind);

// Opens the file, and makes the connection ready. When the file system is read-only and the log is
// gone, opens the file as one that nobody changes and stores true in `is_alone`. Throws
// StoreFailure: ERROR_BADDB when the file is no registry or has a newer format.
void open_database(const StorePlace &place, Database *database, bool *is_alone);

// Opens a new registry in memory.
void open_in_memory(StoreKind kind, Database *database);

// Brings a database of an older format to the present one. Needs a transaction for writing.
void upgrade_database(Database *database);
bool is_older_format(Database *database);

// Leaves out the ids of the next keys, so many. Needs a transaction for writing.
void skip_key_ids(Database *database, std::uint64_t count);

// The time of now, in units of 100 ns since 1601.
std::int64_t registry_time() noexcept;

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_REGISTRY_STORE_FILES_H
