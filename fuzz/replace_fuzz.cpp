// Replacing and escaping beside the rule: one search and replacement after the other. Input: three
// bytes, for the lengths of what is searched and of what replaces it and for the limit, the two
// texts, and the text to search.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

#include "fuzz/check.h"
#include "ostrel/core/replace_all.h"
#include "ostrel/core/x_string.h"
#include "tests/support/step_by_step.h"

namespace {

// The bytes as characters. In 16 bits there are some that share a byte.
template <class Text>
Text text_of(const std::string &bytes) {
    Text text;
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        text.push_back(static_cast<typename Text::value_type>(byte % 9 == 0 ? byte * 0x101 : byte));
    }
    return text;
}

template <class Text>
void check_replacement(const std::string &bytes, std::size_t width, std::size_t growth,
                       std::uint64_t limit) {
    const Text search = text_of<Text>(bytes.substr(0, width));
    const Text replacement = text_of<Text>(bytes.substr(width, growth));
    const Text once = text_of<Text>(bytes.substr(width + growth));
    Text text = once;
    for (int times = 0; times < 20; ++times) {  // long enough for every way to search
        text += once;
    }
    Text expected = text;
    const std::uint64_t hits = step_by_step(&expected, search, replacement, limit);
    check(OS::detail::replace_all(&text, search, replacement, limit) == hits);
    check(text == expected);
}

// The order of the replacements is what the members promise.
template <class String>
void check_escapes(const std::string &bytes) {
    using Standard = typename String::std_string;
    static constexpr char kOften[] = "&\"<>'\r\n";
    static constexpr std::pair<char, std::string_view> kSteps[] = {
        {'&', "&amp;"},   {'"', "&quot;"},  {'<', "&lt;"},   {'>', "&gt;"},
        {'\r', "&#x0D;"}, {'\n', "&#x0A;"}, {'\'', "&#039;"}};
    Standard text = text_of<Standard>(bytes);
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto byte = static_cast<unsigned char>(bytes[i]);
        if (byte % 5 == 0) {
            text[i] = static_cast<typename Standard::value_type>(kOften[byte % 7]);
        }
    }
    Standard expected = text;
    for (const auto &[character, escape] : kSteps) {
        if (character != '\'' || sizeof(expected[0]) > 1) {
            const Standard search(1, static_cast<typename Standard::value_type>(character));
            step_by_step(&expected, search, Standard(escape.begin(), escape.end()),
                         ~std::uint64_t{0});
        }
    }
    String escaped(text);
    escaped.EscapeSpecialCharacters();
    check(static_cast<Standard &>(escaped) == expected);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    if (size < 4) {
        return 0;
    }
    const std::string bytes(data + 3, data + size);
    const std::size_t width = std::min<std::size_t>(1 + data[0] % 40, bytes.size());
    const std::size_t growth = std::min<std::size_t>(data[1] % 90, bytes.size() - width);
    const std::uint64_t limit = data[2] == 0 ? ~std::uint64_t{0} : data[2];
    check_replacement<std::string>(bytes, width, growth, limit);
    check_replacement<std::u16string>(bytes, width, growth, limit);
    check_escapes<OS::x_astring>(bytes);
    check_escapes<OS::x_wstring>(bytes);
    return 0;
}
