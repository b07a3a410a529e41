#include "ostrel/platform/pending/pending_record.h"

#include <sys/file.h>

#include <charconv>
#include <climits>
#include <cstdlib>

namespace ostrel_platform {
namespace {

constexpr std::string_view kHeader = "ostrel-pending-moves 1\n";
constexpr char kName[] = "pending_moves";
constexpr char kNewName[] = "pending_moves.new";
// In bytes; far above real use. Marking a request as begun lengthens its line, so the limit for
// reading is higher than the limit for writing.
constexpr std::size_t kMaxToWrite = 64 << 20;
constexpr std::size_t kMaxToRead = 2 * kMaxToWrite;

constexpr struct {
    PendingVerb verb;
    std::string_view word;
} kVerbs[] = {
    {PendingVerb::kDelete, "delete"},
    {PendingVerb::kMove, "move"},
    {PendingVerb::kReplace, "replace"},
};

constexpr std::string_view kAsked = "asked";
constexpr std::string_view kBegun = "begun:";

constexpr bool is_encoded(char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte <= 0x20 || byte == 0x7F || byte == '%';
}

// Returns nothing when the text is no encoded path that is absolute and shorter than PATH_MAX.
std::optional<std::string> decode_path(std::string_view text) {
    std::string path;
    while (!text.empty()) {
        unsigned value = static_cast<unsigned char>(text.front());
        std::size_t length = 1;
        if (value == '%') {
            length = 3;
            if (text.size() < length ||
                std::from_chars(text.data() + 1, text.data() + length, value, 16).ptr !=
                    text.data() + length) {
                return std::nullopt;
            }
        } else if (is_encoded(text.front())) {
            return std::nullopt;
        }
        path.push_back(static_cast<char>(value));
        text.remove_prefix(length);
    }
    const bool fits = path.starts_with('/') && path.size() < PATH_MAX;
    return fits && path.find('\0') == path.npos ? std::optional(path) : std::nullopt;
}

std::vector<std::string_view> fields_of(std::string_view line) {
    std::vector<std::string_view> fields;
    for (std::size_t blank; (blank = line.find(' ')) != line.npos;) {
        fields.push_back(line.substr(0, blank));
        line.remove_prefix(blank + 1);
    }
    fields.push_back(line);
    return fields;
}

template <class Number>
bool take_number(std::string_view *text, char end, Number *number) {
    const char *const stop = text->data() + text->size();
    const auto [behind, error] = std::from_chars(text->data(), stop, *number);
    if (error != std::errc() || (end == '\0' ? behind != stop : behind == stop || *behind != end)) {
        return false;
    }
    text->remove_prefix(static_cast<std::size_t>(behind - text->data()) + (end != '\0'));
    return true;
}

// Returns false when the text is no STATE of the format.
bool read_state(std::string_view text, std::optional<SourceIdentity> *begun) {
    if (text == kAsked) {
        return true;
    }
    if (!text.starts_with(kBegun)) {
        return false;
    }
    text.remove_prefix(kBegun.size());
    SourceIdentity &identity = begun->emplace();
    return take_number(&text, ':', &identity.device) && take_number(&text, ':', &identity.inode) &&
           take_number(&text, '\0', &identity.time);
}

std::string state_of(const std::optional<SourceIdentity> &begun) {
    if (!begun) {
        return std::string(kAsked);
    }
    return std::string(kBegun) + std::to_string(begun->device) + ':' +
           std::to_string(begun->inode) + ':' + std::to_string(begun->time);
}

// Stores the length of the complete lines, in bytes. Returns 0, or EBADMSG when the text is no
// record of this version.
int find_end(std::string_view text, std::size_t *end) {
    *end = text.rfind('\n') + 1;  // 0 without a complete line
    // A crash during the first write may leave a part of the header, or zeros.
    const bool ours =
        *end != 0 ? text.starts_with(kHeader) : kHeader.starts_with(text) || text.front() == '\0';
    return ours ? 0 : EBADMSG;
}

int lock(const HostDescriptor &file) {
    while (flock(file.Get(), LOCK_EX) != 0) {
        if (errno != EINTR) {
            return errno;
        }
    }
    return 0;
}

// Unlocks explicitly: when a forked child has the same open file, close keeps the lock.
void unlock(const HostDescriptor &file) {
    if (file) {
        flock(file.Get(), LOCK_UN);
    }
}

// Whether this user trusts the record's file or directory. Root carries out the requests of others,
// so root refuses a record that others may write to.
bool is_trusted(const struct stat &facts) {
    const uid_t user = geteuid();
    const mode_t others = S_IWOTH | (facts.st_gid != 0 ? S_IWGRP : 0u);
    return (facts.st_uid == 0 || facts.st_uid == user) &&
           (user != 0 || (facts.st_mode & others) == 0);
}

void append_encoded(std::string_view bytes, std::string *text) {
    constexpr char kDigits[] = "0123456789ABCDEF";
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        *text += {'%', kDigits[byte >> 4], kDigits[byte & 15]};
    }
}

struct Utf8Character {
    char32_t code;
    std::size_t length;  // in bytes
};
constexpr Utf8Character kBroken{0x110000, 1};

Utf8Character first_character(std::string_view text) {
    constexpr char32_t kLeast[] = {0, 0, 0x80, 0x800, 0x10000};  // by the length
    const auto lead = static_cast<unsigned char>(text.front());
    if (lead < 0x80) {
        return {lead, 1};
    }
    const std::size_t length = lead < 0xC2 ? 0 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    if (length == 0 || length > text.size()) {
        return kBroken;
    }
    char32_t code = lead & (0x7Fu >> length);
    for (const char c : text.substr(1, length - 1)) {
        if ((c & 0xC0) != 0x80) {
            return kBroken;
        }
        code = code << 6 | (c & 0x3F);
    }
    const bool is_valid =
        code >= kLeast[length] && code <= 0x10FFFF && (code < 0xD800 || code > 0xDFFF);
    return is_valid ? Utf8Character{code, length} : kBroken;
}

// The control characters from U+0080 on, and what ends a line or sets the direction of text
// (Unicode, Bidi_Control).
bool is_hidden_control(char32_t code) {
    return (code >= 0x80 && code < 0xA0) || code == 0x061C || code == 0x200E || code == 0x200F ||
           (code >= 0x2028 && code <= 0x202E) || (code >= 0x2066 && code <= 0x2069);
}

}  // namespace

