#include "ostrel/platform/registry/programs/reg_text.h"

#include <algorithm>
#include <charconv>
#include <optional>
#include <vector>

#include "ostrel/platform/base/ascii.h"
#include "ostrel/platform/registry.h"
#include "ostrel/platform/registry/programs/reg_options.h"
#include "ostrel/platform/registry/utf16_bytes.h"
#include "ostrel/platform/text/charset.h"

namespace ostrel_platform {
namespace {

constexpr struct {
    std::string_view name;
    DWORD type;
} kTypes[] = {
    {"REG_NONE", REG_NONE},
    {"REG_SZ", REG_SZ},
    {"REG_EXPAND_SZ", REG_EXPAND_SZ},
    {"REG_BINARY", REG_BINARY},
    {"REG_DWORD", REG_DWORD},
    {"REG_DWORD_LITTLE_ENDIAN", REG_DWORD},
    {"REG_DWORD_BIG_ENDIAN", REG_DWORD_BIG_ENDIAN},
    {"REG_LINK", REG_LINK},
    {"REG_MULTI_SZ", REG_MULTI_SZ},
    {"REG_RESOURCE_LIST", REG_RESOURCE_LIST},
    {"REG_FULL_RESOURCE_DESCRIPTOR", REG_FULL_RESOURCE_DESCRIPTOR},
    {"REG_RESOURCE_REQUIREMENTS_LIST", REG_RESOURCE_REQUIREMENTS_LIST},
    {"REG_QWORD", REG_QWORD},
    {"REG_QWORD_LITTLE_ENDIAN", REG_QWORD},
};

bool is_high(WCHAR unit) {
    return (unit & 0xFC00) == 0xD800;
}

bool is_low(WCHAR unit) {
    return (unit & 0xFC00) == 0xDC00;
}

// Whether unit `i` is a surrogate without its other half.
bool is_lone(std::u16string_view text, std::size_t i) {
    return is_high(text[i])  ? i + 1 == text.size() || !is_low(text[i + 1])
           : is_low(text[i]) ? i == 0 || !is_high(text[i - 1])
                             : false;
}

// What a terminal would act upon: control characters, and those that end lines or set the direction
// of text (Unicode, Bidi_Control).
bool is_control(WCHAR unit) {
    return unit < 0x20 || (unit >= 0x7F && unit < 0xA0) || unit == 0x061C || unit == 0x200E ||
           unit == 0x200F || (unit >= 0x2028 && unit <= 0x202E) ||
           (unit >= 0x2066 && unit <= 0x2069) || unit == 0xFEFF;
}

bool has_hidden(std::u16string_view text) {
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (is_control(text[i]) || is_lone(text, i)) {
            return true;
        }
    }
    return false;
}

std::string in_utf8(std::u16string_view text) {
    return to_narrow(text, kCodePageUtf8);
}

// Finds the three bytes that a surrogate's number has in the form of UTF-8. Returns npos when there
// are none.
std::size_t find_surrogate(std::string_view text) {
    for (std::size_t at = text.find('\xED'); at < text.size(); at = text.find('\xED', at + 1)) {
        if (text.size() - at >= 3 && (text[at + 1] & 0xE0) == 0xA0 &&
            (text[at + 2] & 0xC0) == 0x80) {
            return at;
        }
    }
    return text.npos;
}

// Both forms of quotes are those of JSON.
std::string quoted(std::u16string_view text) {
    constexpr char kDigits[] = "0123456789abcdef";
    std::u16string result = TEXT("\"");
    for (std::size_t i = 0; i < text.size(); ++i) {
        const WCHAR unit = text[i];
        const std::u16string_view letters = TEXT("\n\r\t"), names = TEXT("nrt");
        const std::size_t letter = letters.find(unit);
        if (unit == u'"' || unit == u'\\') {
            result += {u'\\', unit};
        } else if (letter != letters.npos) {
            result += {u'\\', names[letter]};
        } else if (is_control(unit) || is_lone(text, i)) {
            result += TEXT("\\u");
            for (int shift = 12; shift >= 0; shift -= 4) {
                result += static_cast<WCHAR>(kDigits[unit >> shift & 15]);
            }
        } else {
            result += unit;
        }
    }
    return in_utf8(result + u'"');
}

std::string hex_of(std::string_view bytes) {
    constexpr char kDigits[] = "0123456789ABCDEF";
    std::string text;
    text.reserve(2 * bytes.size());
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        text += {kDigits[byte >> 4], kDigits[byte & 15]};
    }
    return text;
}

