#include <algorithm>

#include "ostrel/platform/base/ascii.h"
#include "ostrel/platform/registry.h"
#include "ostrel/platform/registry/registration_text.h"
#include "ostrel/platform/registry/registry_roots.h"
#include "ostrel/platform/registry/utf16_bytes.h"
#include "ostrel/platform/text/charset.h"
#include "ostrel/platform/text/utf8.h"

namespace ostrel_platform {
namespace {

using Text = std::u16string_view;
using Kind = RegistrationOperation::Kind;

constexpr Text kHeader = TEXT("Windows Registry Editor Version 5.00");
constexpr Text kOldHeader = TEXT("REGEDIT4");
constexpr std::string_view kOldHeaderBytes = "REGEDIT4";

// Returns the number of bytes before the first that is not part of valid UTF-8.
std::size_t sound_utf8_length(std::string_view bytes) {
    std::size_t at = 0;
    while (at < bytes.size()) {
        const auto *const lead = reinterpret_cast<const unsigned char *>(bytes.data()) + at;
        const std::size_t length = utf8_length(*lead);
        const bool is_broken =
            length == 1 ? *lead >= 0x80 : utf8_sound_length(lead, bytes.size() - at) < length;
        if (is_broken) {
            return at;
        }
        at += length;
    }
    return at;
}

template <class Content>
std::size_t line_breaks(const Content &content, std::size_t length) {
    return static_cast<std::size_t>(
        std::count(content.begin(), content.begin() + static_cast<std::ptrdiff_t>(length), '\n'));
}

// Decodes bytes in a code page. When some bytes are no text in the code page, throws a
// RegistrationFault in the line that contains them; the bytes begin in line `line`.
std::u16string decode(std::string_view bytes, unsigned code_page, std::size_t line) {
    static constexpr char kReason[] = "some bytes are no text in the encoding of the file";
    if (code_page == kCodePageUtf8) {
        const std::size_t sound = sound_utf8_length(bytes);
        if (sound != bytes.size()) {
            throw RegistrationFault{line + line_breaks(bytes, sound), kReason};
        }
        return to_wide(bytes, code_page);
    }
    std::u16string text = to_wide(bytes, code_page);
    const std::size_t broken = text.find(u'\uFFFD');
    if (broken != text.npos) {
        throw RegistrationFault{line + line_breaks(text, broken), kReason};
    }
    return text;
}

// Decodes a file by its mark and its first line. Throws a RegistrationFault.
std::u16string decode_file(std::string_view bytes) {
    constexpr std::string_view kUtf16Mark = "\xFF\xFE", kUtf8Mark = "\xEF\xBB\xBF";
    if (bytes.starts_with(kUtf16Mark)) {
        std::u16string text = utf16_of_bytes(bytes.substr(kUtf16Mark.size()));
        if (bytes.size() % 2 != 0) {
            throw RegistrationFault{1 + line_breaks(text, text.size()),
                                    "the file ends within a character"};
        }
        return text;
    }
    if (bytes.starts_with(kUtf8Mark)) {
        return decode(bytes.substr(kUtf8Mark.size()), kCodePageUtf8, 1);
    }
    const bool is_old = bytes.starts_with(kOldHeaderBytes);
    return decode(bytes, is_old ? system_code_page() : kCodePageUtf8, 1);
}

// Parses a decoded text, one operation at a time. Throws a RegistrationFault.
class Parser {
public:
    explicit Parser(Text text) : m_text(text) { ReadHeader(); }

    // Stores the next operation. Returns false at the end of the text.
    bool Next(RegistrationOperation *operation) {
        while (SkipBlanks(), !IsAtEnd()) {
            switch (Peek()) {
                case u'[':
                    ReadKey(operation);
                    return true;
                case u'"':
                case u'@':
                    ReadValue(operation);
                    return true;
                default:
                    EndLine("a line begins with none of [ \" @ ;");
            }
        }
        return false;
    }

private:
    bool IsAtEnd() const { return m_at == m_text.size(); }

    // Returns the next unit, or a NUL at the end.
    WCHAR Peek() const { return IsAtEnd() ? u'\0' : m_text[m_at]; }

    bool Skip(WCHAR unit) {
        const bool is_there = !IsAtEnd() && m_text[m_at] == unit;
        m_at += is_there;
        return is_there;
    }