std::string encode_path(std::string_view path) {
    std::string text;
    for (const char &c : path) {
        if (is_encoded(c)) {
            append_encoded({&c, 1}, &text);
        } else {
            text.push_back(c);
        }
    }
    return text;
}

std::string printable_path(std::string_view path) {
    std::string text;
    while (!path.empty()) {
        const auto [code, length] = first_character(path);
        const std::string_view bytes = path.substr(0, length);
        if (is_encoded(path.front()) || code == kBroken.code || is_hidden_control(code)) {
            append_encoded(bytes, &text);
        } else {
            text += bytes;
        }
        path.remove_prefix(length);
    }
    return text;
}

std::string line_of_request(const PendingRequest &request) {
    std::string line;
    for (const auto &known : kVerbs) {
        if (known.verb == request.verb) {
            line = known.word;
        }
    }
    line += ' ' + request.boot + ' ' + state_of(request.begun) + ' ' + encode_path(request.source);
    if (request.verb != PendingVerb::kDelete) {
        line += ' ' + encode_path(request.target);
    }
    return line + '\n';
}

std::optional<PendingRequest> request_of_line(std::string_view line) {
    const std::vector<std::string_view> fields = fields_of(line);
    PendingRequest request;
    for (const auto &known : kVerbs) {
        request.verb = known.verb;
        const std::size_t count = known.verb == PendingVerb::kDelete ? 4 : 5;
        if (fields[0] != known.word || fields.size() != count || fields[1].empty() ||
            !read_state(fields[2], &request.begun)) {
            continue;
        }
        const std::optional<std::string> source = decode_path(fields[3]);
        const std::optional<std::string> target =
            count == 5 ? decode_path(fields[4]) : std::string();
        if (source && target) {
            request.boot = fields[1];
            request.source = *source;
            request.target = *target;
            return request;
        }
    }
    return std::nullopt;
}

PendingRecord::~PendingRecord() {
    unlock(m_file);
}

std::string PendingRecord::Directory() {
    const char *const directory = secure_getenv("OSTREL_STATE_DIR");
    return directory != nullptr && *directory != '\0' ? directory : "/var/lib/ostrel";
}

int PendingRecord::OpenDirectory(bool create) {
    const std::string path = Directory();
    const int flags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;
    m_directory = HostDescriptor(open(path.c_str(), flags));
    if (!m_directory && errno == ENOENT && create) {
        if (mkdir(path.c_str(), 0755) != 0 && errno != EEXIST) {
            return errno;
        }
        m_directory = HostDescriptor(open(path.c_str(), flags));
        const HostDescriptor parent(m_directory ? openat(m_directory.Get(), "..", flags) : -1);
        if (!parent) {
            return errno;
        }
        if (const int error = sync_directory(parent.Get())) {
            return error;
        }
    }
    struct stat facts;
    if (!m_directory || fstat(m_directory.Get(), &facts) != 0) {
        return errno;
    }
    return geteuid() != 0 || is_trusted(facts) ? 0 : EACCES;
}

int PendingRecord::OpenFile(bool create) {
    // O_NONBLOCK: a FIFO or device of that name must not block the open.
    const int flags = O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
    m_file = HostDescriptor(openat(m_directory.Get(), kName, flags | (create ? O_CREAT : 0), 0600));
    if (!m_file) {
        const bool is_no_file = errno == ELOOP || errno == EISDIR || errno == ENXIO;
        return is_no_file ? EACCES : errno;
    }
    struct stat facts;
    if (fstat(m_file.Get(), &facts) != 0) {
        return errno;
    }
    return S_ISREG(facts.st_mode) && is_trusted(facts) ? 0 : EACCES;
}

