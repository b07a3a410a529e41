// What a trace line costs, beside spdlog's own logger: when nobody wants it, and when one sink does
// that only counts.

#include <benchmark/benchmark.h>
#include <spdlog/logger.h>
#include <spdlog/sinks/null_sink.h>

#include <cstddef>
#include <memory>

#include "wexlog/wexlog.h"

namespace {

using DBG::DebugLogEx;

const WCHAR *const kFile = TEXT(".\\trace_bench.cpp");

void TraceThreeArguments(int i) {
    DebugLogEx(nullptr, DBG::kLevelValue, kFile, 42, TEXT("Token = %s, Counter = %d of %d"),
               TEXT("token"), i, 100);
}

void Unwanted(benchmark::State &state) {
    for (int i = 0; auto _ : state) {
        TraceThreeArguments(++i);
    }
}
BENCHMARK(Unwanted);

// Some sink wants other kinds: the branch depends on the level.
void UnwantedKind(benchmark::State &state) {
    const DBG::SinkId sink = DBG::AddSink([](const DBG::Line &) {}, DBG::kFailure);
    for (int i = 0; auto _ : state) {
        TraceThreeArguments(++i);
    }
    DBG::RemoveSink(sink);
}
BENCHMARK(UnwantedKind);

void CountingSink(benchmark::State &state) {
    std::size_t units = 0;
    const DBG::SinkId sink =
        DBG::AddSink([&units](const DBG::Line &line) { units += line.text.size(); });
    for (int i = 0; auto _ : state) {
        TraceThreeArguments(++i);
    }
    DBG::RemoveSink(sink);
    benchmark::DoNotOptimize(units);
}
BENCHMARK(CountingSink);

void CountingSinkNarrow(benchmark::State &state) {
    std::size_t units = 0;
    const DBG::SinkId sink =
        DBG::AddSink([&units](const DBG::Line &line) { units += line.text.size(); });
    for (int i = 0; auto _ : state) {
        DebugLogEx(nullptr, DBG::kLevelValue, kFile, 42, "Token = %s, Counter = %d of %d", "token",
                   ++i, 100);
    }
    DBG::RemoveSink(sink);
    benchmark::DoNotOptimize(units);
}
BENCHMARK(CountingSinkNarrow);

// The peer, with the same text: its level off, and a sink that does nothing behind one lock.
void Peer(benchmark::State &state, spdlog::level::level_enum wanted) {
    spdlog::logger logger("bench", std::make_shared<spdlog::sinks::null_sink_mt>());
    logger.set_level(wanted);
    for (int i = 0; auto _ : state) {
        logger.debug("Token = {}, Counter = {} of {}", "token", ++i, 100);
    }
}
BENCHMARK_CAPTURE(Peer, Unwanted, spdlog::level::info);
BENCHMARK_CAPTURE(Peer, NullSink, spdlog::level::debug);

}  // namespace

BENCHMARK_MAIN();
