// Replaces all occurrences in a text of 1 MiB. Each contender leaves the text as it is and gives a
// changed copy. The first argument says how many characters of a hundred belong to a hit, the
// second whether the replacement is as long as the search text (0) or half as long again (1).
//
// The search text has 5 characters. The narrow twin of Ostrel stops after 4999 hits: so that ten of
// a hundred characters are fewer hits there, 4369, the search text has 24 characters in that case.

#include <absl/strings/str_replace.h>
#include <benchmark/benchmark.h>

#include <Poco/String.h>
#include <QByteArray>
#include <QString>
#include <boost/algorithm/string/replace.hpp>
#include <random>
#include <string>

#include "ostrel/core/x_string.h"

namespace {

template <class Char>
struct Job {
    std::basic_string<Char> text, search, replacement;

    explicit Job(const benchmark::State &state) {
        const std::size_t length = (1 << 20) / sizeof(Char);
        const std::size_t width = sizeof(Char) == 1 && state.range(0) == 10 ? 24 : 5;
        std::mt19937 random(42);
        for (std::size_t i = 0; i < length; ++i) {
            text.push_back(static_cast<Char>('a' + random() % 26));
        }
        for (std::size_t i = 0; i < width; ++i) {
            search.push_back(static_cast<Char>(i == 0 ? 'e' : 'A' + i));
        }
        replacement.assign(state.range(1) == 0 ? width : width * 3 / 2, Char('x'));
        const std::size_t hits = length * static_cast<std::size_t>(state.range(0)) / 100 / width;
        for (std::size_t i = 0; i < hits; ++i) {
            text.replace(i * (length / hits), width, search);
        }
    }
};

void finish(benchmark::State &state, std::size_t result_size, std::size_t expected) {
    if (result_size != expected) {
        state.SkipWithError("wrong result");
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * (1 << 20));
}

template <class Char>
std::size_t expected_size(const Job<Char> &job) {
    std::basic_string<Char> copy = job.text;
    boost::replace_all(copy, job.search, job.replacement);
    return copy.size();
}

// Runs `change`, which gives the changed copy, and checks the length of what it gives.
template <class Char, class Change>
void run(benchmark::State &state, const Job<Char> &job, Change change) {
    std::size_t size = 0;
    for (auto _ : state) {
        const auto copy = change();
        size = static_cast<std::size_t>(copy.size());
        benchmark::DoNotOptimize(copy);
    }
    finish(state, size, expected_size(job));
}

// A loop over find and append, as it is written by hand.
template <class Char>
std::basic_string<Char> by_hand(const std::basic_string<Char> &text,
                                const std::basic_string<Char> &search,
                                const std::basic_string<Char> &replacement) {
    std::basic_string<Char> result;
    std::size_t from = 0;
    for (std::size_t at; (at = text.find(search, from)) != text.npos; from = at + search.size()) {
        result.append(text, from, at - from).append(replacement);
    }
    return result.append(text, from);
}

void WideOstrel(benchmark::State &state) {
    const Job<WCHAR> job(state);
    const OS::x_wstring text(job.text), search(job.search), replacement(job.replacement);
    run(state, job, [&] {
        OS::x_wstring copy(text);
        copy.FindAndReplaceAll(search, replacement);
        return copy;
    });
}

void WideQt(benchmark::State &state) {
    const Job<char16_t> job(state);
    const QString text = QString::fromStdU16String(job.text);
    const QString search = QString::fromStdU16String(job.search);
    const QString replacement = QString::fromStdU16String(job.replacement);
    run(state, job, [&] {
        QString copy(text);
        copy.replace(search, replacement);
        return copy;
    });
}

void WideBoost(benchmark::State &state) {
    const Job<char16_t> job(state);
    run(state, job, [&] { return boost::replace_all_copy(job.text, job.search, job.replacement); });
}

void WideByHand(benchmark::State &state) {
    const Job<char16_t> job(state);
    run(state, job, [&] { return by_hand(job.text, job.search, job.replacement); });
}

void NarrowOstrel(benchmark::State &state) {
    const Job<char> job(state);
    const OS::x_astring text(job.text), search(job.search), replacement(job.replacement);
    run(state, job, [&] {
        OS::x_astring copy(text);
        copy.FindAndReplaceAll(search, replacement);
        return copy;
    });
}

void NarrowAbseil(benchmark::State &state) {
    const Job<char> job(state);
    run(state, job, [&] { return absl::StrReplaceAll(job.text, {{job.search, job.replacement}}); });
}

void NarrowQt(benchmark::State &state) {
    const Job<char> job(state);
    const QByteArray text = QByteArray::fromStdString(job.text);
    const QByteArray search = QByteArray::fromStdString(job.search);
    const QByteArray replacement = QByteArray::fromStdString(job.replacement);
    run(state, job, [&] {
        QByteArray copy(text);
        copy.replace(search, replacement);
        return copy;
    });
}

void NarrowBoost(benchmark::State &state) {
    const Job<char> job(state);
    run(state, job, [&] { return boost::replace_all_copy(job.text, job.search, job.replacement); });
}

void NarrowPoco(benchmark::State &state) {
    const Job<char> job(state);
    run(state, job, [&] { return Poco::replace(job.text, job.search, job.replacement); });
}

void NarrowByHand(benchmark::State &state) {
    const Job<char> job(state);
    run(state, job, [&] { return by_hand(job.text, job.search, job.replacement); });
}

#define JOBS \
    ArgNames({"hits%", "grows"})->ArgsProduct({{0, 1, 10}, {0, 1}})->Unit(benchmark::kMicrosecond)
BENCHMARK(WideOstrel)->JOBS;
BENCHMARK(WideQt)->JOBS;
BENCHMARK(WideBoost)->JOBS;
BENCHMARK(WideByHand)->JOBS;
BENCHMARK(NarrowOstrel)->JOBS;
BENCHMARK(NarrowAbseil)->JOBS;
BENCHMARK(NarrowQt)->JOBS;
BENCHMARK(NarrowBoost)->JOBS;
BENCHMARK(NarrowPoco)->JOBS;
BENCHMARK(NarrowByHand)->JOBS;

}  // namespace