bool PendingRecord::IsInPlace() const {
    struct stat locked, named;
    return fstat(m_file.Get(), &locked) == 0 &&
           fstatat(m_directory.Get(), kName, &named, AT_SYMLINK_NOFOLLOW) == 0 &&
           is_same_file(locked, named);
}

int PendingRecord::Open(bool create) {
    if (const int error = OpenDirectory(create)) {
        return error;
    }
    // The previous owner of the lock may have replaced the file: then open the new file.
    do {
        if (const int error = OpenFile(create)) {
            return error;
        }
        if (const int error = lock(m_file)) {
            return error;
        }
    } while (!IsInPlace());
    return 0;
}

int PendingRecord::ReadText(std::string *text) const {
    struct stat facts;
    if (fstat(m_file.Get(), &facts) != 0) {
        return errno;
    }
    if (static_cast<std::size_t>(facts.st_size) > kMaxToRead) {
        return EFBIG;
    }
    text->resize(static_cast<std::size_t>(facts.st_size));
    for (std::size_t done = 0; done < text->size();) {
        const ssize_t count =
            pread(m_file.Get(), text->data() + done, text->size() - done, static_cast<off_t>(done));
        if (count < 0 && errno != EINTR) {
            return errno;
        }
        if (count == 0) {
            text->resize(done);
        } else if (count > 0) {
            done += static_cast<std::size_t>(count);
        }
    }
    return 0;
}

int PendingRecord::WriteBehind(std::size_t end, std::string_view text) const {
    const auto offset = static_cast<off_t>(end);
    if (ftruncate(m_file.Get(), offset) != 0 || lseek(m_file.Get(), offset, SEEK_SET) != offset) {
        return errno;
    }
    int error = write_all(m_file.Get(), text.data(), text.size());
    if (error == 0) {
        error = error_of(fsync(m_file.Get()));
    }
    if (error == 0) {
        // The writer that created the file may have crashed before it synced the directory.
        error = sync_directory(m_directory.Get());
    }
    if (error != 0 && ftruncate(m_file.Get(), static_cast<off_t>(end)) == 0 && end == 0) {
        unlinkat(m_directory.Get(), kName, 0);
    }
    return error;
}

int PendingRecord::ReadLines(std::string *text, std::size_t *end) const {
    const int error = ReadText(text);
    return error != 0 ? error : find_end(*text, end);
}

int PendingRecord::Append(const PendingRequest &request) {
    std::string text;
    std::size_t end;
    if (const int error = ReadLines(&text, &end)) {
        return error;
    }
    const std::string line = line_of_request(request);
    if (end + line.size() > kMaxToWrite) {
        return EFBIG;
    }
    return WriteBehind(end, end == 0 ? std::string(kHeader) + line : line);
}

int PendingRecord::Read(std::vector<PendingRequest> *requests, std::vector<std::size_t> *damaged) {
    std::string text;
    std::size_t end;
    if (const int error = ReadLines(&text, &end)) {
        return error;
    }
    std::size_t number = 2;
    for (std::size_t at = kHeader.size(); at < end; ++number) {
        const std::size_t stop = text.find('\n', at);
        if (std::optional<PendingRequest> request =
                request_of_line(std::string_view(text).substr(at, stop - at))) {
            requests->push_back(std::move(*request));
        } else {
            damaged->push_back(number);
        }
        at = stop + 1;
    }
    return 0;
}

int PendingRecord::Replace(const std::vector<PendingRequest> &requests) {
    if (requests.empty()) {
        return unlinkat(m_directory.Get(), kName, 0) == 0 ? sync_directory(m_directory.Get())
                                                          : errno;
    }
    std::string text(kHeader);
    for (const PendingRequest &request : requests) {
        text += line_of_request(request);
    }
    unlinkat(m_directory.Get(), kNewName, 0);  // a crash may have left it
    HostDescriptor file(openat(m_directory.Get(), kNewName,
                               O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!file) {
        return errno;
    }
    int error = lock(file);
    if (error == 0) {
        error = write_all(file.Get(), text.data(), text.size());
    }
    if (error == 0) {
        error = error_of(fsync(file.Get()));
    }
    if (error == 0 && renameat(m_directory.Get(), kNewName, m_directory.Get(), kName) != 0) {
        error = errno;
    }
    if (error != 0) {
        unlinkat(m_directory.Get(), kNewName, 0);
        return error;
    }
    // Callers that wait for the lock of the old file find the file replaced and open the new one.
    std::swap(m_file, file);
    unlock(file);
    return sync_directory(m_directory.Get());
}

}  // namespace ostrel_platform
