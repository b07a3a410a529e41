#ifndef OSTREL_PLATFORM_FILE_SEARCH_H
#define OSTREL_PLATFORM_FILE_SEARCH_H

// Internal. What stands behind the searches of find.h, in both of their forms.

#include <cstddef>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "ostrel/platform/base/handle_table.h"
#include "ostrel/platform/base/host_descriptor.h"
#include "ostrel/platform/file/file_facts.h"
#include "ostrel/platform/file/wildcard.h"
#include "ostrel/platform/types.h"

namespace ostrel_platform {

// Why a search has no entry, for the system's calls and for those of the runtime.
struct SearchFailure {
    DWORD code;
    int error;
};
using SearchResult = std::optional<SearchFailure>;  // nothing is success

struct SearchEntry {
    FileFacts facts;
    std::u16string_view name;  // until the next entry; fewer than MAX_PATH characters
};

class Search : public HandleObject {
public:
    // With `mayLeaveOutFiles`, entries that the host's listing tells to be no directory are passed
    // over.
    explicit Search(bool mayLeaveOutFiles = false) : m_mayLeaveOutFiles(mayLeaveOutFiles) {}

    // Begins with the first entry; once at most. `path` is not null.
    SearchResult First(const WCHAR *path, SearchEntry *entry);

    // ERROR_NO_MORE_FILES at the end. The caller holds Mutex, while it uses the entry too.
    SearchResult Next(SearchEntry *entry);
    std::mutex &Mutex() { return m_mutex; }

private:
    // The longest name of a host that a told name of MAX_PATH - 1 characters can stand for.
    static constexpr std::size_t kMaxBytes = 3 * (MAX_PATH - 1);

    SearchResult FindExactly(const std::string &host, std::u16string_view name, SearchEntry *entry);
    SearchResult Open(const std::string &folder, bool isRoot);
    SearchResult ReadDots();
    SearchResult ReadBlock();
    bool Takes(std::string_view hostName);

    std::mutex m_mutex;
    bool m_mayLeaveOutFiles;
    HostDescriptor m_directory;  // none when no name is to come
    std::optional<Wildcard> m_pattern;

    // What is still to be told of "." and ".." lies behind what was told.
    SearchEntry m_dots[2];
    std::size_t m_dotsTold = 0;
    std::size_t m_dotsEnd = 0;

    // Directory entries as the host gives them, from one on that was not looked at.
    std::unique_ptr<char[]> m_block;
    std::size_t m_blockPos = 0;
    std::size_t m_blockEnd = 0;

    WCHAR m_name[kMaxBytes];
    std::size_t m_nameLength = 0;
};

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_FILE_SEARCH_H
