// Loads a mapping file of so many lines: into the two maps of CIDMapping, and into the same maps by
// other readers; and reads it without the maps, beside a bare scan of the mapped file.
//
// The first load of a process, for which the system has yet to provide the memory, is not timed,
// and what is released stays with the process: a page of new memory costs the system more than
// several lines cost the contenders. From the first load comes peak_B_line, the memory for a line
// at its peak. ns_line is the time for a line in the fastest load: where a gigabyte is touched, a
// busy host makes others several times as long. depth is the binary logarithm of the number of
// lines: a map's. To see how ns_line grows with it, take turns, so that the host's moods come over
// all sizes:
//   bench/run mapping --benchmark_filter=LoadOstrel --benchmark_min_time=3
//       --benchmark_enable_random_interleaving=true --benchmark_repetitions=4

#include <absl/strings/numbers.h>
#include <absl/strings/str_split.h>
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <malloc.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <limits>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "ostrel/config/cm_IdMapping.h"
#include "ostrel/config/cm_ini_reader.h"

namespace {

// A file for the length of the process.
class MappingFile {
public:
    explicit MappingFile(int lines)
        : m_path(std::filesystem::temp_directory_path() /
                 ("ostrel_mapping_" + std::to_string(getpid()) + "_" + std::to_string(lines))) {
        std::ofstream file(m_path);
        for (int i = 0; i < lines; ++i) {
            // Sorted by ID, as such files are; the names are not in order.
            file << i << "\tEVENT_" << (i * 7919LL) % lines << "\tCATEGORY_" << i % 10 << '\n';
        }
    }
    ~MappingFile() { std::filesystem::remove(m_path); }
    MappingFile(const MappingFile &) = delete;
    MappingFile &operator=(const MappingFile &) = delete;

    static const std::filesystem::path &Of(const benchmark::State &state) {
        static std::map<int, std::unique_ptr<MappingFile>> files;
        auto &file = files[static_cast<int>(state.range(0))];
        if (file == nullptr) {
            file = std::make_unique<MappingFile>(static_cast<int>(state.range(0)));
        }
        return file->m_path;
    }

private:
    std::filesystem::path m_path;
};

long status_kib(const char *name) {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.compare(0, std::strlen(name), name) == 0) {
            return std::stol(line.substr(std::strlen(name) + 1));
        }
    }
    return 0;
}

// Runs `load` and reports time and memory for a line. What it gives is released outside the time.
template <class Load>
void run(benchmark::State &state, Load load) {
    using Clock = std::chrono::steady_clock;
    mallopt(M_MMAP_THRESHOLD, 1 << 30);
    mallopt(M_TRIM_THRESHOLD, -1);  // never
    const auto lines = static_cast<double>(state.range(0));
    malloc_trim(0);
    std::ofstream("/proc/self/clear_refs") << 5;  // the peak starts from here
    const long before = status_kib("VmRSS:");
    { [[maybe_unused]] const auto first = load(); }
    const long peak = status_kib("VmHWM:") - before;
    double least = std::numeric_limits<double>::max();
    for (auto _ : state) {
        const auto start = Clock::now();
        [[maybe_unused]] const auto loaded = load();
        const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
        state.SetIterationTime(seconds);
        least = std::min(least, seconds);
    }
    state.counters["peak_B_line"] = static_cast<double>(peak) * 1024 / lines;
    state.counters["ns_line"] = least * 1e9 / lines;
    state.counters["depth"] = std::log2(lines);
}

// The tables of CIDMapping for the other readers.
struct Tables {
    std::vector<std::unique_ptr<IDMappingItem>> items;
    std::map<int, IDMappingItem *> by_id;
    std::map<OS::x_wstring, IDMappingItem *> by_name;

    void Add(int id, std::string_view name, std::string_view category) {
        const auto wide = [](std::string_view text) {
            return OS::x_wstring(std::u16string(text.begin(), text.end()));
        };
        items.push_back(
            std::make_unique<IDMappingItem>(IDMappingItem{id, wide(name), wide(category)}));
        by_id[id] = items.back().get();
        by_name[items.back()->m_strLogicalID] = items.back().get();
    }
};

void check(benchmark::State &state, std::size_t lines) {
    if (lines != static_cast<std::size_t>(state.range(0))) {
        state.SkipWithError("lines are missing");
    }
}