    [[noreturn]] void Fail(const char *reason) const { throw RegistrationFault{m_line, reason}; }

    void Expect(WCHAR unit, const char *reason) {
        if (!Skip(unit)) {
            Fail(reason);
        }
    }

    void SkipBlanks() {
        while (Skip(u' ') || Skip(u'\t')) {
        }
    }

    // Skips blanks, a comment and the end of the line. Fails with `reason` at anything else.
    void EndLine(const char *reason) {
        SkipBlanks();
        if (Peek() == u';') {
            m_at = std::min(m_text.find(u'\n', m_at), m_text.size());
        }
        Skip(u'\r');
        if (!IsAtEnd()) {
            Expect(u'\n', reason);
            ++m_line;
        }
    }

    void ReadHeader() {
        static constexpr char kReason[] =
            "the first line is neither \"Windows Registry Editor Version 5.00\" nor \"REGEDIT4\"";
        m_isOld = m_text.starts_with(kOldHeader);
        if (!m_isOld && !m_text.starts_with(kHeader)) {
            Fail(kReason);
        }
        m_at = m_isOld ? kOldHeader.size() : kHeader.size();
        EndLine(kReason);
    }

    void ReadKey(RegistrationOperation *operation) {
        const Text line = m_text.substr(m_at, m_text.find(u'\n', m_at) - m_at);
        const std::size_t end = line.rfind(u']');
        if (end == line.npos) {
            Fail("a key's name has no ] at its end");
        }
        Text path = line.substr(1, end - 1);
        m_isKeyOpen = !path.starts_with(u'-');
        path.remove_prefix(m_isKeyOpen ? 0 : 1);
        *operation = {};
        operation->kind = m_isKeyOpen ? Kind::kKey : Kind::kDeleteKey;
        ReadPath(path, operation);
        if (!m_isKeyOpen && operation->name.empty()) {
            Fail("a root cannot be deleted");
        }
        m_hadKey = true;
        m_at += end + 1;
        EndLine("something other than a comment follows a key's name");
    }

    void ReadPath(Text path, RegistrationOperation *operation) const {
        const std::size_t slash = std::min(path.find(u'\\'), path.size());
        const RegistryRoot *const root = root_of_name(path.substr(0, slash));
        if (root == nullptr) {
            Fail("a key's name does not begin with the full name of a root");
        }
        operation->root = root->number;
        path.remove_prefix(std::min(slash + 1, path.size()));
        if (path.ends_with(u'\\')) {
            path.remove_suffix(1);
            if (path.empty()) {
                Fail("a key's name has an empty part");
            }
        }
        CheckParts(path);
        operation->name = path;
    }

    void CheckParts(Text path) const {
        if (path.find(u'\0') != path.npos) {
            Fail("a name contains a NUL");
        }
        for (bool is_last = path.empty(); !is_last;) {
            const std::size_t slash = path.find(u'\\');
            const Text part = path.substr(0, slash);
            if (part.empty()) {
                Fail("a key's name has an empty part");
            }
            if (part.size() > kMaxKeyName) {
                Fail("a part of a key's name has more than 256 characters");
            }
            is_last = slash == path.npos;
            path.remove_prefix(is_last ? path.size() : slash + 1);
        }
    }

    void ReadValue(RegistrationOperation *operation) {
        if (!m_isKeyOpen) {
            Fail(m_hadKey ? "a value stands under a deleted key" : "a value stands above any key");
        }
        *operation = {};
        operation->kind = Kind::kValue;
        if (!Skip(u'@')) {
            operation->name = ReadQuoted();
            if (operation->name.size() > kMaxValueName) {
                Fail("a value's name has more than 16383 characters");
            }
        }
        SkipBlanks();
        Expect(u'=', "no = follows a value's name");
        SkipBlanks();
        if (Skip(u'-')) {
            operation->kind = Kind::kDeleteValue;
        } else {
            ReadData(operation);
        }
        EndLine("a value's data is damaged, or something other than a comment follows");
    }

