#ifndef OSTREL_PLATFORM_FILE_SEARCH_H
#define OSTREL_PLATFORM_FILE_SEARCH_H

// Internal. Implements the searches of find.h once for both families of calls: those of the system
// and those of the runtime.

#include <cstddef>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "ostrel/platform/base/handle_table.h"
#include "ostrel/platform/base/host_descriptor.h"
#include "ostrel/platform/file/file_facts.h"
#include "ostrel/platform/file/host_name.h"
#include "ostrel/platform/file/wildcard.h"
#include "ostrel/platform/types.h"

namespace ostrel_platform {

// Why a search has no entry.
struct SearchFailure {
    DWORD code;  // for the calls of the system
    int error;   // the errno for the calls of the runtime
};
using SearchResult = std::optional<SearchFailure>;  // empty on success

struct SearchEntry {
    FileFacts facts;
    std::u16string_view name;  // valid until the next entry; fewer than MAX_PATH characters
};

// One search. Lists one directory of the host, or finds one file.
//
// Threads: call First before other threads have the search; lock Mutex around every Next.
// Errors: First throws std::bad_alloc.
class Search : public HandleObject {
public:
    // With `mayLeaveOutFiles` a search for a pattern skips the entries whose type in the host's
    // listing is known and is neither directory nor link.
    explicit Search(bool mayLeaveOutFiles = false) : m_mayLeaveOutFiles(mayLeaveOutFiles) {}
    ~Search() override { CloseDirectory(); }

    // Begins the search and stores the first entry; call once. Returns nothing. On failure returns
    // the failure as FindFirstFileW describes it.
    SearchResult First(const WCHAR *path, SearchEntry *entry);

    // Stores the next entry. Returns nothing. On failure returns the failure: ERROR_NO_MORE_FILES
    // after the last entry. The caller locks Mutex until it has used the entry, whose name is in
    // the search.
    SearchResult Next(SearchEntry *entry);
    std::mutex &Mutex() { return m_mutex; }

private:
    // The largest size of a host name, in bytes, whose converted name has MAX_PATH - 1 characters.
    static constexpr std::size_t kMaxBytes = 3 * (MAX_PATH - 1);

    SearchResult FindExactly(const HostName &host, std::u16string_view name, SearchEntry *entry);
    SearchResult Open(const HostName &host);
    SearchResult Open(std::shared_ptr<PinnedDirectoryState> pin);
    SearchResult ReadDots();
    SearchResult ReadBlock();
    int ReadFacts(const char *name, unsigned char type, FileFacts *facts) const;
    bool Takes(std::string_view hostName);
    void CloseDirectory() noexcept;

    std::mutex m_mutex;
    bool m_mayLeaveOutFiles;
    bool m_mayBeRoot = true;  // whether the directory may be the host's root
    int m_directory = -1;     // -1 when there are no more names to read
    HostDescriptor m_opened;  // the owner of m_directory, unless it is that of a pin
    std::shared_ptr<PinnedDirectoryState> m_pin;  // whose position this search uses
    PinnedDirectory::Facts m_facts = PinnedDirectory::Facts::kAll;
    std::optional<Wildcard> m_pattern;

    // The entries "." and "..". Next still has to return the entries [m_dotsPos, m_dotsEnd).
    SearchEntry m_dots[2];
    std::size_t m_dotsPos = 0;
    std::size_t m_dotsEnd = 0;

    // A block of directory entries from getdents64. The next entry begins at m_blockPos.
    std::unique_ptr<char[]> m_block;
    std::size_t m_blockPos = 0;
    std::size_t m_blockEnd = 0;

    WCHAR m_name[kMaxBytes];
    std::size_t m_nameLength = 0;
};

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_FILE_SEARCH_H