std::string in_hex(std::uint64_t number) {
    char digits[16];
    const auto result = std::to_chars(digits, digits + sizeof digits, number, 16);
    return "0x" + std::string(digits, static_cast<std::size_t>(result.ptr - digits));
}

// Returns the bytes of a number, the lowest first.
std::string bytes_of_number(std::uint64_t number, std::size_t size) {
    std::string bytes;
    for (; size > 0; --size, number >>= 8) {
        bytes.push_back(static_cast<char>(number & 0xFF));
    }
    return bytes;
}

// Returns the number in the bytes of a type, when it is a type of numbers and has its size.
std::optional<std::uint64_t> number_in(DWORD type, std::string_view bytes) {
    const std::size_t size = type == REG_QWORD                                   ? 8
                             : type == REG_DWORD || type == REG_DWORD_BIG_ENDIAN ? 4
                                                                                 : 0;
    if (size == 0 || bytes.size() != size) {
        return std::nullopt;
    }
    std::uint64_t number = 0;
    for (std::size_t i = 0; i < size; ++i) {
        const std::size_t at = type == REG_DWORD_BIG_ENDIAN ? i : size - 1 - i;
        number = number << 8 | static_cast<unsigned char>(bytes[at]);
    }
    return number;
}

// Returns the texts in the bytes of a type, when it is a type of text and the bytes end as the type
// asks: one text for REG_SZ and REG_EXPAND_SZ.
std::optional<std::vector<std::u16string>> texts_in(DWORD type, std::string_view bytes) {
    std::u16string units = utf16_of_bytes(bytes);
    const bool is_text = type == REG_SZ || type == REG_EXPAND_SZ;
    if ((!is_text && type != REG_MULTI_SZ) || bytes.size() % 2 != 0 || !units.ends_with(u'\0')) {
        return std::nullopt;
    }
    units.pop_back();
    std::vector<std::u16string> texts;
    if (is_text) {
        if (units.find(u'\0') != units.npos) {
            return std::nullopt;
        }
        texts.push_back(std::move(units));
        return texts;
    }
    while (!units.empty()) {
        const std::size_t end = units.find(u'\0');
        if (end == 0 || end == units.npos) {
            return std::nullopt;
        }
        texts.push_back(units.substr(0, end));
        units.erase(0, end + 1);
    }
    return texts;
}

std::uint64_t number_of(std::string_view text, std::uint64_t limit) {
    const bool is_hex = text.starts_with("0x") || text.starts_with("0X");
    const std::string_view digits = text.substr(is_hex ? 2 : 0);
    std::uint64_t number = 0;
    const char *const end = digits.data() + digits.size();
    const auto [behind, error] = std::from_chars(digits.data(), end, number, is_hex ? 16 : 10);
    if (error != std::errc() || behind != end || number > limit) {
        throw RegFailure{"Invalid number: " + printed(from_shell(text))};
    }
    return number;
}

std::string bytes_of_hex(std::string_view digits) {
    std::string bytes;
    for (std::size_t i = 0; i + 1 < digits.size(); i += 2) {
        const int high = digit_value(digits[i]), low = digit_value(digits[i + 1]);
        if (high < 16 && low < 16) {
            bytes.push_back(static_cast<char>(high << 4 | low));
        }
    }
    if (2 * bytes.size() != digits.size()) {
        throw RegFailure{"The data is not an even number of hexadecimal digits."};
    }
    return bytes;
}

std::string bytes_of_texts(std::u16string_view data, std::u16string_view separator) {
    if (separator.empty()) {
        throw RegFailure{"The separator is empty."};
    }
    std::string bytes;
    while (!data.empty()) {
        const std::size_t end = std::min(data.find(separator), data.size());
        if (end == 0) {
            throw RegFailure{"A REG_MULTI_SZ holds no empty text."};
        }
        append_utf16_bytes(data.substr(0, end), &bytes);
        append_utf16_bytes(u'\0', &bytes);
        data.remove_prefix(std::min(end + separator.size(), data.size()));
    }
    append_utf16_bytes(u'\0', &bytes);
    return bytes;
}

}  // namespace

