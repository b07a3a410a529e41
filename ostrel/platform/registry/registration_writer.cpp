#include "ostrel/platform/registry.h"
#include "ostrel/platform/registry/registration_text.h"
#include "ostrel/platform/registry/registry_roots.h"
#include "ostrel/platform/registry/utf16_bytes.h"

namespace ostrel_platform {
namespace {

using Text = std::u16string_view;
using Kind = RegistrationOperation::Kind;

constexpr std::size_t kMaxColumn = 80;

constexpr WCHAR kDigits[] = TEXT("0123456789abcdef");

// Appends units to a text as UTF-16LE, and counts the columns of the line.
class Line {
public:
    explicit Line(std::string *text) : m_text(text) {}

    void Add(WCHAR unit) {
        append_utf16_bytes(unit, m_text);
        ++m_column;
    }

    void Add(Text units) {
        for (const WCHAR unit : units) {
            Add(unit);
        }
    }

    void AddQuoted(Text units) {
        Add(u'"');
        for (const WCHAR unit : units) {
            if (unit == u'"' || unit == u'\\') {
                Add(u'\\');
            }
            Add(unit);
        }
        Add(u'"');
    }

    // Adds the last `digits` hexadecimal digits of a number.
    void AddNumber(DWORD number, int digits) {
        for (int shift = 4 * (digits - 1); shift >= 0; shift -= 4) {
            Add(kDigits[number >> shift & 15]);
        }
    }

    // Continues in a new line when the room left does not take a byte, a comma and a backslash.
    void Fold() {
        constexpr std::size_t kRoom = 4;
        if (m_column + kRoom > kMaxColumn) {
            Add(TEXT("\\\r\n"));
            m_column = 0;
            Add(TEXT("  "));
        }
    }

    void End() { Add(TEXT("\r\n")); }

private:
    std::string *const m_text;
    std::size_t m_column = 0;
};

// Returns the text of a REG_SZ without its NUL. Returns nothing when the text has to be written as
// bytes.
std::optional<std::u16string> plain_text(std::string_view bytes) {
    std::u16string text = utf16_of_bytes(bytes);
    if (bytes.size() % 2 != 0 || !text.ends_with(u'\0')) {
        return std::nullopt;
    }
    text.pop_back();
    constexpr Text kUnsafe(TEXT("\0\r\n"), 3);
    return text.find_first_of(kUnsafe) == text.npos ? std::optional(text) : std::nullopt;
}

DWORD dword_of(std::string_view bytes) {
    const std::u16string units = utf16_of_bytes(bytes);
    return static_cast<DWORD>(units[0] | DWORD{units[1]} << 16);
}

void add_bytes(const RegistrationOperation &operation, Line *line) {
    if (operation.type == REG_BINARY) {
        line->Add(TEXT("hex:"));
    } else {
        int digits = 1;
        while (digits < 8 && operation.type >> 4 * digits != 0) {
            ++digits;
        }
        line->Add(TEXT("hex("));
        line->AddNumber(operation.type, digits);
        line->Add(TEXT("):"));
    }
    for (std::size_t i = 0; i < operation.bytes.size(); ++i) {
        if (i > 0) {
            line->Add(u',');
            line->Fold();
        }
        line->AddNumber(static_cast<unsigned char>(operation.bytes[i]), 2);
    }
}

void add_data(const RegistrationOperation &operation, Line *line) {
    const std::optional<std::u16string> text =
        operation.type == REG_SZ ? plain_text(operation.bytes) : std::nullopt;
    if (text) {
        line->AddQuoted(*text);
    } else if (operation.type == REG_DWORD && operation.bytes.size() == 4) {
        line->Add(TEXT("dword:"));
        line->AddNumber(dword_of(operation.bytes), 8);
    } else {
        add_bytes(operation, line);
    }
}

void add_value(const RegistrationOperation &operation, Line *line) {
    if (operation.name.empty()) {
        line->Add(u'@');
    } else {
        line->AddQuoted(operation.name);
    }
    line->Add(u'=');
    if (operation.kind == Kind::kDeleteValue) {
        line->Add(u'-');
    } else {
        add_data(operation, line);
    }
    line->End();
}

void add_key(const RegistrationOperation &operation, Text root, Line *line) {
    line->End();  // an empty line
    line->Add(operation.kind == Kind::kDeleteKey ? Text(TEXT("[-")) : Text(TEXT("[")));
    line->Add(root);
    if (!operation.name.empty()) {
        line->Add(u'\\');
        line->Add(operation.name);
    }
    line->Add(u']');
    line->End();
}

}  // namespace

void append_registration_begin(std::string *text) {
    Line(text).Add(TEXT("\uFEFFWindows Registry Editor Version 5.00\r\n"));
}

bool append_registration(const RegistrationOperation &operation, std::string *text) {
    if (operation.name.find(u'\0') != operation.name.npos) {
        return false;
    }
    Line line(text);
    if (operation.kind == Kind::kValue || operation.kind == Kind::kDeleteValue) {
        add_value(operation, &line);
        return true;
    }
    const RegistryRoot *const root = root_of_number(operation.root);
    if (root == nullptr || operation.name.find(u'\n') != operation.name.npos) {
        return false;
    }
    add_key(operation, root->name, &line);
    return true;
}

void append_registration_end(std::string *text) {
    Line(text).End();
}

}  // namespace ostrel_platform
