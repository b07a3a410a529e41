#include "ostrel/platform/stream/stream.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <string>
#include <utility>

#include "ostrel/platform/base/host_descriptor.h"
#include "ostrel/platform/base/no_cancellation.h"
#include "ostrel/platform/crt_text.h"
#include "ostrel/platform/file/share_mode.h"

namespace ostrel_platform {
namespace {

constexpr char kCtrlZ = 0x1A;
constexpr std::string_view kUtf8Mark = "\xEF\xBB\xBF";
constexpr std::string_view kUtf16Mark = "\xFF\xFE";

ssize_t read_some(int file, char *bytes, std::size_t capacity) {
    ssize_t count;
    do {
        count = read(file, bytes, capacity);
    } while (count < 0 && errno == EINTR);
    return count;
}

std::optional<OpenMode::Encoding> encoding_named(std::u16string_view text) {
    const std::u16string name(text.substr(0, text.find_last_not_of(u' ') + 1));
    if (_wcsicmp(name.c_str(), TEXT("UTF-8")) == 0) {
        return OpenMode::Encoding::kUtf8;
    }
    if (_wcsicmp(name.c_str(), TEXT("UTF-16LE")) == 0 ||
        _wcsicmp(name.c_str(), TEXT("UNICODE")) == 0) {
        return OpenMode::Encoding::kUtf16;
    }
    return std::nullopt;
}

void skip_blanks(std::u16string_view *text) {
    text->remove_prefix(std::min(text->find_first_not_of(u' '), text->size()));
}

bool starts_with_and_skip(std::u16string_view *text, std::u16string_view prefix) {
    const bool found = text->substr(0, prefix.size()) == prefix;
    if (found) {
        text->remove_prefix(prefix.size());
    }
    return found;
}

// Checks the rules that the host does not know. Returns 0 or errno: EACCES when a rule forbids the
// stream, ESTALE when the path no longer leads to the open file.
int complete_open(const char *path, SharingFile *file, const OpenMode &mode) {
    struct stat facts;
    if (fstat(file->Get(), &facts) != 0) {
        return errno;
    }
    if (S_ISDIR(facts.st_mode) || (!mode.Reads() && is_read_only(facts))) {
        return EACCES;
    }
    if (!S_ISREG(facts.st_mode)) {
        // The open did not wait for a peer; the writes do.
        const int flags = fcntl(file->Get(), F_GETFL);
        return mode.Reads() ? EACCES : error_of(fcntl(file->Get(), F_SETFL, flags & ~O_NONBLOCK));
    }
    const int refusal =
        file->Take(mode.Reads() ? kShareRead : kShareWrite, kShareRead | kShareWrite);
    if (!still_names({AT_FDCWD, path}, facts)) {
        return ESTALE;
    }
    return refusal != 0 ? EACCES : 0;
}

// Opens the file of a stream without waiting for a peer. A stream reads regular files alone: a
// FIFO's writer, or a device, would notice even an open.
HostDescriptor open_file(const char *path, const OpenMode &mode) {
    if (!mode.Reads()) {
        return open_host_to_write({AT_FDCWD, path}, O_NONBLOCK | O_CREAT |
                                                        (mode.access == 'a' ? O_APPEND : 0) |
                                                        (mode.exclusive ? O_EXCL : 0));
    }
    struct stat facts;
    if (stat(path, &facts) == 0 && !S_ISREG(facts.st_mode)) {
        errno = EACCES;
        return HostDescriptor();
    }
    return open_host(path, O_RDONLY | O_NONBLOCK);
}

}  // namespace

std::optional<OpenMode> OpenMode::Parse(std::u16string_view text) {
    OpenMode mode;
    skip_blanks(&text);
    if (text.empty() || std::u16string_view(TEXT("rwa")).find(text[0]) == text.npos) {
        return std::nullopt;
    }
    mode.access = static_cast<char>(text[0]);
    bool translation_given = false;
    for (text.remove_prefix(1); !text.empty() && text[0] != u','; text.remove_prefix(1)) {
        switch (text[0]) {
            case u'b':
            case u't':
                if (translation_given) {
                    return std::nullopt;
                }
                translation_given = true;
                mode.encoding = text[0] == u'b' ? Encoding::kBinary : Encoding::kSystem;
                break;
            case u'x':
                mode.exclusive = true;
                break;
            default:
                if (std::u16string_view(TEXT("cnNSRT ")).find(text[0]) == text.npos) {
                    return std::nullopt;
                }
        }
    }
    if (mode.exclusive && mode.access != 'w') {
        return std::nullopt;
    }
    if (text.empty()) {
        return mode;
    }
    text.remove_prefix(1);
    skip_blanks(&text);
    if (!starts_with_and_skip(&text, TEXT("ccs"))) {
        return std::nullopt;
    }
    skip_blanks(&text);
    if (!starts_with_and_skip(&text, TEXT("="))) {
        return std::nullopt;
    }
    skip_blanks(&text);
    const std::optional<Encoding> named = encoding_named(text);
    if (!named || mode.Binary() || !mode.Reads()) {
        return std::nullopt;
    }
    mode.encoding = *named;
    mode.find_mark = true;
    return mode;
}

std::unique_ptr<Stream> Stream::Open(const char *path, const OpenMode &mode) {
    int failure = ESTALE;
    for (int attempt = 0; failure == ESTALE && attempt < kMaxAttempts; ++attempt) {
        SharingFile file(open_file(path, mode));
        failure = file ? complete_open(path, &file, mode) : errno;
        if (failure == 0) {
            return std::unique_ptr<Stream>(new Stream(std::move(file), mode));
        }
    }
    errno = failure == EISDIR || failure == ESTALE ? EACCES : failure;
    return nullptr;
}

Stream::Stream(SharingFile file, const OpenMode &mode) : m_file(std::move(file)), m_mode(mode) {}

int Stream::Truncate() {
    struct stat facts;
    if (m_mode.access != 'w' || fstat(m_file.Get(), &facts) != 0 || !S_ISREG(facts.st_mode)) {
        return 0;
    }
    return error_of(ftruncate(m_file.Get(), 0));
}

int Stream::Close() {
    const int failure = m_file.Close();
    errno = failure != 0 ? failure : errno;
    return failure != 0 ? -1 : 0;
}

// Keeps the unread bytes and reads more behind them. Returns false when the file gave none.
bool Stream::FillBytes() {
    m_byteEnd -= m_bytePos;
    std::memmove(m_bytes, m_bytes + m_bytePos, m_byteEnd);
    m_bytePos = 0;

    const std::size_t left = m_byteEnd;
    while (!m_ended && (m_byteEnd == left || (!m_started && MayBeginMark()))) {
        const ssize_t count =
            read_some(m_file.Get(), m_bytes + m_byteEnd, sizeof m_bytes - m_byteEnd);
        m_byteEnd += count > 0 ? static_cast<std::size_t>(count) : 0;
        m_ended = count <= 0;
        m_error = count < 0 ? errno : 0;
    }
    if (!m_started) {
        m_started = true;
        SkipMark();
    }
    return m_byteEnd > left;
}

// Whether the bytes may be the beginning of an incomplete byte order mark.
bool Stream::MayBeginMark() const {
    const std::string_view bytes(m_bytes, m_byteEnd);
    return !m_mode.Binary() && m_byteEnd < kUtf8Mark.size() &&
           (kUtf8Mark.substr(0, m_byteEnd) == bytes ||
            (m_mode.find_mark && kUtf16Mark.substr(0, m_byteEnd) == bytes && m_byteEnd < 2));
}

void Stream::SkipMark() {
    if (m_mode.Binary()) {
        return;
    }
    const std::string_view bytes(m_bytes, m_byteEnd);
    if (bytes.substr(0, kUtf8Mark.size()) == kUtf8Mark) {
        m_bytePos = kUtf8Mark.size();
        if (m_mode.find_mark) {
            m_mode.encoding = OpenMode::Encoding::kUtf8;
        }
    } else if (m_mode.find_mark && bytes.substr(0, kUtf16Mark.size()) == kUtf16Mark) {
        m_bytePos = kUtf16Mark.size();
        m_mode.encoding = OpenMode::Encoding::kUtf16;
    }
}

// Decodes the next block of bytes. Call only when the block is empty. Returns false at the end of
// the file and on failure.
bool Stream::FillBlock() {
    const NoCancellation uncancelled;
    std::size_t count = 0;
    bool more = true;
    while (count == 0 && more) {
        more = FillBytes();
        const bool pairs = m_mode.encoding == OpenMode::Encoding::kUtf16 || m_mode.Binary();
        count = pairs ? DecodePairs() : DecodeText();
    }
    m_block.Fill(count, !m_mode.Binary());
    return count > 0;
}

std::size_t Stream::DecodeText() {
    if (!m_decoder) {
        if (m_bytePos == m_byteEnd) {
            return 0;
        }
        const bool utf8 = m_mode.encoding == OpenMode::Encoding::kUtf8;
        try {
            m_decoder.emplace(utf8 ? kCodePageUtf8 : system_code_page());
        } catch (const std::bad_alloc &) {
            Stop();
            m_error = ENOMEM;
            return 0;
        }
    }
    const std::size_t count = m_byteEnd - m_bytePos;
    return m_decoder->Decode(m_bytes + std::exchange(m_bytePos, m_byteEnd), count, m_ended,
                             m_block.Buffer());
}

// Decodes two bytes to a unit, low byte first. An odd byte waits for the next block. At the end of
// the file an odd byte gives U+FFFD in text and is dropped in a binary file.
std::size_t Stream::DecodePairs() {
    WCHAR *const units = m_block.Buffer();
    std::size_t count = 0;
    for (; m_bytePos + 2 <= m_byteEnd; m_bytePos += 2) {
        const auto low = static_cast<unsigned char>(m_bytes[m_bytePos]);
        const auto high = static_cast<unsigned char>(m_bytes[m_bytePos + 1]);
        units[count++] = static_cast<WCHAR>(high << 8 | low);
    }
    if (m_ended && m_bytePos < m_byteEnd) {
        m_bytePos = m_byteEnd;
        if (!m_mode.Binary()) {
            units[count++] = 0xFFFD;
        }
    }
    return count;
}

// Ends the text and discards all units and bytes that were read: at a Ctrl-Z, or when memory for
// the decoder is missing.
void Stream::Stop() {
    m_ended = true;
    m_bytePos = m_byteEnd;
    m_block.Clear();
    m_decoder.reset();
}

WCHAR *Stream::ReadLine(WCHAR *line, std::size_t count) {
    return m_block.TakeLine(line, count) ? line : ReadRuns(line, count - 1);
}

// Reads a line that TakeLine has refused, run by run, for example a long line, one with a lone CR
// or one that continues in the next block.
WCHAR *Stream::ReadRuns(WCHAR *line, std::size_t capacity) {
    std::size_t length = 0;
    while (length < capacity) {
        if (m_block.Empty() && !FillBlock()) {
            if (m_error != 0) {
                errno = m_error;
                return nullptr;
            }
            if (std::exchange(m_heldReturn, false)) {
                line[length++] = u'\r';
            }
            break;
        }
        if (std::exchange(m_heldReturn, false) && m_block.Next() != u'\n') {
            line[length++] = u'\r';
            continue;
        }
        length += m_block.TakeRun(line + length, capacity - length);
        if (length == capacity || m_block.Empty()) {
            continue;
        }
        const WCHAR end = m_block.Take();
        if (end == u'\n') {
            line[length++] = end;
            break;
        }
        if (end == kCtrlZ) {
            Stop();
        } else if (m_block.Empty()) {
            m_heldReturn = true;
        } else if (m_block.Next() != u'\n') {
            line[length++] = end;
        }
    }
    line[length] = 0;
    return length > 0 || capacity == 0 ? line : nullptr;
}

std::ptrdiff_t Stream::ReadBytes(char *bytes, std::size_t capacity) {
    std::size_t stored = 0;
    while (stored < capacity) {
        if (m_bytePos == m_byteEnd) {
            // The first block may hold the mark alone, so that no byte is left to copy.
            if (stored > 0 || (!FillBytes() && m_ended)) {
                break;
            }
            continue;
        }
        const char byte = m_bytes[m_bytePos++];
        if (!m_mode.Binary() && byte == kCtrlZ) {
            Stop();
        } else if (!m_mode.Binary() && byte == '\r' && (m_bytePos < m_byteEnd || FillBytes()) &&
                   m_bytes[m_bytePos] == '\n') {
            continue;
        } else {
            bytes[stored++] = byte;
        }
    }
    if (stored == 0 && m_error != 0) {
        errno = m_error;
        return -1;
    }
    return static_cast<std::ptrdiff_t>(stored);
}

int Stream::WriteBytes(const char *bytes, std::size_t count) {
    if (m_mode.Binary()) {
        return write_all(m_file.Get(), bytes, count);
    }
    std::string text;
    text.reserve(count + count / 8);
    for (std::size_t i = 0; i < count; ++i) {
        if (bytes[i] == '\n') {
            text.push_back('\r');
        }
        text.push_back(bytes[i]);
    }
    return write_all(m_file.Get(), text.data(), text.size());
}

}  // namespace ostrel_platform
