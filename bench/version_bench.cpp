// The version of a module of 100 MB, whose resources lie near its end, beside a bare loop over the
// host's calls that knows where to read, and beside a reading of the whole file.
//
// Cold_ empties the host's cache of the file before each run; "pages" is how many pages of the file
// the cache holds afterwards, "block" how many of them hold the version block. Where the host
// cannot empty the cache (tmpfs) the run ends with an error.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "ostrel/file/Std_Utils_File.h"
#include "tests/support/version_image.h"

namespace {

constexpr std::size_t kSize = 100 << 20, kResourceOffset = 99 << 20, kPage = 4096;

// A directory of the benchmark's own with one file, removed at the end.
class Module {
public:
    static const Module &Instance() {
        static const Module module;
        return module;
    }
    ~Module() { std::filesystem::remove_all(m_folder); }

    std::string Path() const { return m_folder / "module.dll"; }
    std::size_t PagesOfBlock() const { return m_pages; }

private:
    Module() {
        std::string name = std::filesystem::temp_directory_path() / "ostrel_bench_XXXXXX";
        m_folder = mkdtemp(name.data());
        const std::string block = version_block(
            {version_texts(u"040904B0", {version_text(u"CompanyName", u"Example"),
                                         version_text(u"FileDescription", u"A module"),
                                         version_text(u"FileVersion", u"5.1.2600.1106")}),
             version_translations({0x040904B0})});
        std::string image = pe_version(block);
        constexpr std::size_t kOffsetOfSection = kPeHeader + 24 + 240 + 40 + 20;
        patch(&image, kOffsetOfSection, kResourceOffset, 4);
        std::ofstream file(Path(), std::ios::binary);
        file << image.substr(0, kPeResources) << std::string(kResourceOffset - kPeResources, 'x')
             << image.substr(kPeResources)
             << std::string(kSize - kResourceOffset - image.size() + kPeResources, 'x');
        file.close();
        constexpr std::size_t kTree = 3 * 24 + 16;  // before the block
        m_pages = (kResourceOffset + kTree + block.size() - 1) / kPage -
                  (kResourceOffset + kTree) / kPage + 1;
    }

    std::filesystem::path m_folder;
    std::size_t m_pages = 0;
};

// Empties the host's cache of the file. Returns whether the host does so.
bool empty_cache(int file) {
    return fsync(file) == 0 && posix_fadvise(file, 0, 0, POSIX_FADV_DONTNEED) == 0;
}

std::size_t cached_pages(int file) {
    void *const map = mmap(nullptr, kSize, PROT_READ, MAP_SHARED, file, 0);
    std::vector<unsigned char> pages(kSize / kPage);
    mincore(map, kSize, pages.data());
    munmap(map, kSize);
    return static_cast<std::size_t>(
        std::count_if(pages.begin(), pages.end(), [](unsigned char page) { return page & 1; }));
}

bool read_numbers() {
    DWORD major = 0, minor = 0, build = 0;
    return NS_FileUtils::getModuleVersion(
               std::filesystem::path(Module::Instance().Path()).u16string().c_str(), major, minor,
               build) == 1 &&
           major == 5 && minor == 1 && build == 2600;
}

bool read_text() {
    WCHAR text[100];
    return NS_FileUtils::getModuleVersion(
               std::filesystem::path(Module::Instance().Path()).u16string().c_str(), text) == 1 &&
           text[0] == '5';
}

// Twice, as the version calls do: one tells the size, one reads.
bool read_bare() {
    bool is_good = true;
    for (int i = 0; i < 2; ++i) {
        char page[kPage];
        const int file = open(Module::Instance().Path().c_str(), O_RDONLY | O_CLOEXEC);
        for (const std::size_t offset : {std::size_t{0}, kResourceOffset}) {
            is_good &= pread(file, page, kPage, static_cast<off_t>(offset)) == kPage;
        }
        close(file);
    }
    return is_good;
}

bool read_whole() {
    std::ifstream file(Module::Instance().Path(), std::ios::binary);
    std::string content(kSize, '\0');
    return static_cast<bool>(file.read(content.data(), kSize));
}

template <bool (*kRead)()>
void Warm(benchmark::State &state) {
    Module::Instance();  // writes the file
    for (auto _ : state) {
        if (!kRead()) {
            state.SkipWithError("no version");
        }
    }
}

template <bool (*kRead)()>
void Cold(benchmark::State &state) {
    const int file = open(Module::Instance().Path().c_str(), O_RDWR | O_CLOEXEC);
    std::size_t pages = 0;
    for (auto _ : state) {
        state.PauseTiming();
        const bool is_empty = empty_cache(file) && cached_pages(file) == 0;
        state.ResumeTiming();
        if (!is_empty || !kRead()) {
            state.SkipWithError(is_empty ? "no version" : "the host keeps the file in its cache");
        }
        state.PauseTiming();
        pages = cached_pages(file);
        state.ResumeTiming();
    }
    close(file);
    state.counters["pages"] = static_cast<double>(pages);
    state.counters["block"] = static_cast<double>(Module::Instance().PagesOfBlock());
}

#define OSTREL_READS(name, read)               \
    BENCHMARK(Warm<read>)->Name("Warm_" name); \
    BENCHMARK(Cold<read>)->Name("Cold_" name)->Iterations(20)

OSTREL_READS("Numbers", read_numbers);
OSTREL_READS("Text", read_text);
OSTREL_READS("Bare", read_bare);
OSTREL_READS("Whole", read_whole);

}  // namespace
