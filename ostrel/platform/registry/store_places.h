#ifndef OSTREL_PLATFORM_REGISTRY_STORE_PLACES_H
#define OSTREL_PLATFORM_REGISTRY_STORE_PLACES_H

// Internal. Where the files of the registry are.

#include <sys/types.h>

#include <cstdint>
#include <string>

namespace ostrel_platform {

enum class StoreKind { kMachine, kUser };

struct StorePlace {
    std::string folder;
    std::string database;  // path
    std::string log, shm;  // paths of SQLite's -wal and -shm files
    std::string lock;      // path of the file that writers lock
    std::string page;      // path of the page where /dev/shm cannot hold the page
    mode_t folder_mode;    // of folders that the layer creates
    mode_t file_mode;      // of a database that the layer creates
};

// Returns the place of a store: below the folder that OSTREL_REGISTRY names, otherwise below
// /var/lib/ostrel/registry, and $XDG_STATE_HOME or ~/.local/state of the user. A program with
// rights that its caller lacks ignores the environment. Throws std::bad_alloc.
StorePlace place_of(StoreKind kind);

// Creates a folder and those above it, with the mode whatever the umask is. Returns 0, also for a
// folder that exists, or errno.
int create_folders(const std::string &folder, mode_t mode);

// Returns the host's boot id, or a constant when the host does not tell. Throws StoreFailure when
// this process cannot ask now, and std::bad_alloc.
const std::string &host_boot();

// Returns a number that nobody can guess, and that is not 0.
std::uint64_t random_number() noexcept;

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_REGISTRY_STORE_PLACES_H