    // Reads a text between quotes, which may span lines.
    std::u16string ReadQuoted() {
        const std::size_t first_line = m_line;
        std::u16string quoted;
        for (++m_at;; ++m_at) {
            const std::size_t end = m_text.find_first_of(TEXT("\"\\"), m_at);
            if (end == m_text.npos) {
                m_line = first_line;
                Fail("a quoted text has no end");
            }
            const Text run = m_text.substr(m_at, end - m_at);
            if (run.find(u'\0') != run.npos) {
                Fail("a quoted text contains a NUL");
            }
            quoted += run;
            m_line += static_cast<std::size_t>(std::count(run.begin(), run.end(), u'\n'));
            m_at = end + 1;
            if (m_text[end] == u'"') {
                return quoted;
            }
            if (Peek() != u'\\' && Peek() != u'"') {
                Fail("a backslash in a quoted text precedes neither \\ nor \"");
            }
            quoted += Peek();
        }
    }

    void ReadData(RegistrationOperation *operation) {
        if (Peek() == u'"') {
            operation->type = REG_SZ;
            std::u16string text = ReadQuoted();
            text.push_back(u'\0');
            append_utf16_bytes(text, &operation->bytes);
        } else if (SkipWord(TEXT("dword:"))) {
            operation->type = REG_DWORD;
            const DWORD number = ReadNumber();
            for (int shift = 0; shift < 32; shift += 8) {
                operation->bytes.push_back(static_cast<char>(number >> shift & 0xFF));
            }
        } else if (SkipWord(TEXT("hex:"))) {
            operation->type = REG_BINARY;
            ReadBytes(operation);
        } else if (SkipWord(TEXT("hex("))) {
            operation->type = ReadNumber();
            Expect(u')', "no ) follows the number of a type");
            Expect(u':', "no : follows the number of a type");
            ReadBytes(operation);
        } else {
            Fail("a value's data begins with none of \" dword: hex: hex( -");
        }
    }

    bool SkipWord(Text word) {
        const bool is_there = is_same_name(m_text.substr(m_at, word.size()), word);
        m_at += is_there ? word.size() : 0;
        return is_there;
    }

    int PeekDigit() const { return digit_value(Peek()); }

    DWORD ReadNumber() {
        const std::size_t first = m_at;
        DWORD number = 0;
        for (; PeekDigit() < 16; ++m_at) {
            number = number << 4 | static_cast<DWORD>(PeekDigit());
        }
        if (m_at == first || m_at - first > 8) {
            Fail("a number has not one to eight hexadecimal digits");
        }
        return number;
    }

    void ReadBytes(RegistrationOperation *operation) {
        const std::size_t first_line = m_line;
        std::string *const bytes = &operation->bytes;
        SkipContinuation();
        for (bool is_more = PeekDigit() < 16; is_more;) {
            bytes->push_back(ReadByte());
            SkipBlanks();
            is_more = Skip(u',');
            if (is_more) {
                SkipContinuation();
            }
        }
        const DWORD type = operation->type;
        if (m_isOld && (type == REG_SZ || type == REG_EXPAND_SZ || type == REG_MULTI_SZ)) {
            const std::u16string text = decode(*bytes, system_code_page(), first_line);
            bytes->clear();
            append_utf16_bytes(text, bytes);
        }
    }

    char ReadByte() {
        int byte = PeekDigit();
        if (byte >= 16) {
            Fail("no byte follows a comma");
        }
        ++m_at;
        if (PeekDigit() < 16) {
            byte = byte << 4 | PeekDigit();
            ++m_at;
        }
        return static_cast<char>(byte);
    }

    // Skips blanks, and the ends of lines that a backslash continues.
    void SkipContinuation() {
        SkipBlanks();
        while (Skip(u'\\')) {
            EndLine("something other than a comment follows the backslash at the end of a line");
            if (IsAtEnd()) {
                Fail("the file ends in a line that is to be continued");
            }
            SkipBlanks();
        }
    }

    const Text m_text;
    std::size_t m_at = 0;
    std::size_t m_line = 1;
    bool m_isOld = false;
    bool m_hadKey = false;
    bool m_isKeyOpen = false;
};

}  // namespace

std::optional<RegistrationFault> read_registration_text(
    std::string_view bytes, const std::function<bool(const RegistrationOperation &)> &take) {
    std::u16string text;
    RegistrationOperation operation;
    try {
        text = decode_file(bytes);
        for (Parser parser(text); parser.Next(&operation);) {
        }
    } catch (const RegistrationFault &fault) {
        return fault;
    }
    for (Parser parser(text); parser.Next(&operation) && take(operation);) {
    }
    return std::nullopt;
}

}  // namespace ostrel_platform
