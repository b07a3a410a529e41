#include "ostrel/platform/profile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <optional>
#include <string>
#include <string_view>

#include "ostrel/platform/base/ascii.h"
#include "ostrel/platform/base/call_result.h"
#include "ostrel/platform/base/errno_code.h"
#include "ostrel/platform/crt_text.h"
#include "ostrel/platform/file/host_path.h"
#include "ostrel/platform/text/charset.h"

namespace {

using ostrel_platform::digit_value;

using Text = std::u16string_view;

constexpr Text kBlanks = TEXT(" \t\n\v\f\r");

Text trimmed_right(Text text) {
    return text.substr(0, text.find_last_not_of(kBlanks) + 1);
}

Text trimmed(Text text) {
    text.remove_prefix(std::min(text.find_first_not_of(kBlanks), text.size()));
    return trimmed_right(text);
}

Text unquoted(Text text) {
    const bool quoted = text.size() >= 2 && (text.front() == u'"' || text.front() == u'\'') &&
                        text.back() == text.front();
    return quoted ? text.substr(1, text.size() - 2) : text;
}

bool is_same_name(Text left, Text right) {
    return !left.empty() && ostrel_platform::is_same_name(left, right);
}

// Owns a regular file, open for reading. Anything else is the error EACCES.
class File {
public:
    // Opens a file. Does not wait, also not for a FIFO or a device.
    explicit File(const char *path) {
        struct stat facts;
        if (stat(path, &facts) == 0 && !S_ISREG(facts.st_mode)) {
            m_error = EACCES;  // not opened, because that affects the writer of a FIFO and a device
            return;
        }
        do {
            m_file = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
        } while (m_file < 0 && errno == EINTR);
        if (m_file < 0) {
            m_error = errno == ENXIO || errno == ENODEV ? EACCES : errno;
        } else if (fstat(m_file, &facts) != 0) {
            m_error = errno;
        } else if (!S_ISREG(facts.st_mode)) {
            m_error = EACCES;
        }
    }
    ~File() {
        if (m_file >= 0) {
            close(m_file);
        }
    }
    File(const File &) = delete;
    File &operator=(const File &) = delete;

    // Returns the errno of the first failure, or 0.
    int Error() const { return m_error; }

    // Reads `capacity` bytes, fewer only at the end of the file and on failure. Returns the bytes
    // stored.
    std::size_t Read(char *bytes, std::size_t capacity) {
        std::size_t stored = 0;
        while (stored < capacity && m_error == 0) {
            const ssize_t count = read(m_file, bytes + stored, capacity - stored);
            if (count == 0) {
                break;
            }
            if (count > 0) {
                stored += static_cast<std::size_t>(count);
            } else if (errno != EINTR) {
                m_error = errno;
            }
        }
        return stored;
    }

private:
    int m_file = -1;
    int m_error = 0;
};

// Reads the lines of a file, decoded, without their line feeds.
class LineReader {
public:
    explicit LineReader(File &file) : m_file(file) {}

    // Reads the next line, valid until the next call. Returns false behind the last line.
    bool Next(Text *line) {
        m_carried.clear();
        for (;;) {
            if (m_units.empty() && !Fill()) {
                *line = m_carried;
                return !m_carried.empty();
            }
            const std::size_t end = m_units.find(u'\n');
            const Text part = m_units.substr(0, end);
            m_units.remove_prefix(std::min(part.size() + 1, m_units.size()));
            if (end != Text::npos && m_carried.empty()) {
                *line = part;
                return true;
            }
            if (m_carried.size() + part.size() > kMaxLine) {
                m_tooLong = true;
                return false;
            }
            m_carried.append(part);
            if (end != Text::npos) {
                *line = m_carried;
                return true;
            }
        }
    }

    // Whether Next has met a line that is too long.
    bool TooLong() const { return m_tooLong; }

private:
    static constexpr std::size_t kMaxLine = std::size_t{4} << 20;  // in units
    // Even, so that no pair of bytes is cut.
    static constexpr std::size_t kBlock = std::size_t{8} << 10;

