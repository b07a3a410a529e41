#include "ostrel/platform/pending/pending_record.h"

#include <sys/file.h>

#include <algorithm>
#include <charconv>
#include <climits>
#include <cstdio>
#include <cstdlib>

namespace ostrel_platform {
namespace {

constexpr std::string_view kHeader = "ostrel-pending-moves 2\n";
constexpr char kName[] = "pending_moves";
constexpr char kNewName[] = "pending_moves.new";
constexpr std::size_t kMaxSize = 64 << 20;  // in bytes; far above real use

// The fields of a fixed width at the begin of a line: "STATE INODE TIME ".
constexpr char kWaits = '.';
constexpr char kEnded = 'x';
constexpr std::string_view kNotBegun = "---------------- ----------------";
constexpr std::size_t kBegunAt = 2;
constexpr std::size_t kSumAt = kBegunAt + kNotBegun.size() + 1;
constexpr int kSumWidth = 8;
constexpr std::size_t kVerbAt = kSumAt + kSumWidth + 1;

constexpr struct {
    PendingVerb verb;
    std::string_view word;
} kVerbs[] = {
    {PendingVerb::kDelete, "delete"},
    {PendingVerb::kMove, "move"},
    {PendingVerb::kReplace, "replace"},
};

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

// CRC-32 of ITU-T V.42.
std::uint32_t sum_of(std::string_view bytes) {
    std::uint32_t sum = 0xFFFFFFFF;
    for (const char c : bytes) {
        sum ^= static_cast<unsigned char>(c);
        for (int bit = 0; bit < 8; ++bit) {
            sum = sum >> 1 ^ ((sum & 1) != 0 ? 0xEDB88320u : 0u);
        }
    }
    return ~sum;
}

std::string hexadecimal(std::uint64_t number, int width) {
    char text[16 + 1];
    std::snprintf(text, sizeof text, "%0*jx", width, std::uintmax_t{number});
    return text;
}

// Returns nothing when the text has other characters than hexadecimal digits.
std::optional<std::uint64_t> number_of(std::string_view text) {
    std::uint64_t number;
    const char *const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number, 16);
    return error == std::errc() && stop == end ? std::optional(number) : std::nullopt;
}

std::string text_of_identity(const SourceIdentity &identity) {
    return hexadecimal(identity.inode, 16) + ' ' +
           hexadecimal(static_cast<std::uint64_t>(identity.time), 16);
}

// Reads the fields of a fixed width. Returns false when they are damaged.
bool read_marks(std::string_view line, PendingRequest *request) {
    if (line.size() < kVerbAt || (line[0] != kWaits && line[0] != kEnded) || line[1] != ' ') {
        return false;
    }
    request->has_ended = line[0] == kEnded;
    const std::string_view text = line.substr(kBegunAt, kNotBegun.size());
    if (text.find('-') != text.npos) {  // the mark was not written, or not to its end
        return text.find_first_not_of("0123456789abcdef- ") == text.npos;
    }
    const std::optional<std::uint64_t> inode = number_of(text.substr(0, 16));
    const std::optional<std::uint64_t> time = number_of(text.substr(17));
    if (!inode || !time || text[16] != ' ') {
        return false;
    }
    request->begun = {*inode, static_cast<std::int64_t>(*time)};
    return true;
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
    std::string text;
    for (const auto &known : kVerbs) {
        if (known.verb == request.verb) {
            text = known.word;
        }
    }
    text += ' ' + request.boot + ' ' + encode_path(request.source);
    if (request.verb != PendingVerb::kDelete) {
        text += ' ' + encode_path(request.target);
    }
    std::string line(1, request.has_ended ? kEnded : kWaits);
    line += ' ';
    line += request.begun ? text_of_identity(*request.begun) : kNotBegun;
    return line + ' ' + hexadecimal(sum_of(text), kSumWidth) + ' ' + text + '\n';
}

std::optional<PendingRequest> request_of_line(std::string_view line) {
    PendingRequest request;
    if (!read_marks(line, &request) || line[kSumAt - 1] != ' ' || line[kVerbAt - 1] != ' ' ||
        number_of(line.substr(kSumAt, kSumWidth)) != sum_of(line.substr(kVerbAt))) {
        return std::nullopt;
    }
    const std::vector<std::string_view> fields = fields_of(line.substr(kVerbAt));
    for (const auto &known : kVerbs) {
        request.verb = known.verb;
        const std::size_t count = known.verb == PendingVerb::kDelete ? 3 : 4;
        if (fields[0] != known.word || fields.size() != count || fields[1].empty()) {
            continue;
        }
        const std::optional<std::string> source = decode_path(fields[2]);
        const std::optional<std::string> target =
            count == 4 ? decode_path(fields[3]) : std::string();
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
    return sync_directory(m_directory.Get());
}

int PendingRecord::Size(std::size_t *size) const {
    struct stat facts;
    if (fstat(m_file.Get(), &facts) != 0) {
        return errno;
    }
    *size = static_cast<std::size_t>(facts.st_size);
    return *size > kMaxSize ? EFBIG : 0;
}

// Reads `count` bytes, or fewer at the end of the file.
int PendingRecord::ReadAt(std::size_t offset, std::size_t count, std::string *text) const {
    text->resize(count);
    for (std::size_t done = 0; done < text->size();) {
        const ssize_t step = pread(m_file.Get(), text->data() + done, text->size() - done,
                                   static_cast<off_t>(offset + done));
        if (step < 0 && errno != EINTR) {
            return errno;
        }
        if (step == 0) {
            text->resize(done);
        } else if (step > 0) {
            done += static_cast<std::size_t>(step);
        }
    }
    return 0;
}

// Stores the length of the complete lines in a file of this size. Returns 0 or errno: EBADMSG when
// the file is no record of this version.
int PendingRecord::FindEnd(std::size_t size, std::size_t *end) const {
    constexpr std::size_t kStep = 4096;
    std::string text;
    *end = size;
    while (*end != 0) {
        const std::size_t step = text.empty() ? 1 : std::min(*end, kStep);
        if (const int error = ReadAt(*end - step, step, &text)) {
            return error;
        }
        const std::size_t line_end = text.rfind('\n') + 1;  // 0 without an LF
        *end = *end - step + line_end;
        if (line_end != 0) {
            break;
        }
    }
    if (const int error = ReadAt(0, kHeader.size(), &text)) {
        return error;
    }
    // A crash during the first write may leave a part of the header, or zeros.
    const bool ours =
        *end != 0 ? text == kHeader : kHeader.starts_with(text) || text.front() == '\0';
    return ours ? 0 : EBADMSG;
}

int PendingRecord::WriteAt(std::size_t offset, std::string_view text) const {
    const auto at = static_cast<off_t>(offset);
    return lseek(m_file.Get(), at, SEEK_SET) == at
               ? write_all(m_file.Get(), text.data(), text.size())
               : errno;
}

int PendingRecord::Append(const PendingRequest &request) {
    std::size_t size = 0, end = 0;
    int error = Size(&size);
    if (error == 0) {
        error = FindEnd(size, &end);
    }
    if (error != 0) {
        return error;
    }
    const std::string text = std::string(end == 0 ? kHeader : "") + line_of_request(request);
    if (end + text.size() > kMaxSize) {
        return EFBIG;
    }
    const auto offset = static_cast<off_t>(end);
    if (size != end && ftruncate(m_file.Get(), offset) != 0) {
        return errno;
    }
    error = WriteAt(end, text);
    if (error == 0) {
        error = error_of(fsync(m_file.Get()));
    }
    if (error != 0 && ftruncate(m_file.Get(), offset) == 0 && end == 0) {
        unlinkat(m_directory.Get(), kName, 0);
    }
    return error;
}

int PendingRecord::Read(PendingContent *content) {
    std::size_t size = 0, end = 0;
    std::string text;
    int error = Size(&size);
    if (error == 0) {
        error = FindEnd(size, &end);
    }
    if (error == 0) {
        error = ReadAt(0, end, &text);
    }
    if (error != 0) {
        return error;
    }
    std::size_t number = 2;
    for (std::size_t at = kHeader.size(); at < end; ++number) {
        const std::size_t stop = text.find('\n', at);
        std::optional<PendingRequest> request =
            request_of_line(std::string_view(text).substr(at, stop - at));
        if (!request) {
            content->damaged.push_back(number);
        } else if (request->has_ended) {
            ++content->ended;
        } else {
            request->offset = at;
            content->requests.push_back(std::move(*request));
        }
        at = stop + 1;
    }
    return 0;
}

int PendingRecord::Mark(std::size_t offset, std::string_view mark) {
    m_hasNewMarks = true;
    return WriteAt(offset, mark);
}

int PendingRecord::MarkBegun(const PendingRequest &request) {
    return Mark(request.offset + kBegunAt, text_of_identity(*request.begun));
}

int PendingRecord::MarkEnded(const PendingRequest &request) {
    return Mark(request.offset, {&kEnded, 1});
}

int PendingRecord::Sync() {
    const int error = m_hasNewMarks ? error_of(fdatasync(m_file.Get())) : 0;
    m_hasNewMarks = m_hasNewMarks && error != 0;
    return error;
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
