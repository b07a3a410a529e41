// Escapes mark-up of 1 MiB: all replacements in one pass, beside the chain of replacements that it
// stands for, here by the library's own FindAndReplaceAll and by Qt. Of the peers Qt alone has the
// operation itself (toHtmlEscaped, & < > and the double quote). The argument says how many
// characters of a thousand are escaped.

#include <benchmark/benchmark.h>

#include <QString>
#include <random>
#include <string>

#include "ostrel/core/x_string.h"

namespace {

std::u16string make_text(std::int64_t of_a_thousand) {
    const std::u16string escaped = u"&\"<>";
    std::mt19937 random(9);
    std::u16string text;
    for (int i = 0; i < (1 << 19); ++i) {
        text += static_cast<std::int64_t>(random() % 1000) < of_a_thousand
                    ? escaped[random() % escaped.size()]
                    : static_cast<WCHAR>('a' + random() % 26);
    }
    return text;
}

template <class String, class Escape>
void run(benchmark::State &state, const String &text, Escape escape) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(escape(text));
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * (1 << 20));
}

void Wide_Ostrel(benchmark::State &state) {
    run(state, OS::x_wstring(make_text(state.range(0))), [](OS::x_wstring text) {
        text.EscapeSpecialCharacters();
        return text;
    });
}

void Wide_OstrelChain(benchmark::State &state) {
    run(state, OS::x_wstring(make_text(state.range(0))), [](OS::x_wstring text) {
        text.FindAndReplaceAll(TEXT("&"), TEXT("&amp;"));
        text.FindAndReplaceAll(TEXT("\""), TEXT("&quot;"));
        text.FindAndReplaceAll(TEXT("<"), TEXT("&lt;"));
        text.FindAndReplaceAll(TEXT(">"), TEXT("&gt;"));
        text.FindAndReplaceAll(TEXT("'"), TEXT("&#039;"));
        text.FindAndReplaceAll(TEXT("\r"), TEXT("&#x0D;"));
        text.FindAndReplaceAll(TEXT("\n"), TEXT("&#x0A;"));
        return text;
    });
}

QString qt_text(const benchmark::State &state) {
    const std::u16string text = make_text(state.range(0));
    return QString::fromUtf16(text.data(), static_cast<int>(text.size()));
}

void Wide_Qt(benchmark::State &state) {
    run(state, qt_text(state), [](const QString &text) { return text.toHtmlEscaped(); });
}

void Wide_QtChain(benchmark::State &state) {
    run(state, qt_text(state), [](QString text) {
        return text.replace('&', "&amp;")
            .replace('"', "&quot;")
            .replace('<', "&lt;")
            .replace('>', "&gt;")
            .replace('\'', "&#039;")
            .replace('\r', "&#x0D;")
            .replace('\n', "&#x0A;");
    });
}

#define OSTREL_BENCH(name) \
    BENCHMARK(name)->Arg(0)->Arg(10)->Arg(100)->Arg(1000)->Unit(benchmark::kMicrosecond)

OSTREL_BENCH(Wide_Ostrel);
OSTREL_BENCH(Wide_OstrelChain);
OSTREL_BENCH(Wide_Qt);
OSTREL_BENCH(Wide_QtChain);

}  // namespace