    bool Fill() {
        while (m_units.empty() && !m_ended) {
            std::string_view bytes(m_bytes, m_file.Read(m_bytes, kBlock));
            m_ended = bytes.size() < kBlock;
            if (!m_started) {
                m_started = true;
                bytes.remove_prefix(TakeMark(bytes));
            }
            m_units = Text(m_decoded, m_decoder ? m_decoder->Decode(bytes.data(), bytes.size(),
                                                                    m_ended, m_decoded)
                                                : DecodePairs(bytes));
        }
        return !m_units.empty();
    }

    // Selects the encoding by the byte order mark. Returns the bytes of the mark, 0 without one.
    std::size_t TakeMark(std::string_view bytes) {
        if (bytes.substr(0, 2) == "\xFF\xFE") {
            return 2;
        }
        const bool utf8 = bytes.substr(0, 3) == "\xEF\xBB\xBF";
        m_decoder.emplace(utf8 ? ostrel_platform::kCodePageUtf8
                               : ostrel_platform::system_code_page());
        return utf8 ? 3 : 0;
    }

    std::size_t DecodePairs(std::string_view bytes) {
        std::size_t units = 0;
        for (; bytes.size() >= 2; bytes.remove_prefix(2)) {
            const auto low = static_cast<unsigned char>(bytes[0]);
            const auto high = static_cast<unsigned char>(bytes[1]);
            m_decoded[units++] = static_cast<WCHAR>(high << 8 | low);
        }
        if (!bytes.empty()) {
            m_decoded[units++] = 0xFFFD;
        }
        return units;
    }

    File &m_file;
    bool m_started = false;
    bool m_ended = false;
    bool m_tooLong = false;
    std::optional<ostrel_platform::StreamDecoder> m_decoder;  // none for UTF-16
    Text m_units;              // the unread rest of the decoded block
    std::u16string m_carried;  // the beginning of a line that the block before cut
    char m_bytes[kBlock];
    WCHAR m_decoded[ostrel_platform::StreamDecoder::Capacity(kBlock)];
};

struct Line {
    enum class Kind { kNothing, kSection, kEntry };

    Kind kind = Kind::kNothing;
    Text name;   // of the section, or the key
    Text value;  // of the key
};

Line parsed(Text text) {
    text = trimmed(text.substr(0, text.find(u'\0')));
    if (text.empty() || text[0] == u';') {
        return {};
    }
    if (text[0] == u'[') {
        return {Line::Kind::kSection, trimmed(text.substr(1, text.find(u']') - 1)), {}};
    }
    const std::size_t equals = text.find(u'=');
    if (equals == Text::npos) {
        return {};
    }
    return {Line::Kind::kEntry, trimmed(text.substr(0, equals)),
            unquoted(trimmed(text.substr(equals + 1)))};
}

// Calls take(line) for each section and each entry, until `take` returns false. Returns 0, or an
// error code, also when `take` was called before the failure.
template <class Take>
DWORD for_each_line(const WCHAR *path, Take take) {
    return ostrel_platform::code_of_call([&]() -> DWORD {
        const std::optional<std::string> host =
            path != nullptr ? ostrel_platform::host_path(path) : std::nullopt;
        if (!host) {
            return ERROR_FILE_NOT_FOUND;
        }
        File file(host->c_str());
        LineReader lines(file);
        for (Text text; file.Error() == 0 && lines.Next(&text) && file.Error() == 0;) {
            const Line line = parsed(text);
            if (line.kind != Line::Kind::kNothing && !take(line)) {
                break;
            }
        }
        if (lines.TooLong()) {
            return ERROR_INVALID_DATA;
        }
        return file.Error() != 0 ? ostrel_platform::code_of_errno(file.Error()) : ERROR_SUCCESS;
    });
}

// Calls take(line), in the same way, for each entry of the first section with that name.
template <class Take>
DWORD for_each_entry(const WCHAR *path, Text section, Take take) {
    section = trimmed(section);
    bool inside = false;
    return for_each_line(path, [&](const Line &line) {
        if (line.kind == Line::Kind::kSection) {
            const bool left = inside;
            inside = is_same_name(line.name, section);
            return !left;
        }
        return !inside || take(line);
    });
}

DWORD find_value(const WCHAR *path, Text section, Text key, std::optional<std::u16string> *value) {
    key = trimmed(key);
    return for_each_entry(path, section, [&](const Line &line) {
        if (!is_same_name(line.name, key)) {
            return true;
        }
        value->emplace(line.value);
        return false;
    });
}

// A list of names, with a NUL behind each, for a buffer of `capacity` characters.
class NameList {
public:
    explicit NameList(DWORD capacity) : m_capacity(capacity) {}