void LoadOstrel(benchmark::State &state) {
    const std::u16string path = MappingFile::Of(state).u16string();
    run(state, [&] {
        auto mapping = std::make_unique<CIDMapping>(path.c_str());
        if (mapping->GetID(static_cast<int>(state.range(0)) - 1) == nullptr) {
            state.SkipWithError("lines are missing");
        }
        return mapping;
    });
}

void LoadFgetsStrtok(benchmark::State &state) {
    const std::string path = MappingFile::Of(state).string();
    run(state, [&] {
        auto tables = std::make_unique<Tables>();
        std::FILE *const file = std::fopen(path.c_str(), "r");
        char line[4096];
        while (std::fgets(line, sizeof line, file) != nullptr) {
            const char *const id = std::strtok(line, " \t\n");
            const char *const name = id != nullptr ? std::strtok(nullptr, " \t\n") : nullptr;
            const char *const category = name != nullptr ? std::strtok(nullptr, " \t\n") : nullptr;
            if (category != nullptr && id[0] != '#') {
                tables->Add(std::atoi(id), name, category);
            }
        }
        std::fclose(file);
        check(state, tables->items.size());
        return tables;
    });
}

void LoadGetlineStreams(benchmark::State &state) {
    const std::filesystem::path &path = MappingFile::Of(state);
    run(state, [&] {
        auto tables = std::make_unique<Tables>();
        std::ifstream file(path);
        for (std::string line; std::getline(file, line);) {
            std::istringstream fields(line);
            int id = 0;
            std::string name, category;
            if (line.empty() || line[0] == '#' || !(fields >> id >> name >> category)) {
                continue;
            }
            tables->Add(id, name, category);
        }
        check(state, tables->items.size());
        return tables;
    });
}

void LoadGetlineAbseil(benchmark::State &state) {
    const std::filesystem::path &path = MappingFile::Of(state);
    run(state, [&] {
        auto tables = std::make_unique<Tables>();
        std::ifstream file(path);
        for (std::string line; std::getline(file, line);) {
            const std::vector<absl::string_view> fields =
                absl::StrSplit(line, absl::ByAnyChar(" \t"), absl::SkipEmpty());
            int id = 0;
            if (fields.size() < 3 || fields[0][0] == '#' || !absl::SimpleAtoi(fields[0], &id)) {
                continue;
            }
            tables->Add(id, {fields[1].data(), fields[1].size()},
                        {fields[2].data(), fields[2].size()});
        }
        check(state, tables->items.size());
        return tables;
    });
}

void ReadOstrelParse(benchmark::State &state) {
    const std::u16string path = MappingFile::Of(state).u16string();
    run(state, [&] {
        auto reader = std::make_unique<CINIReader>();
        reader->Parse(path.c_str(), TEXT("r"));
        return reader;
    });
}

void ReadMappedScan(benchmark::State &state) {
    const std::string path = MappingFile::Of(state).string();
    run(state, [&] {
        const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
        struct stat facts;
        fstat(file, &facts);
        const auto size = static_cast<std::size_t>(facts.st_size);
        const auto *const begin =
            static_cast<const char *>(mmap(nullptr, size, PROT_READ, MAP_PRIVATE, file, 0));
        close(file);
        std::size_t lines = 0;
        const char *at = begin;
        while (const void *end =
                   std::memchr(at, '\n', static_cast<std::size_t>(begin + size - at))) {
            at = static_cast<const char *>(end) + 1;
            ++lines;
        }
        munmap(const_cast<char *>(begin), size);
        check(state, lines);
        return lines;
    });
}

#define TO_1M \
    Arg(10'000)->Arg(100'000)->Arg(1'000'000)->UseManualTime()->Unit(benchmark::kMillisecond)
#define TO_3M TO_1M->Arg(3'000'000)
BENCHMARK(LoadOstrel)->TO_3M;
BENCHMARK(LoadFgetsStrtok)->TO_1M;
BENCHMARK(LoadGetlineStreams)->TO_1M;
BENCHMARK(LoadGetlineAbseil)->TO_1M;
BENCHMARK(ReadOstrelParse)->TO_3M;
BENCHMARK(ReadMappedScan)->TO_3M;

}  // namespace
