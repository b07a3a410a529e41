// 1 MiB of Japanese text from Shift_JIS and EUC-JP to ISO-2022-JP and back: sentences of 8 to 60
// kana and kanji, with words and numbers of ASCII between them. The peers have opened their
// converters before and write to memory that they are given; Ostrel allocates each result. Then the
// detector, on this text and on ASCII.

#include <benchmark/benchmark.h>
#include <iconv.h>
#include <unicode/ucnv.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "ostrel/charset/japanese.h"

namespace {

using namespace OS::charset;

constexpr std::size_t kSize = 1 << 20;

std::string owned(char *text) {
    std::string copy(text);
    std::free(text);
    return copy;
}

std::string euc_jp_text(std::size_t size) {
    std::mt19937 random(1);
    const auto below = [&random](unsigned count) {
        return static_cast<unsigned>(random() % count);
    };
    std::string text;
    while (text.size() < size) {
        for (unsigned left = 8 + below(53); left != 0; --left) {
            // Hiragana, katakana or one of the first 2,900 kanji.
            const unsigned kind = below(10);
            const unsigned row = kind < 5 ? 4 : kind < 6 ? 5 : 16 + below(31);
            text += static_cast<char>(0xA0 + row);
            text += static_cast<char>(0xA1 + below(row < 16 ? 83 : 94));
        }
        if (below(2) == 0) {
            text += "\xA1\xA3\r\n";
        } else {
            for (unsigned left = 1 + below(10); left != 0; --left) {
                text += "0123456789 abcdefghijklmnopqrstuvwxyz"[below(37)];
            }
        }
    }
    return text;
}

// The text in the encoding that is converted from, about 1 MiB of it.
std::string text_in(int encoding) {
    const std::string euc = euc_jp_text(encoding == EncodingJis ? kSize * 7 / 8 : kSize);
    return owned(ConvertFromInternal(euc.c_str(), encoding));
}

const char *name_of(int encoding) {
    return encoding == EncodingJis        ? "ISO-2022-JP"
           : encoding == EncodingShiftJis ? "SHIFT_JIS"
                                          : "EUC-JP";
}

// Runs `convert`, which gives the length of its result.
template <class Convert>
void run(benchmark::State &state, const std::string &text, Convert convert) {
    const auto from = static_cast<int>(state.range(0));
    const auto to = static_cast<int>(state.range(1));
    const std::string jis = owned(ConvertToJis(text.c_str(), from));
    const std::size_t expected = owned(ConvertFromJis(jis.c_str(), to)).size();
    std::size_t length = 0;
    for (auto _ : state) {
        length = convert();
    }
    if (length != expected) {
        state.SkipWithError("wrong result");
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
    state.SetLabel(std::string(name_of(from)) + " to " + name_of(to));
}

void Ostrel(benchmark::State &state) {
    const auto from = static_cast<int>(state.range(0));
    const auto to = static_cast<int>(state.range(1));
    const std::string text = text_in(from);
    const std::size_t length = owned(to == EncodingJis ? ConvertToJis(text.c_str(), from)
                                                       : ConvertFromJis(text.c_str(), to))
                                   .size();
    run(state, text, [&] {
        char *result =
            to == EncodingJis ? ConvertToJis(text.c_str(), from) : ConvertFromJis(text.c_str(), to);
        benchmark::DoNotOptimize(result);
        std::free(result);
        return length;
    });
}

void Iconv(benchmark::State &state) {
    const std::string text = text_in(static_cast<int>(state.range(0)));
    const iconv_t converter = iconv_open(name_of(static_cast<int>(state.range(1))),
                                         name_of(static_cast<int>(state.range(0))));
    std::vector<char> result(2 * text.size());
    run(state, text, [&] {
        iconv(converter, nullptr, nullptr, nullptr, nullptr);
        char *in = const_cast<char *>(text.data());
        std::size_t in_left = text.size();
        char *out = result.data();
        std::size_t out_left = result.size();
        iconv(converter, &in, &in_left, &out, &out_left);
        iconv(converter, nullptr, nullptr, &out, &out_left);
        return result.size() - out_left;
    });
    iconv_close(converter);
}

void Icu(benchmark::State &state) {
    const std::string text = text_in(static_cast<int>(state.range(0)));
    UErrorCode error = U_ZERO_ERROR;
    UConverter *const from = ucnv_open(name_of(static_cast<int>(state.range(0))), &error);
    UConverter *const to = ucnv_open(name_of(static_cast<int>(state.range(1))), &error);
    std::vector<char> result(2 * text.size());
    run(state, text, [&] {
        const char *in = text.data();
        char *out = result.data();
        error = U_ZERO_ERROR;
        ucnv_convertEx(to, from, &out, out + result.size(), &in, in + text.size(), nullptr, nullptr,
                       nullptr, nullptr, true, true, &error);
        return static_cast<std::size_t>(out - result.data());
    });
    ucnv_close(from);
    ucnv_close(to);
}

#define DIRECTIONS                              \
    ArgNames({"from", "to"})                    \
        ->Args({EncodingShiftJis, EncodingJis}) \
        ->Args({EncodingEucJp, EncodingJis})    \
        ->Args({EncodingJis, EncodingShiftJis}) \
        ->Args({EncodingJis, EncodingEucJp})    \
        ->Unit(benchmark::kMicrosecond)
BENCHMARK(Ostrel)->DIRECTIONS;
BENCHMARK(Iconv)->DIRECTIONS;
BENCHMARK(Icu)->DIRECTIONS;

// EncodingNone is ASCII.
void Detect(benchmark::State &state) {
    const auto encoding = static_cast<int>(state.range(0));
    const std::string text = encoding == EncodingNone ? std::string(kSize, 'a') : text_in(encoding);
    int detected = 0;
    for (auto _ : state) {
        detected = DetectJapaneseEncoding(text.c_str());
        benchmark::DoNotOptimize(detected);
    }
    if (detected != encoding) {
        state.SkipWithError("wrong result");
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
}
BENCHMARK(Detect)
    ->Arg(EncodingNone)
    ->Arg(EncodingJis)
    ->Arg(EncodingShiftJis)
    ->Arg(EncodingEucJp)
    ->Unit(benchmark::kMicrosecond);

}  // namespace
