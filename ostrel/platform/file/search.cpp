#include "ostrel/platform/file/search.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>

#include "ostrel/platform/base/errno_code.h"
#include "ostrel/platform/base/host_rename.h"
#include "ostrel/platform/error.h"
#include "ostrel/platform/file/host_path.h"

namespace ostrel_platform {
namespace {

constexpr std::size_t kBlock = std::size_t{32} << 10;
constexpr char16_t kSeparators[] = u"\\/";

constexpr SearchFailure kNotFound = {ERROR_FILE_NOT_FOUND, ENOENT};
constexpr SearchFailure kNoFolder = {ERROR_PATH_NOT_FOUND, ENOENT};
constexpr SearchFailure kFolderIsFile = {ERROR_DIRECTORY, ENOENT};
constexpr SearchFailure kNoMore = {ERROR_NO_MORE_FILES, ENOENT};

// The target of a link may be a directory, and some file systems do not report types.
bool is_surely_a_file(unsigned char type) {
    return type != DT_DIR && type != DT_LNK && type != DT_UNKNOWN;
}

SearchFailure host_failure(int error) {
    return {code_of_errno(error), error};
}

// The last component of a path.
struct Parts {
    std::u16string_view name;
    bool in_root;  // whether its folder is the root of a drive
};

Parts parts_of(const WCHAR *path) {
    const std::u16string_view text = path;
    const std::size_t drive = has_drive(path) ? 2 : 0;
    const std::size_t separator = text.find_last_of(kSeparators);
    const std::size_t name = std::max(drive, separator == text.npos ? 0 : separator + 1);
    return {text.substr(name), is_root(text.substr(0, name))};
}

SearchFailure folder_failure(int error, const std::string &folder) {
    struct stat facts;
    if (error == ENOTDIR) {
        // Either the folder itself is a file, or a component before it is.
        return stat(folder.c_str(), &facts) == 0 ? kFolderIsFile : kNoFolder;
    }
    return error == ENOENT ? kNoFolder : host_failure(error);
}

SearchFailure path_failure(int error, const HostName &host) {
    if (error == ENOTDIR) {
        return folder_failure(error, folder_of(host.name));
    }
    return {host.CodeOf(error), error};
}

// The facts that the host's listing alone gives.
FileFacts facts_of_kind(unsigned char type) {
    FileFacts facts = {};
    facts.attributes = type == DT_DIR ? FILE_ATTRIBUTE_DIRECTORY : FILE_ATTRIBUTE_NORMAL;
    return facts;
}

}  // namespace

SearchResult Search::First(const WCHAR *path, SearchEntry *entry) {
    int error = 0;
    const std::optional<HostName> host = resolve_file(path, &error);
    if (!host) {
        return error == ENOTDIR ? kFolderIsFile : SearchFailure{GetLastError(), error};
    }
    const Parts parts = parts_of(path);
    if (parts.name.empty() || parts.name.size() >= MAX_PATH) {
        return kNotFound;
    }
    if (!is_pattern(parts.name)) {
        return FindExactly(*host, parts.name, entry);
    }
    m_pattern.emplace(parts.name);
    SearchResult failure = host->pin ? Open(host->pin) : Open(*host);
    if (!failure && !parts.in_root) {
        failure = ReadDots();
    }
    if (failure) {
        return failure;
    }
    const SearchResult result = Next(entry);
    if (!result || result->code != ERROR_NO_MORE_FILES) {
        return result;
    }
    return FindExactly(*host, parts.name, entry) ? SearchResult(kNotFound) : std::nullopt;
}

SearchResult Search::FindExactly(const HostName &host, std::u16string_view name,
                                 SearchEntry *entry) {
    m_facts = host.pin ? host.pin->TakeFacts() : PinnedDirectory::Facts::kAll;
    const FileRef ref = host.Ref();
    const int error = m_facts == PinnedDirectory::Facts::kAll
                          ? read_facts(ref.directory, ref.name, &entry->facts)
                          : read_host_facts(ref.directory, ref.name, DT_UNKNOWN, &entry->facts);
    if (error != 0) {
        return path_failure(error, host);
    }
    std::copy(name.begin(), name.end(), m_name);
    entry->name = {m_name, name.size()};
    return std::nullopt;
}

SearchResult Search::Open(const HostName &host) {
    const std::string folder = folder_of(host.name);
    m_opened = open_host(folder.c_str(), O_RDONLY | O_DIRECTORY);
    if (!m_opened) {
        return folder_failure(errno, folder);
    }
    m_directory = m_opened.Get();
    m_block = std::make_unique_for_overwrite<char[]>(kBlock);
    return std::nullopt;
}

// Uses the descriptor of the pinned directory, unless another search already does.
SearchResult Search::Open(std::shared_ptr<PinnedDirectoryState> pin) {
    m_block = std::make_unique_for_overwrite<char[]>(kBlock);
    m_facts = pin->TakeFacts();
    m_mayBeRoot = pin->may_be_root;
    m_directory = pin->directory.Get();
    if (!pin->is_listed.exchange(true)) {
        m_pin = std::move(pin);
        return lseek(m_directory, 0, SEEK_SET) == 0 ? SearchResult() : host_failure(errno);
    }
    m_opened = open_host(FileRef{m_directory, "."}, O_RDONLY | O_DIRECTORY);
    m_directory = m_opened.Get();
    return m_opened ? SearchResult() : host_failure(errno);
}

void Search::CloseDirectory() noexcept {
    if (const auto pin = std::move(m_pin)) {
        pin->is_listed = false;
    }
    m_opened = HostDescriptor();
    m_directory = -1;
}

SearchResult Search::ReadDots() {
    const bool self = m_pattern->Matches(u".");
    const bool parent = m_pattern->Matches(u"..");
    if (!self && !parent) {
        return std::nullopt;
    }
    m_dots[0].name = u".";
    m_dots[1].name = u"..";
    m_dotsPos = self ? 0 : 1;
    m_dotsEnd = parent ? 2 : 1;
    if (m_facts == PinnedDirectory::Facts::kKinds && !m_mayBeRoot) {
        m_dots[0].facts = m_dots[1].facts = facts_of_kind(DT_DIR);
        return std::nullopt;
    }
    int error = read_facts(m_directory, &m_dots[0].facts);
    if (error == 0) {
        error = read_facts(m_directory, "..", DT_DIR, &m_dots[1].facts);
    }
    if (error != 0) {
        return host_failure(error);
    }
    const FileFacts &a = m_dots[0].facts;
    const FileFacts &b = m_dots[1].facts;
    if (a.volume == b.volume && a.index == b.index) {
        m_dotsEnd = m_dotsPos;  // the host's root, which is its own parent
    }
    return std::nullopt;
}

// Reads the next block. Closes the directory after the last block and on failure.
SearchResult Search::ReadBlock() {
    const ssize_t count = m_directory >= 0 ? getdents64(m_directory, m_block.get(), kBlock) : 0;
    if (count > 0) {
        m_blockPos = 0;
        m_blockEnd = static_cast<std::size_t>(count);
        return std::nullopt;
    }
    const int error = count < 0 ? errno : 0;
    CloseDirectory();
    // ENOENT: the directory was removed meanwhile.
    return error == 0 || error == ENOENT ? kNoMore : host_failure(error);
}

// Stores the facts of an entry of the directory. Returns 0 or errno.
int Search::ReadFacts(const char *name, unsigned char type, FileFacts *facts) const {
    if (m_facts == PinnedDirectory::Facts::kAll) {
        return read_facts(m_directory, name, type, facts);
    }
    if (m_facts == PinnedDirectory::Facts::kKinds && type != DT_LNK && type != DT_UNKNOWN) {
        *facts = facts_of_kind(type);
        return 0;
    }
    return read_host_facts(m_directory, name, type, facts);
}

// Whether the search returns an entry of this name. Stores the converted name in m_name.
bool Search::Takes(std::string_view hostName) {
    if (hostName == "." || hostName == ".." || hostName.size() > kMaxBytes) {
        return false;
    }
    m_nameLength = name_from_host(hostName, m_name);
    return m_nameLength < MAX_PATH && m_pattern->Matches({m_name, m_nameLength});
}

SearchResult Search::Next(SearchEntry *entry) {
    if (m_dotsPos < m_dotsEnd) {
        *entry = m_dots[m_dotsPos++];
        return std::nullopt;
    }
    for (;;) {
        if (m_blockPos == m_blockEnd) {
            if (const SearchResult failure = ReadBlock()) {
                return failure;
            }
        }
        const auto *const found = reinterpret_cast<const dirent64 *>(&m_block[m_blockPos]);
        m_blockPos += found->d_reclen;
        if ((m_mayLeaveOutFiles && is_surely_a_file(found->d_type)) || !Takes(found->d_name)) {
            continue;
        }
        const int error = ReadFacts(found->d_name, found->d_type, &entry->facts);
        if (error == 0) {
            entry->name = {m_name, m_nameLength};
            if (m_pin && (m_pin->flags & PinnedDirectory::kDeletes) != 0) {
                m_pin->found_file = found->d_type == DT_REG ? found->d_name : "";
            }
            return std::nullopt;
        }
        if (error != ENOENT) {
            return host_failure(error);
        }
    }
}

}  // namespace ostrel_platform
