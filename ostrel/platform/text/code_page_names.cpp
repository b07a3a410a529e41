#include "ostrel/platform/text/code_page_names.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <iterator>
#include <new>
#include <string>
#include <string_view>

#include "ostrel/platform/base/no_cancellation.h"
#include "ostrel/platform/text/charset.h"

namespace ostrel_platform {
namespace {

struct NamedCodePage {
    unsigned code_page;
    const char *name;
};

// The numbers are those of Microsoft's list of code page identifiers. A name is the converter's own
// in ICU, which needs no alias.
constexpr NamedCodePage kConverters[] = {
    {437, "ibm-437_P100-1995"},
    {737, "ibm-737_P100-1997"},
    {775, "ibm-775_P100-1996"},
    {850, "ibm-850_P100-1995"},
    {852, "ibm-852_P100-1995"},
    {855, "ibm-855_P100-1995"},
    {857, "ibm-857_P100-1995"},
    {858, "ibm-858_P100-1997"},
    {860, "ibm-860_P100-1995"},
    {861, "ibm-861_P100-1995"},
    {862, "ibm-862_P100-1995"},
    {863, "ibm-863_P100-1995"},
    {864, "ibm-864_X110-1999"},
    {865, "ibm-865_P100-1995"},
    {866, "ibm-866_P100-1995"},
    {869, "ibm-869_P100-1995"},
    {874, "windows-874-2000"},
    {932, "ibm-943_P15A-2003"},
    {936, "windows-936-2000"},
    {949, "windows-949-2000"},
    {950, "windows-950-2000"},
    {1250, "ibm-5346_P100-1998"},
    {1251, "ibm-5347_P100-1998"},
    {1252, "ibm-5348_P100-1997"},
    {1253, "ibm-5349_P100-1998"},
    {1254, "ibm-5350_P100-1998"},
    {1255, "ibm-9447_P100-2002"},
    {1256, "ibm-9448_X100-2005"},
    {1257, "ibm-9449_P100-2002"},
    {1258, "ibm-5354_P100-1998"},
    {10000, "macos-0_2-10.2"},
    {10007, "macos-7_3-10.2"},
    {10029, "macos-29-10.2"},
    {20866, "ibm-878_P100-1996"},
    {21866, "ibm-1168_P100-2002"},
    {28591, "ISO-8859-1"},
    {28592, "ibm-912_P100-1995"},
    {28593, "ibm-913_P100-2000"},
    {28594, "ibm-914_P100-1995"},
    {28595, "ibm-915_P100-1995"},
    {28596, "ibm-1089_P100-1995"},
    {28597, "ibm-9005_X110-2007"},
    {28598, "ibm-5012_P100-1999"},
    {28599, "ibm-920_P100-1995"},
    {28603, "ibm-921_P100-1995"},
    {28605, "ibm-923_P100-1998"},
    {51932, "euc-jp-2007"},
    {20932, "euc-jp-2007"},
    {51936, "ibm-1383_P110-1999"},
    {51949, "ibm-970_P110_P110-2006_U2"},
    {54936, "gb18030"},
    {52936, "HZ-GB-2312"},
    {50220, "ISO-2022-JP"},
    {50221, "ISO-2022-JP"},
    {50222, "ISO_2022,locale=ja,version=3"},
    {50225, "ISO-2022-KR"},
};

// Names of charsets as glibc and ICU spell them, beside the numbers of kConverters behind CP, IBM,
// MS or Windows. ICU's aliases come in addition.
constexpr NamedCodePage kCharsets[] = {
    {kCodePageUtf8, "UTF-8"},
    {874, "TIS-620"},
    {874, "TIS620-0"},
    {874, "TIS620.2529-1"},
    {874, "TIS620.2533-0"},
    {874, "ISO-IR-166"},
    {874, "ISO-8859-11"},
    {932, "SJIS"},
    {932, "Shift_JIS"},
    {932, "SJIS-open"},
    {932, "SJIS-win"},
    {932, "Windows-31J"},
    {936, "GBK"},
    {936, "GB2312"},
    {936, "csGB2312"},
    {936, "CN-GB"},
    {949, "UHC"},
    {950, "Big5"},
    {950, "BigFive"},
    {950, "CN-Big5"},
    {950, "Big5-HKSCS"},
    {1250, "MS-EE"},
    {1251, "MS-CYRL"},
    {1252, "MS-ANSI"},
    {1253, "MS-GREEK"},
    {1254, "MS-TURK"},
    {1255, "MS-HEBR"},
    {1256, "MS-ARAB"},
    {1257, "WinBaltRim"},
    {20866, "KOI8-R"},
    {21866, "KOI8-U"},
    {28591, "ISO-8859-1"},
    {28592, "ISO-8859-2"},
    {28593, "ISO-8859-3"},
    {28594, "ISO-8859-4"},
    {28595, "ISO-8859-5"},
    {28596, "ISO-8859-6"},
    {28597, "ISO-8859-7"},
    {28598, "ISO-8859-8"},
    {28599, "ISO-8859-9"},
    {28603, "ISO-8859-13"},
    {28605, "ISO-8859-15"},
    {51932, "EUC-JP"},
    {51932, "ujis"},
    {51932, "EUC-JP-MS"},
    {51932, "EUC-JP-open"},
    {51932, "EUC-JP-win"},
    {51936, "EUC-CN"},
    {51949, "EUC-KR"},
    {54936, "GB18030"},
};

// Code pages that ICU knows by IBM's number alone. The platform's number is IBM's, or IBM's plus
// 20000 or 50000.
constexpr unsigned kIbmPages[] = {37,    500,   870,   875,   1026,  1047,  1140,  1141,  1142,
                                  1143,  1144,  1145,  1146,  1147,  1148,  1149,  20273, 20277,
                                  20278, 20280, 20284, 20285, 20290, 20297, 20420, 20424, 20838,
                                  20871, 21025, 50930, 50931, 50933, 50935, 50937};

constexpr unsigned ibm_number(unsigned code_page) {
    return code_page % (code_page < 50000 ? 20000 : 50000);
}

// UTF-16 and UTF-32 have numbers, but are not code pages of narrow text.
constexpr unsigned kWidePages[] = {1200, 1201, 12000, 12001};

bool is_among(const unsigned *first, const unsigned *last, unsigned code_page) {
    return std::find(first, last, code_page) != last;
}

// Throws when ICU has run out of memory.
void check_memory(UErrorCode status) {
    if (status == U_MEMORY_ALLOCATION_ERROR) {
        throw std::bad_alloc();
    }
}

// The following return 0 for an unknown name.

unsigned code_page_of_name(const char *charset) {
    for (const NamedCodePage &row : kCharsets) {
        if (ucnv_compareNames(row.name, charset) == 0) {
            return row.code_page;
        }
    }
    for (const NamedCodePage &row : kConverters) {
        for (const char *const prefix : {"cp", "ibm", "ms", "windows"}) {
            const std::string name = prefix + std::to_string(row.code_page);
            if (ucnv_compareNames(name.c_str(), charset) == 0) {
                return row.code_page;
            }
        }
    }
    return 0;
}

unsigned code_page_of_alias(const char *charset) {
    constexpr std::string_view kPrefix = "windows-";
    UErrorCode status = U_ZERO_ERROR;
    const char *const numbered = ucnv_getStandardName(charset, "WINDOWS", &status);
    check_memory(status);
    unsigned number = 0;
    if (const std::string_view name = numbered == nullptr ? "" : numbered;
        name.starts_with(kPrefix)) {
        std::from_chars(name.data() + kPrefix.size(), name.data() + name.size(), number);
    }
    if (number != 0) {
        return number;
    }
    status = U_ZERO_ERROR;
    const char *const own = ucnv_getAlias(charset, 0, &status);
    check_memory(status);
    for (const NamedCodePage &row : kConverters) {
        if (own != nullptr && std::string_view(own) == row.name) {
            return row.code_page;
        }
    }
    return 0;
}

ConverterPtr open_by_name(const char *name) {
    UErrorCode status = U_ZERO_ERROR;
    ConverterPtr converter(ucnv_open(name, &status));
    check_memory(status);
    return converter;
}

}  // namespace

unsigned code_page_of_charset(const char *charset) {
    const NoCancellation uncancelled;  // ICU may wait or open files
    if (const unsigned code_page = code_page_of_name(charset)) {
        return code_page;
    }
    const unsigned code_page = code_page_of_alias(charset);
    return code_page != 0 ? code_page : kCodePageUtf8;
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
        return code_page_of_charset(charset.c_str());
    }
    return kCodePageUtf8;
}

ConverterPtr open_converter(unsigned code_page) {
    const NoCancellation uncancelled;  // as above
    if (is_among(std::begin(kWidePages), std::end(kWidePages), code_page)) {
        return nullptr;
    }
    ConverterPtr converter;
    for (const NamedCodePage &row : kConverters) {
        if (!converter && row.code_page == code_page) {
            converter = open_by_name(row.name);
        }
    }
    if (!converter) {
        converter = open_by_name(("windows-" + std::to_string(code_page)).c_str());
    }
    if (!converter && is_among(std::begin(kIbmPages), std::end(kIbmPages), code_page)) {
        converter = open_by_name(("ibm-" + std::to_string(ibm_number(code_page))).c_str());
    }
    return converter;
}

}  // namespace ostrel_platform
