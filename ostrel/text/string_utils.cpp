#include "ostrel/text/string_utils.h"

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <string_view>

#include "ostrel/platform/crt_text.h"
#include "ostrel/platform/profile.h"
#include "ostrel/text/token_list.h"

namespace NS_StringUtils {
namespace {

constexpr std::size_t kMaxPathLength = 260;

// Shortens a string, whose buffer a call has filled, to its terminated text.
void end_at_nul(OS::x_wstring *text) {
    text->resize(wcslen(text->c_str()));
}

// Returns the value of an ASCII hexadecimal digit, or -1 for any other character.
constexpr int hex_digit(int c) {
    return c >= '0' && c <= '9'   ? c - '0'
           : c >= 'A' && c <= 'F' ? c - 'A' + 10
           : c >= 'a' && c <= 'f' ? c - 'a' + 10
                                  : -1;
}

// Returns the character for the two characters of an escape.
WCHAR decode_escape(const WCHAR *pair) {
    const int high = hex_digit(pair[0]);
    const int low = hex_digit(pair[1]);
    if (high >= 0 && low >= 0) {
        return static_cast<WCHAR>(high << 4 | low);
    }
    const WCHAR terminated[] = {pair[0], pair[1], 0};
    return static_cast<WCHAR>(wcstol(terminated, nullptr, 16));
}

unsigned char decode_byte(const char *pair) {
    const int high = hex_digit(pair[0]);
    const int low = hex_digit(pair[1]);
    if (high >= 0 && low >= 0) {
        return static_cast<unsigned char>(high << 4 | low);
    }
    const char terminated[] = {pair[0], pair[1], '\0'};
    return static_cast<unsigned char>(std::strtoul(terminated, nullptr, 16));
}

bool fits_format(WCHAR format, WCHAR character) {
    switch (format) {
        case u'C':
        case u'c':
            return iswalpha(character) != 0;
        case u'D':
        case u'd':
            return iswdigit(character) != 0;
        case u'X':
        case u'x':
            return iswalnum(character) != 0;
        default:
            return character == format;
    }
}

}  // namespace

bool SCharIndentifier::operator()(WCHAR /*character*/) const {
    return true;
}

bool SAlphaDigitIndentifier::operator()(WCHAR character) const {
    return iswalpha(character) || iswdigit(character);
}

bool SFilenameIndentifier::operator()(WCHAR character) const {
    return IsValidCharacter(character);
}

const WCHAR *SFilenameIndentifier::GetInvalidCharacters() {
    return TEXT("\\/:#?\\x22<>|,.");
}

bool SFilenameIndentifier::IsValidCharacter(WCHAR character) {
    for (const WCHAR *invalid = GetInvalidCharacters(); *invalid != 0; ++invalid) {
        if (*invalid == character) {
            return false;
        }
    }
    return character != 0;
}

OS::x_wstring SCharAdapter::operator()(const OS::x_wstring &word) const {
    return word;
}

OS::x_wstring SFileExtensionAdapter::operator()(const OS::x_wstring &word) const {
    OS::x_wstring valid(word);
    collect(valid.c_str(), SFilenameIndentifier(), valid.data());
    end_at_nul(&valid);
    return valid;
}

const WCHAR *SFileExtensionAdapter::GetInvalidCharacters() {
    return SFilenameIndentifier::GetInvalidCharacters();
}

void collect(const WCHAR *text, const SCharIndentifier &test, WCHAR *output) {
    for (; *text != 0; ++text) {
        if (test(*text)) {
            *output++ = *text;
        }
    }
    *output = 0;
}

void splitWords(WCHAR separator, const WCHAR *text, std::vector<OS::x_wstring> &words,
                const SWordsAdapter &adapter) {
    const OS::x_wstring copy(text);  // `text` may lie in the vector, which moves as it grows
    for (std::size_t begin = 0, end = 0; begin < copy.size(); begin = end + 1) {
        end = std::min(copy.find(separator, begin), copy.size());
        if (end > begin) {
            OS::x_wstring word = adapter(copy.substr(begin, end - begin));
            if (!word.empty()) {
                words.push_back(std::move(word));
            }
        }
    }
}

void GetStrings(const WCHAR *text, const WCHAR *delimiters, std::vector<OS::x_wstring> &words) {
    std::vector<OS::x_wstring> tokens;
    SplitStringToTokensW(&tokens, text, delimiters);
    words.insert(words.end(), std::make_move_iterator(tokens.begin()),
                 std::make_move_iterator(tokens.end()));
}

const WCHAR *getLastChar(const WCHAR *text) {
    return text == nullptr || *text == 0 ? text : text + wcslen(text) - 1;
}

void concatPathURL(const WCHAR *first, const WCHAR *second, WCHAR *output, WCHAR separator) {
    const std::size_t length = wcslen(first);
    std::char_traits<WCHAR>::move(output, first, length);
    WCHAR *end = output + length;
    if (length > 0) {
        const bool ends = end[-1] == separator;
        const bool begins = *second == separator;
        if (ends && begins) {
            ++second;
        } else if (!ends && !begins && *second != 0) {
            *end++ = separator;
        }
    }
    std::char_traits<WCHAR>::copy(end, second, wcslen(second) + 1);
}

void concatPath(const WCHAR *first, const WCHAR *second, WCHAR *output) {
    concatPathURL(first, second, output, u'\\');
}

OS::x_wstring concatPath(const WCHAR *first, const WCHAR *second) {
    OS::x_wstring path;
    path.resize(wcslen(first) + wcslen(second) + 1);
    concatPath(first, second, path.data());
    end_at_nul(&path);
    return path.size() <= kMaxPathLength ? path : OS::x_wstring();
}

OS::x_wstring getPrivateProfileString(const WCHAR *section, const WCHAR *key, const WCHAR *fallback,
                                      const WCHAR *file) {
    WCHAR value[260];
    GetPrivateProfileStringW(section, key, fallback, value, std::size(value), file);
    return value;
}

int getPrivateProfileInt(const WCHAR *section, const WCHAR *key, int fallback, const WCHAR *file) {
    return static_cast<int>(GetPrivateProfileIntW(section, key, fallback, file));
}

void convertFromEscape(const WCHAR *text, WCHAR *output) {
    while (*text != 0) {
        if (*text != u'%') {
            *output++ = *text++;
        } else if (text[1] != 0 && text[2] != 0) {
            *output++ = decode_escape(text + 1);
            text += 3;
        } else {
            break;
        }
    }
    *output = 0;
}

OS::x_wstring convertFromEscapeChar(const WCHAR *text) {
    OS::x_wstring plain(text);
    convertFromEscape(plain.c_str(), plain.data());
    end_at_nul(&plain);
    return plain;
}

int getInteger(const WCHAR *text, int start, int count, WCHAR *scratch) {
    std::char_traits<WCHAR>::move(scratch, text + start, static_cast<std::size_t>(count));
    scratch[count] = 0;
    return _wtoi(scratch);
}

int convertTime(const WCHAR *text, SYSTEMTIME &time) {
    struct Field {
        WORD *value;
        int count;
    };
    const Field fields[] = {{&time.wYear, 4}, {&time.wMonth, 2},  {&time.wDay, 2},
                            {&time.wHour, 2}, {&time.wMinute, 2}, {&time.wSecond, 2}};
    constexpr std::size_t kLength = 14;
    if (text == nullptr || wcslen(text) < kLength) {
        return 0;
    }
    int start = 0;
    for (const Field &field : fields) {
        WCHAR scratch[5];
        *field.value = static_cast<WORD>(getInteger(text, start, field.count, scratch));
        start += field.count;
    }
    return 1;
}

int isFormatCorrect(const WCHAR *format, const WCHAR *text) {
    if (format == nullptr || text == nullptr || *format == 0 || *text == 0) {
        return 0;
    }
    for (; *format != 0 && *text != 0; ++format, ++text) {
        if (!fits_format(*format, *text)) {
            return 0;
        }
    }
    return 1;
}

int isAllDigitChar(const WCHAR *text) {
    for (; *text != 0; ++text) {
        if (*text < u'0' || *text > u'9') {
            return 0;
        }
    }
    return 1;
}

bool StringToBinary(const OS::x_astring &text, unsigned char *output, int size) {
    const std::size_t length = text.size();
    if (size < 0 || static_cast<std::size_t>(size) != length / 2 || length % 2 != 0) {
        return false;
    }
    for (std::size_t i = 0; i < length; i += 2) {
        *output++ = decode_byte(text.data() + i);
    }
    return true;
}

}  // namespace NS_StringUtils
