// The first half of the input as wide text, the second as narrow: escapes, hexadecimal text,
// formats, paths, words and tokens, each beside what must hold of it.

#include "fuzz/check.h"
#include "ostrel/text/string_utils.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "ostrel/text/token_list.h"

namespace {

using namespace NS_StringUtils;

// A buffer of exactly the room that a call asks for.
std::unique_ptr<WCHAR[]> room(std::size_t count) {
    return std::make_unique<WCHAR[]>(count);
}

void check_characters(const std::u16string &text, const std::u16string &other) {
    const std::size_t length = text.size();
    const std::unique_ptr<WCHAR[]> output = room(length + 1), in_place = room(length + 1);
    convertFromEscape(text.c_str(), output.get());
    text.copy(in_place.get(), length);
    convertFromEscape(in_place.get(), in_place.get());
    check(convertFromEscapeChar(text.c_str()) == output.get());
    check(OS::x_wstring(in_place.get()) == output.get());
    if (text.find(u'%') == text.npos) {
        check(text == output.get());
    }
    collect(text.c_str(), SFilenameIndentifier(), output.get());
    check(SFileExtensionAdapter()(text) == output.get());
    isAllDigitChar(text.c_str());
    const bool fits = isFormatCorrect(text.c_str(), other.c_str()) != 0;
    check(!fits || !other.empty());

    const std::unique_ptr<WCHAR[]> path = room(length + other.size() + 2);
    concatPath(text.c_str(), other.c_str(), path.get());
    const std::u16string joined = path.get();
    check(concatPath(text.c_str(), other.c_str()) == (joined.size() <= 260 ? joined : TEXT("")));

    SYSTEMTIME time = {};
    check((convertTime(text.c_str(), time) == 1) == (length >= 14));
}

// Tokens joined by a delimiter and split again are the same tokens.
void check_tokens(const std::u16string &text, const std::u16string &delimiters) {
    std::vector<OS::x_wstring> tokens, again, words;
    check(SplitStringToTokensW(&tokens, text, delimiters.c_str()));
    for (const OS::x_wstring &token : tokens) {
        check(!token.empty() && token.find_first_of(delimiters) == token.npos);
    }
    GetStrings(text.c_str(), delimiters.c_str(), words);
    check(words == tokens);
    if (!delimiters.empty()) {
        OS::x_wstring joined;
        check(CombineTokensToStringW(tokens, &joined, delimiters.c_str()));
        check(SplitStringToTokensW(&again, joined, delimiters.c_str()) && again == tokens);

        const WCHAR one[] = {delimiters[0], 0};
        words.clear();
        splitWords(one[0], text.c_str(), words, SCharAdapter());
        check(SplitStringToTokensW(&again, text, one) && again == words);
    }
    std::set<OS::x_wstring, OS::XWSTRICMP> ordered;
    check(SplitStringToTokensW(&ordered, text, delimiters.c_str()));
    check(ordered.size() <= tokens.size() && ordered.empty() == tokens.empty());
}

void check_bytes(const std::string &text) {
    const std::vector<unsigned char> untouched(text.size() / 2, 0xEE);
    std::vector<unsigned char> bytes = untouched;
    const int size = static_cast<int>(bytes.size());
    check(StringToBinary(text, bytes.data(), size) == (text.size() % 2 == 0));
    check(text.size() % 2 == 0 || bytes == untouched);
    check(!StringToBinary(text, bytes.data(), size + 1));
    // The host reads each pair as a number by itself.
    for (std::size_t i = 0; text.size() % 2 == 0 && i < bytes.size(); ++i) {
        unsigned expected = 0;
        std::sscanf(text.substr(2 * i, 2).c_str(), "%x", &expected);
        check(bytes[i] == (expected & 0xFF));
    }
}

// The host's strtok is the measure.
void check_narrow_tokens(const std::string &text) {
    for (const char *delimiters : {",", ",; \x80\xFF", "abcdefgh", "abcdefgh,"}) {
        std::vector<OS::x_astring> tokens, expected;
        std::string copy = text.c_str();
        for (const char *token = std::strtok(copy.data(), delimiters); token != nullptr;
             token = std::strtok(nullptr, delimiters)) {
            expected.push_back(token);
        }
        check(SplitStringToTokensA(&tokens, text, delimiters) && tokens == expected);
    }
}

// Wide text gives the same tokens.
void check_wide_tokens(const std::string &text) {
    const auto widened = [](const std::string &bytes) {
        std::u16string units;
        for (const char c : bytes) {
            units.push_back(static_cast<unsigned char>(c));
        }
        return units;
    };
    std::vector<OS::x_astring> tokens;
    std::vector<OS::x_wstring> wide, expected;
    check(SplitStringToTokensA(&tokens, text, "ab;,\xE4"));
    check(SplitStringToTokensW(&wide, widened(text), u"ab;,\u00E4"));
    for (const OS::x_astring &token : tokens) {
        expected.push_back(widened(token));
    }
    check(wide == expected);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    std::u16string wide(size / 4, u'\0');
    if (!wide.empty()) {
        std::memcpy(wide.data(), data, wide.size() * 2);
    }
    const std::string narrow(data + wide.size() * 2, data + size);
    const std::u16string text = wide.c_str();  // up to its first NUL, and what stands behind that
    const std::u16string other =
        text.size() < wide.size() ? wide.substr(text.size() + 1).c_str() : TEXT(",");
    check_characters(text, other);
    check_tokens(text, other);
    check_bytes(narrow);
    check_narrow_tokens(narrow);
    check_wide_tokens(narrow);
    return 0;
}