    // Adds a name; ignores an empty one. Returns false when the list and its last NUL exceed the
    // capacity.
    bool Add(Text name) {
        if (!name.empty()) {
            m_names.append(name).push_back(u'\0');
        }
        return m_names.size() < m_capacity;
    }
    const std::u16string &Names() const { return m_names; }

private:
    std::size_t m_capacity;
    std::u16string m_names;
};

DWORD list_names(const WCHAR *path, const WCHAR *section, NameList *names) {
    if (section != nullptr) {
        return for_each_entry(path, section,
                              [names](const Line &line) { return names->Add(line.name); });
    }
    return for_each_line(path, [names](const Line &line) {
        return line.kind != Line::Kind::kSection || names->Add(line.name);
    });
}

// A buffer of the caller.
struct Target {
    WCHAR *buffer;
    std::size_t size;

    // Stores a text and `ends` NULs. Cuts a text that does not leave room for the NULs and sets the
    // last error to ERROR_MORE_DATA. `text` may lie in the buffer. Returns the characters stored,
    // without these NULs.
    DWORD Put(Text text, std::size_t ends) const {
        const std::size_t count = std::min(text.size(), size - std::min(size, ends));
        if (size > 0) {
            std::char_traits<WCHAR>::move(buffer, text.data(), count);
            std::fill_n(buffer + count, std::min(size - count, ends), u'\0');
        }
        if (count < text.size()) {
            SetLastError(ERROR_MORE_DATA);
        }
        return static_cast<DWORD>(count);
    }

    // Stores a list. `names` includes the first of the two last NULs, unless the list is empty or
    // cut.
    DWORD PutList(Text names) const {
        const bool fits = names.size() < size;
        return Put(names, fits && !names.empty() ? 1 : 2);
    }
};

// Returns the number at the start of a text, modulo 2^32.
unsigned number_in(const WCHAR *text) {
    while (*text != 0 && kBlanks.find(*text) != Text::npos) {
        ++text;
    }
    const bool negative = *text == u'-';
    text += negative || *text == u'+';
    unsigned value = 0;
    unsigned base = 10;
    if (text[0] == u'0' && (text[1] == u'x' || text[1] == u'X')) {
        base = 16;
        text += 2;
    }
    for (unsigned digit; (digit = static_cast<unsigned>(digit_value(*text))) < base; ++text) {
        value = value * base + digit;
    }
    return negative ? 0 - value : value;
}

}  // namespace

DWORD GetPrivateProfileStringW(const WCHAR *section, const WCHAR *key, const WCHAR *fallback,
                               WCHAR *buffer, DWORD size, const WCHAR *file) noexcept {
    const Target target{buffer, buffer != nullptr ? size : 0};
    const Text default_text =
        trimmed_right(fallback != nullptr ? Text(fallback, wcslen(fallback)) : Text());
    const bool lists = section == nullptr || key == nullptr;
    NameList names(size);
    std::optional<std::u16string> value;
    const DWORD error =
        lists ? list_names(file, section, &names) : find_value(file, section, key, &value);
    if (error != ERROR_SUCCESS) {
        const DWORD stored = target.Put(default_text, lists ? 2 : 1);
        SetLastError(error);
        return stored;
    }
    if (lists) {
        return target.PutList(names.Names());
    }
    return target.Put(value ? Text(*value) : default_text, 1);
}

unsigned GetPrivateProfileIntW(const WCHAR *section, const WCHAR *key, int fallback,
                               const WCHAR *file) noexcept {
    std::optional<std::u16string> value;
    if (section != nullptr && key != nullptr) {
        const DWORD error = find_value(file, section, key, &value);
        if (error != ERROR_SUCCESS) {
            SetLastError(error);
            return static_cast<unsigned>(fallback);
        }
    }
    return value ? number_in(value->c_str()) : static_cast<unsigned>(fallback);
}
