// Moves that wait for the next start: recording one more request in a record of so many, and
// carrying out so many deletions of existing files. Both should cost the same for a request however
// many there are. No peer does this work; the time is mostly that of the disk.
//
// us_request is the time for a request in microseconds. bytes_request is what the process wrote
// for a request, as the host counts it (wchar in /proc/self/io).

#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "ostrel/platform/pending/pending_moves.h"
#include "ostrel/platform/pending/pending_record.h"

namespace {

using ostrel_platform::PendingRecord;
using ostrel_platform::PendingRequest;

// A new record and a folder for files, both removed at the end.
struct Scratch {
    Scratch() {
        std::string name = std::filesystem::temp_directory_path() / "ostrel_bench_XXXXXX";
        path = mkdtemp(name.data());
        std::filesystem::create_directory(path / "files");
        setenv("OSTREL_STATE_DIR", path.c_str(), 1);
    }
    ~Scratch() { std::filesystem::remove_all(path); }
    Scratch &operator=(Scratch &&) = delete;

    std::string File(std::int64_t number) const {
        return path / "files" / ("file" + std::to_string(number) + ".txt");
    }

    // Writes a record of so many deletions.
    bool Fill(std::int64_t count) const {
        std::vector<PendingRequest> requests;
        for (std::int64_t i = 0; i < count; ++i) {
            requests.push_back({ostrel_platform::PendingVerb::kDelete, "earlier", {}, File(i), {}});
        }
        PendingRecord record;
        return record.Open(true) == 0 && record.Replace(requests) == 0;
    }

    std::filesystem::path path;
};

double bytes_written() {
    std::ifstream counts("/proc/self/io");
    std::string name;
    double count = 0;
    while (counts >> name >> count && name != "wchar:") {
    }
    return count;
}

void report(benchmark::State &state, double before, std::int64_t requests) {
    const auto all = static_cast<double>(requests);
    state.counters["bytes_request"] = (bytes_written() - before) / all;
    state.counters["us_request"] =
        benchmark::Counter(all / 1e6, benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void Record(benchmark::State &state) {
    const Scratch scratch;
    if (!scratch.Fill(state.range(0))) {
        state.SkipWithError("no record");
        return;
    }
    const std::string file = scratch.File(0);
    const double before = bytes_written();
    for (auto _ : state) {
        if (ostrel_platform::record_pending_move(file, nullptr, false) != 0) {
            state.SkipWithError("not recorded");
        }
    }
    report(state, before, static_cast<std::int64_t>(state.iterations()));
}
BENCHMARK(Record)->Arg(0)->Arg(1000)->Arg(10'000)->Arg(100'000)->UseRealTime();

void CarryOut(benchmark::State &state) {
    const Scratch scratch;
    const std::int64_t count = state.range(0);
    for (std::int64_t i = 0; i < count; ++i) {
        std::ofstream(scratch.File(i)) << i;
    }
    if (!scratch.Fill(count)) {
        state.SkipWithError("no record");
        return;
    }
    const double before = bytes_written();
    for (auto _ : state) {
        const auto outcome = ostrel_platform::carry_out_pending_moves(
            ostrel_platform::PendingScope::kEarlierStarts, stderr);
        if (outcome.done != static_cast<std::size_t>(count) || outcome.error != 0) {
            state.SkipWithError("not carried out");
        }
    }
    report(state, before, count);
}
BENCHMARK(CarryOut)->Arg(1000)->Arg(10'000)->Arg(100'000)->Iterations(1)->UseRealTime()->Unit(
    benchmark::kMillisecond);

}  // namespace
