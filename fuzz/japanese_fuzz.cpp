// Any text to the detector and through all conversions. The first byte chooses the encodings that
// it is converted from and to. What the blocks of 16 bytes give must be what single bytes give.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "ostrel/charset/japanese.h"
#include "ostrel/charset/japanese_walks.h"

using namespace OS::charset;

namespace {

void check(bool holds) {
    if (!holds) {
        __builtin_trap();
    }
}

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