std::u16string from_shell(std::string_view argument) {
    std::u16string text;
    for (;;) {
        const std::size_t at = find_surrogate(argument);
        const std::string_view plain = argument.substr(0, at);
        const std::u16string decoded = to_wide(plain, kCodePageUtf8);
        if (in_utf8(decoded) != plain) {
            throw RegFailure{"An argument is no UTF-8."};
        }
        text += decoded;
        if (at == argument.npos) {
            return text;
        }
        text +=
            static_cast<WCHAR>(0xD000 | (argument[at + 1] & 0x3F) << 6 | (argument[at + 2] & 0x3F));
        argument.remove_prefix(at + 3);
    }
}

std::string printed(std::u16string_view text) {
    const bool is_plain = !text.starts_with(u'"') && !text.starts_with(u' ') &&
                          !text.ends_with(u' ') && text.find(TEXT("    ")) == text.npos &&
                          !has_hidden(text);
    return is_plain ? in_utf8(text) : quoted(text);
}

std::string json_string(std::u16string_view text) {
    return quoted(text);
}

std::string name_of_type(DWORD type) {
    for (const auto &known : kTypes) {
        if (known.type == type) {
            return std::string(known.name);
        }
    }
    return in_hex(type);
}

DWORD type_of_name(std::string_view name) {
    for (const auto &known : kTypes) {
        if (std::equal(name.begin(), name.end(), known.name.begin(), known.name.end(),
                       [](char a, char b) { return to_upper(a) == to_upper(b); })) {
            return known.type;
        }
    }
    if (name.empty() || !is_digit(name.front())) {
        throw RegFailure{"Invalid type: " + printed(from_shell(name))};
    }
    return static_cast<DWORD>(number_of(name, 0xFFFFFFFF));
}

std::string bytes_of_data(DWORD type, std::string_view data, std::string_view separator) {
    switch (type) {
        case REG_SZ:
        case REG_EXPAND_SZ: {
            std::string bytes;
            append_utf16_bytes(from_shell(data) + u'\0', &bytes);
            return bytes;
        }
        case REG_MULTI_SZ:
            return bytes_of_texts(from_shell(data), from_shell(separator));
        case REG_DWORD:
        case REG_DWORD_BIG_ENDIAN: {
            std::string bytes = bytes_of_number(data.empty() ? 0 : number_of(data, 0xFFFFFFFF), 4);
            if (type == REG_DWORD_BIG_ENDIAN) {
                std::reverse(bytes.begin(), bytes.end());
            }
            return bytes;
        }
        case REG_QWORD:
            return bytes_of_number(data.empty() ? 0 : number_of(data, UINT64_MAX), 8);
        default:
            return bytes_of_hex(data);
    }
}

std::string printed_data(DWORD type, std::string_view bytes, std::string_view separator) {
    if (const std::optional<std::uint64_t> number = number_in(type, bytes)) {
        return in_hex(*number);
    }
    const std::optional<std::vector<std::u16string>> texts = texts_in(type, bytes);
    if (!texts) {
        return hex_of(bytes);
    }
    std::string result;
    for (const std::u16string &text : *texts) {
        result += &text == texts->data() ? "" : separator;
        result += has_hidden(text) ? quoted(text) : in_utf8(text);
    }
    return result;
}

std::string json_data(DWORD type, std::string_view bytes) {
    std::string result = "\"type\": \"" + name_of_type(type) + "\", ";
    const std::optional<std::vector<std::u16string>> texts = texts_in(type, bytes);
    if (const std::optional<std::uint64_t> number = number_in(type, bytes)) {
        return result + "\"data\": " + std::to_string(*number);
    }
    if (!texts) {
        return result + "\"hex\": \"" + hex_of(bytes) + '"';
    }
    if (type != REG_MULTI_SZ) {
        return result + "\"data\": " + json_string(texts->front());
    }
    result += "\"data\": [";
    for (const std::u16string &text : *texts) {
        result += (&text == texts->data() ? "" : ", ") + json_string(text);
    }
    return result + ']';
}

}  // namespace ostrel_platform
