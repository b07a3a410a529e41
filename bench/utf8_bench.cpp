// UTF-8 to UTF-16 and back, 1 MiB of UTF-8 in random words: ASCII, Latin (a letter in eight has an
// accent), CJK, and mark-up in which both stand. "Call" is the platform's call into a buffer that
// is there, as ICU and iconv are called; "String" is the library's function, which asks for the
// size first and gives a new string, as Qt does.

#include <benchmark/benchmark.h>
#include <iconv.h>
#include <unicode/ustring.h>

#include <QByteArray>
#include <QString>
#include <random>
#include <string>

#include "ostrel/core/convert.h"
#include "ostrel/platform/codepage.h"

namespace {

enum Kind { kAscii, kLatin, kCjk, kMixed };
constexpr const char *kKindNames[] = {"ASCII", "Latin", "CJK", "mixed"};

struct Text {
    std::string utf8;
    std::u16string utf16;
};

Text make_text(int kind) {
    std::mt19937 random(5);
    Text text;
    while (text.utf8.size() < (1 << 20) - 64) {
        const bool cjk = kind == kCjk || (kind == kMixed && random() % 2 == 0);
        std::u16string word;
        for (std::size_t i = 2 + random() % 8; i > 0; --i) {
            word +=
                static_cast<WCHAR>(cjk ? 0x4E00 + random() % 0x5000
                                   : kind == kLatin && random() % 8 == 0 ? 0xE0 + random() % 0x20
                                                                         : 'a' + random() % 26);
        }
        word += cjk ? u'\u3001' : u' ';
        text.utf16 += word;
        text.utf8 += QString::fromUtf16(word.data(), static_cast<int>(word.size())).toStdString();
    }
    return text;
}

const Text &text_of(const benchmark::State &state) {
    static const Text texts[] = {make_text(kAscii), make_text(kLatin), make_text(kCjk),
                                 make_text(kMixed)};
    return texts[state.range(0)];
}

// Runs `convert`, which gives the length of its result.
template <class Convert>
void run(benchmark::State &state, std::size_t expected, Convert convert) {
    for (auto _ : state) {
        if (convert() != expected) {
            state.SkipWithError("wrong result");
        }
    }
    state.SetLabel(kKindNames[state.range(0)]);
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) *
                            static_cast<std::int64_t>(text_of(state).utf8.size()));
}

std::size_t iconv_to(iconv_t converter, const void *in, std::size_t in_size, void *out,
                     std::size_t room) {
    auto *from = const_cast<char *>(static_cast<const char *>(in));
    auto *to = static_cast<char *>(out);
    const std::size_t before = room;
    iconv(converter, &from, &in_size, &to, &room);
    return before - room;
}

void ToUtf16_OstrelCall(benchmark::State &state) {
    const Text &text = text_of(state);
    std::u16string out(text.utf16.size(), u'\0');
    run(state, out.size(), [&] {
        return static_cast<std::size_t>(
            MultiByteToWideChar(CP_UTF8, 0, text.utf8.data(), static_cast<int>(text.utf8.size()),
                                out.data(), static_cast<int>(out.size())));
    });
}

void ToUtf16_OstrelString(benchmark::State &state) {
    const OS::x_astring text(text_of(state).utf8);
    run(state, text_of(state).utf16.size(),
        [&] { return OS::UTF8CharToWChar(text, nullptr).size(); });
}

void ToUtf16_Icu(benchmark::State &state) {
    const Text &text = text_of(state);
    std::u16string out(text.utf16.size(), u'\0');
    run(state, out.size(), [&] {
        UErrorCode status = U_ZERO_ERROR;
        std::int32_t length = 0;
        u_strFromUTF8WithSub(out.data(), static_cast<std::int32_t>(out.size()), &length,
                             text.utf8.data(), static_cast<std::int32_t>(text.utf8.size()), 0xFFFD,
                             nullptr, &status);
        return static_cast<std::size_t>(length);
    });
}

void ToUtf16_Iconv(benchmark::State &state) {
    const Text &text = text_of(state);
    std::u16string out(text.utf16.size(), u'\0');
    iconv_t converter = iconv_open("UTF-16LE", "UTF-8");
    run(state, out.size() * 2, [&] {
        return iconv_to(converter, text.utf8.data(), text.utf8.size(), out.data(), out.size() * 2);
    });
    iconv_close(converter);
}

void ToUtf16_Qt(benchmark::State &state) {
    const Text &text = text_of(state);
    run(state, text.utf16.size(), [&] {
        return static_cast<std::size_t>(
            QString::fromUtf8(text.utf8.data(), static_cast<int>(text.utf8.size())).size());
    });
}

void ToUtf8_OstrelCall(benchmark::State &state) {
    const Text &text = text_of(state);
    std::string out(text.utf8.size(), '\0');
    run(state, out.size(), [&] {
        return static_cast<std::size_t>(
            WideCharToMultiByte(CP_UTF8, 0, text.utf16.data(), static_cast<int>(text.utf16.size()),
                                out.data(), static_cast<int>(out.size()), nullptr, nullptr));
    });
}

void ToUtf8_OstrelString(benchmark::State &state) {
    const OS::x_wstring text(text_of(state).utf16);
    run(state, text_of(state).utf8.size(),
        [&] { return OS::WCharToUTF8Char(text, nullptr).size(); });
}

void ToUtf8_Icu(benchmark::State &state) {
    const Text &text = text_of(state);
    std::string out(text.utf8.size(), '\0');
    run(state, out.size(), [&] {
        UErrorCode status = U_ZERO_ERROR;
        std::int32_t length = 0;
        u_strToUTF8WithSub(out.data(), static_cast<std::int32_t>(out.size()), &length,
                           text.utf16.data(), static_cast<std::int32_t>(text.utf16.size()), 0xFFFD,
                           nullptr, &status);
        return static_cast<std::size_t>(length);
    });
}

void ToUtf8_Iconv(benchmark::State &state) {
    const Text &text = text_of(state);
    std::string out(text.utf8.size(), '\0');
    iconv_t converter = iconv_open("UTF-8", "UTF-16LE");
    run(state, out.size(), [&] {
        return iconv_to(converter, text.utf16.data(), text.utf16.size() * 2, out.data(),
                        out.size());
    });
    iconv_close(converter);
}

void ToUtf8_Qt(benchmark::State &state) {
    const Text &text = text_of(state);
    const QString in = QString::fromUtf16(text.utf16.data(), static_cast<int>(text.utf16.size()));
    run(state, text.utf8.size(), [&] { return static_cast<std::size_t>(in.toUtf8().size()); });
}

#define OSTREL_BENCH(name) \
    BENCHMARK(name)->DenseRange(kAscii, kMixed)->Unit(benchmark::kMicrosecond)

OSTREL_BENCH(ToUtf16_OstrelCall);
OSTREL_BENCH(ToUtf16_OstrelString);
OSTREL_BENCH(ToUtf16_Icu);
OSTREL_BENCH(ToUtf16_Iconv);
OSTREL_BENCH(ToUtf16_Qt);
OSTREL_BENCH(ToUtf8_OstrelCall);
OSTREL_BENCH(ToUtf8_OstrelString);
OSTREL_BENCH(ToUtf8_Icu);
OSTREL_BENCH(ToUtf8_Iconv);
OSTREL_BENCH(ToUtf8_Qt);

}  // namespace
