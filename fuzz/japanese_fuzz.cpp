// Any text to the detector and through all conversions. The first byte chooses the encodings that
// it is converted from and to. What the blocks of 16 bytes give must be what single bytes give, and
// what is made of characters that iconv knows must be what iconv makes of them.

#include <iconv.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "fuzz/check.h"
#include "ostrel/charset/japanese.h"
#include "ostrel/charset/japanese_walks.h"

using namespace OS::charset;

namespace {

// The result of a conversion, which may be null only where words of mail headers are decoded.
std::string taken(char *text, bool may_fail) {
    check(text != nullptr || may_fail);
    const std::string copy(text == nullptr ? "" : text);
    std::free(text);
    return copy;
}

template <class Walker>
std::string walk(const char *text, std::size_t room, Walker walker) {
    const std::size_t length = std::strlen(text);
    std::vector<Byte> out(length * room + 1);
    const auto *const begin = reinterpret_cast<const Byte *>(text);
    const Byte *const end = walker(Walk{begin, begin + length, out.data()});
    return std::string(static_cast<const Byte *>(out.data()), end);
}

// The text in another encoding; nothing when iconv refuses it.
std::optional<std::string> by_iconv(const char *to, std::string euc) {
    const iconv_t converter = iconv_open(to, "EUC-JP");
    std::string result(euc.size() * 8 + 8, '\0');
    char *in = euc.data();
    char *out = result.data();
    std::size_t in_left = euc.size();
    std::size_t out_left = result.size();
    const bool whole = iconv(converter, &in, &in_left, &out, &out_left) == 0 &&
                       iconv(converter, nullptr, nullptr, &out, &out_left) == 0;
    iconv_close(converter);
    result.resize(result.size() - out_left);
    return whole ? std::optional(result) : std::nullopt;
}

// Whether iconv knows each character of JIS X 0208. It refuses what the standard leaves free, which
// is mapped here.
const std::vector<bool> &known_pairs() {
    static const std::vector<bool> known = [] {
        std::vector<bool> pairs;
        for (int code = 0; code < 94 * 94; ++code) {
            pairs.push_back(by_iconv("ISO-2022-JP", {static_cast<char>(0xA1 + code / 94),
                                                     static_cast<char>(0xA1 + code % 94)})
                                .has_value());
        }
        return pairs;
    }();
    return known;
}

// EUC-JP of the characters that three bytes each choose: of JIS X 0208, of half-width katakana and
// of ASCII.
std::string known_characters(const char *bytes, std::size_t count) {
    std::string euc;
    for (; count >= 3; bytes += 3, count -= 3) {
        const unsigned kind = Byte(bytes[0]), row = Byte(bytes[1]) % 94u, cell = Byte(bytes[2]);
        if (kind % 4 == 0) {
            euc += static_cast<char>(' ' + cell % 95);
        } else if (kind % 4 == 1) {
            euc += {static_cast<char>(kEucKana), static_cast<char>(0xA1 + cell % 63)};
        } else if (known_pairs()[row * 94 + cell % 94]) {
            euc += {static_cast<char>(0xA1 + row), static_cast<char>(0xA1 + cell % 94)};
        }
    }
    return euc;
}

// Katakana are in no plain ISO-2022-JP, so its third extension stands in.
void compare_with_iconv(const std::string &euc) {
    const std::optional<std::string> sjis = by_iconv("SHIFT_JIS", euc);
    const std::optional<std::string> jis = by_iconv("ISO-2022-JP-3", euc);
    check(sjis && jis);
    check(taken(ConvertToJis(euc.c_str(), EncodingEucJp), false) == *jis);
    check(taken(ConvertToJis(sjis->c_str(), EncodingShiftJis), false) == *jis);
    check(taken(ConvertFromJis(jis->c_str(), EncodingEucJp), false) == euc);
    check(taken(ConvertFromJis(jis->c_str(), EncodingShiftJis), false) == *sjis);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    const int source = data[0] % 8 - 1;
    const int target = data[0] / 8 % 8 - 1;
    std::unique_ptr<char[]> block(new char[size]);
    std::memcpy(block.get(), data + 1, size - 1);
    block[size - 1] = '\0';
    const char *const text = block.get();
    const auto *const bytes = reinterpret_cast<const Byte *>(text);

    const int detected = DetectJapaneseEncoding(text);
    check(detected >= EncodingNone && detected <= EncodingMime);
    check(detected == detect<false>(bytes, bytes + std::strlen(text)));
    check(walk(text, 8, shift_jis_to_jis<kHasBlocks>) == walk(text, 8, shift_jis_to_jis<false>));
    check(walk(text, 8, euc_to_jis<kHasBlocks>) == walk(text, 8, euc_to_jis<false>));
    check(walk(text, 2, [=](Walk at) { return from_jis_to<kHasBlocks>(at, target); }) ==
          walk(text, 2, [=](Walk at) { return from_jis_to<false>(at, target); }));

    const bool mime = source == EncodingMime;
    const std::string jis = taken(ConvertToJis(text, source), mime);
    taken(ConvertFromJis(text, target), false);
    taken(ConvertDetected(text, target), detected == EncodingMime);
    taken(ConvertToInternal(text, source), mime);
    taken(ConvertFromInternal(text, target), false);

    compare_with_iconv(known_characters(text, size - 1));

    // A text that reads as EUC-JP from end to end comes back from JIS.
    if (detected == EncodingEucJp) {
        int state = EncodingNone;
        if (!read_as_euc<false>(bytes, bytes + std::strlen(text), &state).bad &&
            std::strchr(text, kEscape) == nullptr) {
            const std::string hub = taken(ConvertToJis(text, EncodingEucJp), false);
            check(taken(ConvertFromJis(hub.c_str(), EncodingEucJp), false) == text);
        }
    }
    return 0;
}
