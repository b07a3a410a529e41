#include "ostrel/platform/charset.h"

#include <unicode/ucnv.h>
#include <unicode/ucnv_cb.h>

#include <charconv>
#include <cstdlib>
#include <cstring>

#include "ostrel/platform/codepage.h"
#include "ostrel/platform/utf8.h"

namespace platform {
namespace {

struct Charset {
    unsigned code_page;
    const char *name;
};

// Names under which ICU knows no Windows number. The numbers are those of Microsoft's list of code
// page identifiers; the first name of a number is also the one to open its converter with.
constexpr Charset kUnnumbered[] = {
    {949, "windows-949"}, {949, "cp949"},  {28591, "ISO-8859-1"},
    {51932, "EUC-JP"},    {51932, "ujis"}, {936, "gbk"},
    {936, "GB2312"},      {950, "Big5"},   {950, "Big5-HKSCS"},
};

unsigned number_behind(std::string_view prefix, std::string_view name) {
    unsigned number = 0;
    if (name.substr(0, prefix.size()) == prefix) {
        std::from_chars(name.data() + prefix.size(), name.data() + name.size(), number);
    }
    return number;
}

unsigned code_page_of(const char *charset) {
    UErrorCode status = U_ZERO_ERROR;
    const char *const numbered = ucnv_getStandardName(charset, "WINDOWS", &status);
    if (numbered != nullptr) {
        if (const unsigned number = number_behind("windows-", numbered)) {
            return number;
        }
    }
    for (const Charset &entry : kUnnumbered) {
        if (ucnv_compareNames(entry.name, charset) == 0) {
            return entry.code_page;
        }
    }
    return kCodePageUtf8;
}

unsigned code_page_of_environment() {
    for (const char *variable : {"LC_ALL", "LC_CTYPE", "LANG"}) {
        const char *const value = std::getenv(variable);
        if (value == nullptr || *value == '\0') {
            continue;
        }
        const std::string_view locale = value;
        const std::size_t dot = locale.find('.');
        if (dot == std::string_view::npos) {
            return kCodePageUtf8;
        }
        const std::string charset(locale.substr(dot + 1, locale.find('@', dot) - dot - 1));
        return code_page_of(charset.c_str());
    }
    return kCodePageUtf8;
}

struct CloseConverter {
    void operator()(UConverter *converter) const { ucnv_close(converter); }
};
using ConverterPtr = std::unique_ptr<UConverter, CloseConverter>;

// Writes U+FFFD for whatever is broken or unassigned; ICU's own callback has another substitute for
// some bytes, U+001A.
void replace_broken(const void *, UConverterToUnicodeArgs *args, const char *, int32_t,
                    UConverterCallbackReason reason, UErrorCode *status) {
    if (reason <= UCNV_IRREGULAR) {
        constexpr UChar kReplacement = 0xFFFD;
        *status = U_ZERO_ERROR;
        ucnv_cbToUWriteUChars(args, &kReplacement, 1, 0, status);
    }
}

// Null when ICU has no converter for the code page.
ConverterPtr open_converter(unsigned code_page) {
    std::string name = "windows-" + std::to_string(code_page);
    for (const Charset &entry : kUnnumbered) {
        if (entry.code_page == code_page) {
            name = entry.name;
            break;
        }
    }
    UErrorCode status = U_ZERO_ERROR;
    ConverterPtr converter(ucnv_open(name.c_str(), &status));
    if (converter) {
        ucnv_setToUCallBack(converter.get(), replace_broken, nullptr, nullptr, nullptr, &status);
    }
    return converter;
}

std::u16string decode_whole(UConverter *converter, std::string_view bytes) {
    std::u16string text(StreamDecoder::Capacity(bytes.size()), u'\0');
    UErrorCode status = U_ZERO_ERROR;
    UChar *out = text.data();
    const char *in = bytes.data();
    ucnv_toUnicode(converter, &out, out + text.size(), &in, in + bytes.size(), nullptr, true,
                   &status);
    text.resize(static_cast<std::size_t>(out - text.data()));
    return text;
}

// Some converters turn three control characters round, as old terminals did: byte 0x1A is U+001C
// there, 0x1C is U+007F and 0x7F is U+001A. On the platform each is itself.
bool rotates_controls(UConverter *converter) {
    return decode_whole(converter, "\x1A") == TEXT("\u001C");
}

constexpr WCHAR kRotated[] = {0x1A, 0x1C, 0x7F};

// Decoded text: each control character becomes that of its byte (1A -> 7F -> 1C -> 1A). Text to be
// encoded: the other way.
void turn_controls(WCHAR *units, std::size_t count, bool decoded) {
    for (WCHAR *unit = units; unit != units + count; ++unit) {
        for (std::size_t i = 0; i < 3; ++i) {
            if (*unit == kRotated[i]) {
                *unit = kRotated[(i + (decoded ? 2 : 1)) % 3];
                break;
            }
        }
    }
}

// Whether ASCII bytes are themselves in a code page, as they must be in that of the system.
bool holds_ascii(unsigned code_page) {
    return code_page == kCodePageUtf8 ||
           to_wide("\t\nAz09#%\\~", code_page) == TEXT("\t\nAz09#%\\~");
}

}  // namespace

unsigned system_code_page() {
    static const unsigned code_page = [] {
        const unsigned named = code_page_of_environment();
        return holds_ascii(named) ? named : kCodePageUtf8;
    }();
    return code_page;
}

std::u16string to_wide(std::string_view bytes, unsigned code_page) {
    StreamDecoder decoder(code_page);
    std::u16string text(StreamDecoder::Capacity(bytes.size()), u'\0');
    text.resize(decoder.Decode(bytes.data(), bytes.size(), true, text.data()));
    return text;
}

std::string to_narrow(std::u16string_view text, unsigned code_page) {
    std::string bytes;
    const ConverterPtr converter = code_page == kCodePageUtf8 ? nullptr : open_converter(code_page);
    if (!converter) {
        bytes.resize(text.size() * 3);
        bytes.resize(utf16_to_utf8(text.data(), text.size(), bytes.data()));
        return bytes;
    }
    const auto longest = static_cast<std::size_t>(ucnv_getMaxCharSize(converter.get()));
    bytes.resize((text.size() + 10) * longest);
    std::u16string turned;
    if (rotates_controls(converter.get())) {
        turned = text;
        turn_controls(turned.data(), turned.size(), false);
        text = turned;
    }
    char *out = bytes.data();
    const UChar *in = text.data();
    UErrorCode status = U_ZERO_ERROR;
    ucnv_fromUnicode(converter.get(), &out, out + bytes.size(), &in, in + text.size(), nullptr,
                     true, &status);
    bytes.resize(static_cast<std::size_t>(out - bytes.data()));
    return bytes;
}

struct StreamDecoder::Converter {
    ConverterPtr handle;
    bool rotates;
};

StreamDecoder::StreamDecoder(unsigned code_page) {
    if (code_page != kCodePageUtf8) {
        if (ConverterPtr handle = open_converter(code_page)) {
            const bool rotates = rotates_controls(handle.get());
            m_converter = std::make_unique<Converter>(Converter{std::move(handle), rotates});
        }
    }
}

StreamDecoder::~StreamDecoder() = default;

std::size_t StreamDecoder::Decode(const char *bytes, std::size_t count, bool last, WCHAR *units) {
    if (m_converter) {
        WCHAR *out = units;
        UErrorCode status = U_ZERO_ERROR;
        ucnv_toUnicode(m_converter->handle.get(), &out, units + Capacity(count), &bytes,
                       bytes + count, nullptr, last, &status);
        const auto stored = static_cast<std::size_t>(out - units);
        if (m_converter->rotates) {
            turn_controls(units, stored, true);
        }
        return stored;
    }

    WCHAR *out = units;
    std::size_t consumed = 0;
    // Complete the character that the last block left, a byte at a time: it is short and rare.
    while (m_pendingCount > 0 && (count > 0 || last)) {
        if (count > 0 && m_pendingCount < sizeof m_pending) {
            m_pending[m_pendingCount++] = *bytes++;
            --count;
        }
        out += utf8_to_utf16(m_pending, m_pendingCount, last && count == 0, out, &consumed);
        m_pendingCount -= consumed;
        std::memmove(m_pending, m_pending + consumed, m_pendingCount);
    }
    if (m_pendingCount == 0) {
        out += utf8_to_utf16(bytes, count, last, out, &consumed);
        m_pendingCount = count - consumed;
        std::memcpy(m_pending, bytes + consumed, m_pendingCount);
    }
    return static_cast<std::size_t>(out - units);
}

}  // namespace platform

unsigned GetACP() noexcept {
    return platform::system_code_page();
}
