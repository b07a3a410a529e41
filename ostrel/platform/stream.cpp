#include "ostrel/platform/stream.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>
#include <utility>

#include "ostrel/platform/crt_text.h"
#include "ostrel/platform/host_descriptor.h"
#include "ostrel/platform/share_mode.h"

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace platform {
namespace {

constexpr char kCtrlZ = 0x1A;
constexpr std::string_view kUtf8Mark = "\xEF\xBB\xBF";
constexpr std::string_view kUtf16Mark = "\xFF\xFE";

ssize_t read_some(int file, char *bytes, std::size_t room) {
    ssize_t count;
    do {
        count = read(file, bytes, room);
    } while (count < 0 && errno == EINTR);
    return count;
}

bool write_all(int file, const char *bytes, std::size_t count) {
    while (count > 0) {
        const ssize_t written = write(file, bytes, count);
        if (written < 0 && errno != EINTR) {
            return false;
        }
        if (written > 0) {
            bytes += written;
            count -= static_cast<std::size_t>(written);
        }
    }
    return true;
}

constexpr bool ends_text_run(WCHAR c) {
    return c == u'\n' || c == u'\r' || c == kCtrlZ;
}

// Copies up to `count` units, short of the first that a text stream must look at, and gives their
// number. All of out[0..count) may be written to.
std::size_t copy_text_run(const WCHAR *in, std::size_t count, WCHAR *out) {
    std::size_t done = 0;
#ifdef __SSE2__
    const __m128i line_feed = _mm_set1_epi16('\n');
    const __m128i carriage_return = _mm_set1_epi16('\r');
    const __m128i ctrl_z = _mm_set1_epi16(kCtrlZ);
    const auto copy_block = [&](std::size_t at) {  // eight units, all bits of those that end a run
        const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i *>(in + at));
        _mm_storeu_si128(reinterpret_cast<__m128i *>(out + at), block);
        return _mm_or_si128(_mm_or_si128(_mm_cmpeq_epi16(block, line_feed),
                                         _mm_cmpeq_epi16(block, carriage_return)),
                            _mm_cmpeq_epi16(block, ctrl_z));
    };
    const auto copy_two = [&](std::size_t at) {  // a bit for each of sixteen units
        const __m128i ends = _mm_packs_epi16(copy_block(at), copy_block(at + 8));
        return static_cast<unsigned>(_mm_movemask_epi8(ends));
    };
    for (; done + 32 <= count; done += 32) {
        if (const unsigned mask = copy_two(done) | copy_two(done + 16) << 16) {
            return done + static_cast<std::size_t>(__builtin_ctz(mask));
        }
    }
#endif
    for (; done < count && !ends_text_run(in[done]); ++done) {
        out[done] = in[done];
    }
    return done;
}

// The same for a binary stream, on which a line feed alone ends a line.
std::size_t copy_binary_run(const WCHAR *in, std::size_t count, WCHAR *out) {
    const WCHAR *const end = std::find(in, in + count, u'\n');
    std::copy(in, end, out);
    return static_cast<std::size_t>(end - in);
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

// The rules that the host does not know. A file is emptied only when they allow the stream. Result:
// 0, or errno: ESTALE when the path leads to another file by now, or to none.
int complete_open(const char *path, SharingFile *file, const OpenMode &mode) {
    struct stat facts;
    if (fstat(file->Get(), &facts) != 0) {
        return errno;
    }
    if (S_ISDIR(facts.st_mode) || (!mode.Reads() && is_read_only(facts))) {
        return EACCES;
    }
    if (!S_ISREG(facts.st_mode)) {
        return 0;
    }
    const int refusal =
        file->Take(mode.Reads() ? kShareRead : kShareWrite, kShareRead | kShareWrite);
    if (!leads_to(path, facts)) {
        return ESTALE;
    }
    if (refusal != 0) {
        return EACCES;
    }
    return mode.access == 'w' && ftruncate(file->Get(), 0) != 0 ? errno : 0;
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
    const int flags = O_CREAT | (mode.access == 'a' ? O_APPEND : 0) | (mode.exclusive ? O_EXCL : 0);
    int failure = ESTALE;
    for (int turn = 0; failure == ESTALE && turn < kMostTurns; ++turn) {
        SharingFile file(mode.Reads() ? open_host(path, O_RDONLY)
                                      : open_host_to_write(path, flags));
        failure = file ? complete_open(path, &file, mode) : errno;
        if (failure == 0) {
            return std::unique_ptr<Stream>(new Stream(std::move(file), mode));
        }
    }
    errno = failure == EISDIR || failure == ESTALE ? EACCES : failure;
    return nullptr;
}

Stream::Stream(SharingFile file, const OpenMode &mode) : m_file(std::move(file)), m_mode(mode) {}

int Stream::Close() {
    const int failure = m_file.Close();
    errno = failure != 0 ? failure : errno;
    return failure != 0 ? -1 : 0;
}

// Reads bytes behind those that are left. False when none came.
bool Stream::FillBytes() {
    m_byteEnd -= m_bytePos;
    std::memmove(m_bytes, m_bytes + m_bytePos, m_byteEnd);
    m_bytePos = 0;

    const std::size_t left = m_byteEnd;
    while (!m_ended && (m_byteEnd == left || (!m_started && MayBeginMark()))) {
        const ssize_t count = read_some(m_file.Get(), m_bytes + m_byteEnd, kBlock - m_byteEnd);
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

// Whether the bytes are so few that a byte order mark may yet be made of them.
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

// Decodes the next block of bytes; only when all units have been used up.
bool Stream::FillUnits() {
    m_unitPos = m_unitEnd = 0;
    bool more = true;
    while (m_unitEnd == 0 && more) {
        more = FillBytes();
        const bool pairs = m_mode.encoding == OpenMode::Encoding::kUtf16 || m_mode.Binary();
        m_unitEnd = pairs ? DecodePairs() : DecodeText();
    }
    return m_unitEnd > 0;
}

std::size_t Stream::DecodeText() {
    if (!m_decoder) {
        const bool utf8 = m_mode.encoding == OpenMode::Encoding::kUtf8;
        m_decoder.emplace(utf8 ? kCodePageUtf8 : system_code_page());
    }
    const std::size_t count = m_byteEnd - m_bytePos;
    return m_decoder->Decode(m_bytes + std::exchange(m_bytePos, m_byteEnd), count, m_ended,
                             m_units);
}

// Two bytes a unit, low byte first. A byte that is left over waits for the next block; at the end
// it is broken text, and nothing in a binary file.
std::size_t Stream::DecodePairs() {
    std::size_t units = 0;
    for (; m_bytePos + 2 <= m_byteEnd; m_bytePos += 2) {
        const auto low = static_cast<unsigned char>(m_bytes[m_bytePos]);
        const auto high = static_cast<unsigned char>(m_bytes[m_bytePos + 1]);
        m_units[units++] = static_cast<WCHAR>(high << 8 | low);
    }
    if (m_ended && m_bytePos < m_byteEnd) {
        m_bytePos = m_byteEnd;
        if (!m_mode.Binary()) {
            m_units[units++] = 0xFFFD;
        }
    }
    return units;
}

// Nothing behind a Ctrl-Z is part of a text.
void Stream::Stop() {
    m_ended = true;
    m_bytePos = m_byteEnd;
    m_unitPos = m_unitEnd;
    m_decoder.reset();
}

std::size_t Stream::ReadLine(WCHAR *line, std::size_t room) {
    std::size_t length = 0;
    while (length < room) {
        if (m_unitPos == m_unitEnd && !FillUnits()) {
            if (m_error != 0) {
                errno = m_error;
                return 0;
            }
            if (std::exchange(m_heldReturn, false)) {
                line[length++] = u'\r';
            }
            break;
        }
        if (std::exchange(m_heldReturn, false) && m_units[m_unitPos] != u'\n') {
            line[length++] = u'\r';
            continue;
        }
        const std::size_t count = std::min(m_unitEnd - m_unitPos, room - length);
        const WCHAR *const units = m_units + m_unitPos;
        const std::size_t run = m_mode.Binary() ? copy_binary_run(units, count, line + length)
                                                : copy_text_run(units, count, line + length);
        m_unitPos += run;
        length += run;
        if (run == count) {
            continue;
        }
        const WCHAR end = m_units[m_unitPos++];
        if (end == u'\n') {
            line[length++] = end;
            break;
        }
        if (end == kCtrlZ) {
            Stop();
        } else if (m_unitPos == m_unitEnd) {
            m_heldReturn = true;
        } else if (m_units[m_unitPos] != u'\n') {
            line[length++] = end;
        }
    }
    return length;
}

std::ptrdiff_t Stream::ReadBytes(char *bytes, std::size_t room) {
    std::size_t stored = 0;
    while (stored < room) {
        if (m_bytePos == m_byteEnd) {
            // A block that holds the mark alone fills nothing.
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

bool Stream::WriteBytes(const char *bytes, std::size_t count) {
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

}  // namespace platform
