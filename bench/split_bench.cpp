// Splits 64 KiB of text, tokens of about 8 characters with a comma between them, into a new vector
// of strings. What a peer gives by its own type of string (Qt) stays in that type; strtok and
// wcstok cut a copy, and their tokens are stored as the others are.

#include <absl/strings/str_split.h>
#include <benchmark/benchmark.h>

#include <Poco/StringTokenizer.h>
#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>
#include <boost/algorithm/string/classification.hpp>
#include <boost/algorithm/string/split.hpp>
#include <boost/tokenizer.hpp>
#include <cstring>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "ostrel/platform/crt_text.h"
#include "ostrel/text/token_list.h"

namespace {

constexpr std::size_t kBytes = 64 * 1024;

template <class Char>
struct Job {
    std::basic_string<Char> text;
    std::size_t tokens = 0;

    Job() {
        std::mt19937 random(42);
        while (text.size() < kBytes / sizeof(Char)) {
            const std::size_t length = 5 + random() % 7;
            for (std::size_t i = 0; i < length; ++i) {
                text.push_back(static_cast<Char>('a' + random() % 26));
            }
            text.push_back(',');
            ++tokens;
        }
        text.pop_back();
    }
};

template <class Char, class Split>
void run(benchmark::State &state, const Job<Char> &job, Split split) {
    std::size_t count = 0;
    for (auto _ : state) {
        const auto tokens = split();
        count = static_cast<std::size_t>(std::distance(tokens.begin(), tokens.end()));
        benchmark::DoNotOptimize(tokens);
    }
    if (count != job.tokens) {
        state.SkipWithError("wrong number of tokens");
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * kBytes));
}

void NarrowOstrel(benchmark::State &state) {
    const Job<char> job;
    const OS::x_astring text(job.text);
    run(state, job, [&] {
        std::vector<OS::x_astring> tokens;
        SplitStringToTokensA(&tokens, text, ",");
        return tokens;
    });
}

void NarrowAbseil(benchmark::State &state) {
    const Job<char> job;
    run(state, job,
        [&] { return std::vector<std::string>(absl::StrSplit(job.text, ',', absl::SkipEmpty())); });
}

void NarrowBoost(benchmark::State &state) {
    const Job<char> job;
    run(state, job, [&] {
        std::vector<std::string> tokens;
        boost::split(tokens, job.text, boost::is_any_of(","), boost::token_compress_on);
        return tokens;
    });
}

void NarrowBoostTokenizer(benchmark::State &state) {
    const Job<char> job;
    run(state, job, [&] {
        const boost::tokenizer<boost::char_separator<char>> cut(job.text,
                                                                boost::char_separator<char>(","));
        return std::vector<std::string>(cut.begin(), cut.end());
    });
}

void NarrowQt(benchmark::State &state) {
    const Job<char> job;
    const QByteArray text = QByteArray::fromStdString(job.text);
    run(state, job, [&] { return text.split(','); });
}

void NarrowPoco(benchmark::State &state) {
    const Job<char> job;
    run(state, job, [&] {
        return Poco::StringTokenizer(job.text, ",", Poco::StringTokenizer::TOK_IGNORE_EMPTY);
    });
}

void NarrowStrtok(benchmark::State &state) {
    const Job<char> job;
    run(state, job, [&] {
        std::vector<std::string> tokens;
        std::string copy = job.text;
        for (const char *token = std::strtok(copy.data(), ","); token != nullptr;
             token = std::strtok(nullptr, ",")) {
            tokens.emplace_back(token);
        }
        return tokens;
    });
}

void WideOstrel(benchmark::State &state) {
    const Job<WCHAR> job;
    const OS::x_wstring text(job.text);
    run(state, job, [&] {
        std::vector<OS::x_wstring> tokens;
        SplitStringToTokensW(&tokens, text, TEXT(","));
        return tokens;
    });
}

void WideQt(benchmark::State &state) {
    const Job<WCHAR> job;
    const QString text = QString::fromStdU16String(job.text);
    run(state, job, [&] { return text.split(QLatin1Char(','), Qt::SkipEmptyParts); });
}

void WideBoost(benchmark::State &state) {
    const Job<WCHAR> job;
    run(state, job, [&] {
        std::vector<std::u16string> tokens;
        boost::split(tokens, job.text, boost::is_any_of(TEXT(",")), boost::token_compress_on);
        return tokens;
    });
}

void WideWcstok(benchmark::State &state) {
    const Job<WCHAR> job;
    run(state, job, [&] {
        std::vector<std::u16string> tokens;
        std::u16string copy = job.text;
        for (const WCHAR *token = wcstok(copy.data(), TEXT(",")); token != nullptr;
             token = wcstok(nullptr, TEXT(","))) {
            tokens.emplace_back(token);
        }
        return tokens;
    });
}

BENCHMARK(NarrowOstrel)->Unit(benchmark::kMicrosecond);
BENCHMARK(NarrowAbseil)->Unit(benchmark::kMicrosecond);
BENCHMARK(NarrowBoost)->Unit(benchmark::kMicrosecond);
BENCHMARK(NarrowBoostTokenizer)->Unit(benchmark::kMicrosecond);
BENCHMARK(NarrowQt)->Unit(benchmark::kMicrosecond);
BENCHMARK(NarrowPoco)->Unit(benchmark::kMicrosecond);
BENCHMARK(NarrowStrtok)->Unit(benchmark::kMicrosecond);
BENCHMARK(WideOstrel)->Unit(benchmark::kMicrosecond);
BENCHMARK(WideQt)->Unit(benchmark::kMicrosecond);
BENCHMARK(WideBoost)->Unit(benchmark::kMicrosecond);
BENCHMARK(WideWcstok)->Unit(benchmark::kMicrosecond);

}  // namespace
