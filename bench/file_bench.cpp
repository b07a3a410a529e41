// Files: walks of a tree, sizes, deletion and copying, beside the libraries and a bare loop over
// the host's calls. All walks read names and sizes.
//
// The tree has ten files in each directory, in two levels of subdirectories, and is made by the
// host's own calls. ns_file is the time for a file. The first walk of
// each is not timed: it warms up the host's caches and the layer's.

#include <benchmark/benchmark.h>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <Poco/DirectoryIterator.h>
#include <Poco/File.h>
#include <Poco/RecursiveDirectoryIterator.h>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <boost/filesystem.hpp>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "ostrel/file/Std_Utils_File.h"
#include "ostrel/file/browse_directory.h"

namespace {

constexpr int kFilesOfDirectory = 10;
constexpr int kDirectoriesOfDirectory = 50;

// A directory of the benchmark's own, removed at the end.
class Scratch {
public:
    static const std::filesystem::path &Path() {
        static const Scratch scratch;
        return scratch.m_path;
    }
    ~Scratch() { std::filesystem::remove_all(m_path); }

private:
    Scratch() {
        std::string name = std::filesystem::temp_directory_path() / "ostrel_bench_XXXXXX";
        m_path = mkdtemp(name.data());
    }
    std::filesystem::path m_path;
};

// What is found out about a file is remembered once the file has not changed for two seconds
// (ostrel/platform/attribute_cache.h).
void let_age() {
    std::this_thread::sleep_for(std::chrono::seconds(4));
}

std::string numbered(const char *name, int number) {
    return std::string(name).append(std::to_string(number));
}

// Makes a tree of so many files.
void make_tree(const std::filesystem::path &root, int files) {
    const int directories = files / kFilesOfDirectory;
    for (int i = 0; i < directories; ++i) {
        const std::filesystem::path directory =
            root / (numbered("d", i / kDirectoriesOfDirectory)) / (numbered("e", i));
        std::filesystem::create_directories(directory);
        for (int k = 0; k < kFilesOfDirectory; ++k) {
            std::ofstream(directory / (numbered("file", k) + ".txt")) << k;
        }
    }
}

const std::filesystem::path &tree_of(int files) {
    static std::map<int, std::filesystem::path> trees;
    std::filesystem::path &root = trees[files];
    if (root.empty()) {
        root = Scratch::Path() / (numbered("tree", files));
        make_tree(root, files);
        let_age();
    }
    return root;
}

struct Sum {
    std::int64_t files = 0;
    std::int64_t bytes = 0;
};

template <class Walk>
void run_walk(benchmark::State &state, Walk walk) {
    const auto files = static_cast<int>(state.range(0));
    const std::filesystem::path &root = tree_of(files);
    walk(root);
    for (auto _ : state) {
        const Sum sum = walk(root);
        if (sum.files != files || sum.bytes != files) {
            state.SkipWithError("files are missing");
        }
    }
    state.counters["ns_file"] = benchmark::Counter(
        files / 1e9, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

// The host's calls and nothing else.
void walk_bare(int parent, const char *name, Sum *sum) {
    struct Entry {
        std::uint64_t inode;
        std::int64_t offset;
        std::uint16_t length;
        std::uint8_t type;
        char name[1];
    };
    const int directory = openat(parent, name, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    alignas(Entry) char buffer[32 * 1024];
    for (long count; (count = syscall(SYS_getdents64, directory, buffer, sizeof buffer)) > 0;) {
        for (long at = 0; at < count;) {
            const auto *const entry = reinterpret_cast<const Entry *>(buffer + at);
            at += entry->length;
            if (entry->type == DT_DIR) {
                if (entry->name[0] != '.') {
                    walk_bare(directory, entry->name, sum);
                }
                continue;
            }
            struct stat facts;
            fstatat(directory, entry->name, &facts, 0);
            ++sum->files;
            sum->bytes += facts.st_size;
        }
    }
    close(directory);
}

void Walk_Bare(benchmark::State &state) {
    run_walk(state, [](const std::filesystem::path &root) {
        Sum sum;
        walk_bare(AT_FDCWD, root.c_str(), &sum);
        return sum;
    });
}

// The size of a file comes with it here, as in no other call of the walker.
void Walk_CollectFilesEx(benchmark::State &state) {
    run_walk(state, [](const std::filesystem::path &root) {
        Sum sum;
        NS_FileUtils::collectFilesEx(
            [](unsigned, std::int64_t, std::int64_t, std::int64_t, DWORD size, WCHAR *,
               void *context) {
                ++static_cast<Sum *>(context)->files;
                static_cast<Sum *>(context)->bytes += size;
            },
            &sum, root.u16string().c_str(), TEXT("*.*"), 0, nullptr, true, nullptr);
        return sum;
    });
}

// Full paths; what was listed has been looked at, with its size.
void Walk_CollectFiles(benchmark::State &state) {
    run_walk(state, [](const std::filesystem::path &root) {
        std::vector<OS::x_wstring> files;
        const LONG count = NS_FileUtils::collectFiles(files, root.u16string().c_str(), TEXT("*.*"),
                                                      0, nullptr, true, nullptr);
        return Sum{count, static_cast<std::int64_t>(files.size())};
    });
}

void Walk_BrowseDirectory(benchmark::State &state) {
    class Counter : public OS::CBrowseDirectory::CFileSearchCallback {
    public:
        void operator()(const WCHAR *, const WCHAR *, const WCHAR *) override {
            ++sum.files;
            ++sum.bytes;
        }
        Sum sum;
    };
    run_walk(state, [](const std::filesystem::path &root) {
        Counter counter;
        OS::CBrowseDirectory().BrowseDirectory(root.u16string().c_str(), true, TEXT("*.*"),
                                               counter);
        return counter.sum;
    });
}

void Walk_Std(benchmark::State &state) {
    run_walk(state, [](const std::filesystem::path &root) {
        Sum sum;
        for (const auto &entry : std::filesystem::recursive_directory_iterator(root)) {
            if (!entry.is_directory()) {
                ++sum.files;
                sum.bytes += static_cast<std::int64_t>(entry.file_size());
            }
        }
        return sum;
    });
}

void Walk_Boost(benchmark::State &state) {
    run_walk(state, [](const std::filesystem::path &root) {
        Sum sum;
        for (const auto &entry : boost::filesystem::recursive_directory_iterator(root.string())) {
            if (entry.status().type() != boost::filesystem::directory_file) {
                ++sum.files;
                sum.bytes += static_cast<std::int64_t>(file_size(entry.path()));
            }
        }
        return sum;
    });
}

void Walk_Qt(benchmark::State &state) {
    run_walk(state, [](const std::filesystem::path &root) {
        Sum sum;
        QDirIterator files(QString::fromStdString(root.string()),
                           QDir::Files | QDir::Hidden | QDir::System, QDirIterator::Subdirectories);
        while (files.hasNext()) {
            files.next();
            ++sum.files;
            sum.bytes += files.fileInfo().size();
        }
        return sum;
    });
}

void Walk_Poco(benchmark::State &state) {
    run_walk(state, [](const std::filesystem::path &root) {
        Sum sum;
        Poco::SimpleRecursiveDirectoryIterator file(root.string());
        for (const Poco::SimpleRecursiveDirectoryIterator end; file != end; ++file) {
            if (!file->isDirectory()) {
                ++sum.files;
                sum.bytes += static_cast<std::int64_t>(file->getSize());
            }
        }
        return sum;
    });
}

// One directory of so many files, added up.
const std::filesystem::path &flat_directory(int files) {
    static std::map<int, std::filesystem::path> directories;
    std::filesystem::path &directory = directories[files];
    if (directory.empty()) {
        directory = Scratch::Path() / (numbered("flat", files));
        std::filesystem::create_directory(directory);
        for (int i = 0; i < files; ++i) {
            std::ofstream(directory / std::to_string(i)) << 1;
        }
        let_age();
    }
    return directory;
}

void DirectorySize_Ostrel(benchmark::State &state) {
    const std::u16string path = flat_directory(static_cast<int>(state.range(0))).u16string();
    for (auto _ : state) {
        DWORD size = 0;
        NS_FileUtils::getDirectorySize(path.c_str(), size);
        if (size != state.range(0)) {
            state.SkipWithError("wrong size");
        }
    }
}

void DirectorySize_Bare(benchmark::State &state) {
    const std::filesystem::path &path = flat_directory(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        Sum sum;
        walk_bare(AT_FDCWD, path.c_str(), &sum);
        benchmark::DoNotOptimize(sum);
    }
}

void DirectorySize_Std(benchmark::State &state) {
    const std::filesystem::path &path = flat_directory(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        std::uintmax_t size = 0;
        for (const auto &entry : std::filesystem::directory_iterator(path)) {
            size += entry.file_size();
        }
        benchmark::DoNotOptimize(size);
    }
}

template <class Delete>
void run_deletion(benchmark::State &state, Delete remove) {
    const auto files = static_cast<int>(state.range(0));
    const std::filesystem::path root = Scratch::Path() / "deleted";
    for (auto _ : state) {
        state.PauseTiming();
        make_tree(root, files);
        state.ResumeTiming();
        remove(root);
        if (access(root.c_str(), F_OK) == 0) {
            state.SkipWithError("not deleted");
        }
    }
    state.counters["ns_file"] = benchmark::Counter(
        files / 1e9, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void Delete_Ostrel(benchmark::State &state) {
    run_deletion(state, [](const std::filesystem::path &root) {
        NS_FileUtils::deleteTree(root.u16string().c_str(), nullptr, nullptr, 1, 1, TEXT("*.*"));
    });
}
void Delete_Std(benchmark::State &state) {
    run_deletion(state,
                 [](const std::filesystem::path &root) { std::filesystem::remove_all(root); });
}
void Delete_Boost(benchmark::State &state) {
    run_deletion(state, [](const std::filesystem::path &root) {
        boost::filesystem::remove_all(root.string());
    });
}
void Delete_Qt(benchmark::State &state) {
    run_deletion(state, [](const std::filesystem::path &root) {
        QDir(QString::fromStdString(root.string())).removeRecursively();
    });
}
void Delete_Poco(benchmark::State &state) {
    run_deletion(state,
                 [](const std::filesystem::path &root) { Poco::File(root.string()).remove(true); });
}

// A file of 256 MiB, each time to a new one.
constexpr std::size_t kCopied = std::size_t{256} << 20;

const std::filesystem::path &large_file() {
    static const std::filesystem::path path = [] {
        std::filesystem::path made = Scratch::Path() / "large";
        std::ofstream file(made, std::ios::binary);
        const std::string block(std::size_t{1} << 20, 'x');
        for (std::size_t written = 0; written < kCopied; written += block.size()) {
            file << block;
        }
        return made;
    }();
    return path;
}

template <class Copy>
void run_copy(benchmark::State &state, Copy copy) {
    const std::filesystem::path &source = large_file();
    const std::filesystem::path target = Scratch::Path() / "copied";
    copy(source, target);  // the first one has the host write back what others left
    std::filesystem::remove(target);
    for (auto _ : state) {
        copy(source, target);
        state.PauseTiming();
        if (std::filesystem::file_size(target) != kCopied) {
            state.SkipWithError("not copied");
        }
        std::filesystem::remove(target);
        state.ResumeTiming();
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) *
                            static_cast<std::int64_t>(kCopied));
}

void Copy_Ostrel(benchmark::State &state) {
    run_copy(state, [](const std::filesystem::path &source, const std::filesystem::path &target) {
        NS_FileUtils::copyFileEx(source.u16string().c_str(), target.u16string().c_str(), false);
    });
}

// The same buffer.
void Copy_ReadWrite(benchmark::State &state) {
    run_copy(state, [](const std::filesystem::path &source, const std::filesystem::path &target) {
        const int from = open(source.c_str(), O_RDONLY | O_CLOEXEC);
        const int to = open(target.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
        char buffer[16383];
        for (ssize_t count; (count = read(from, buffer, sizeof buffer)) > 0;) {
            if (write(to, buffer, static_cast<std::size_t>(count)) != count) {
                break;
            }
        }
        close(from);
        close(to);
    });
}
void Copy_Std(benchmark::State &state) {
    run_copy(state, [](const std::filesystem::path &source, const std::filesystem::path &target) {
        std::filesystem::copy_file(source, target);
    });
}
void Copy_Qt(benchmark::State &state) {
    run_copy(state, [](const std::filesystem::path &source, const std::filesystem::path &target) {
        QFile::copy(QString::fromStdString(source.string()),
                    QString::fromStdString(target.string()));
    });
}

#define TREES Arg(1'000)->Arg(20'000)->Unit(benchmark::kMillisecond)
#define LARGE_TREE TREES->Arg(200'000)
BENCHMARK(Walk_BrowseDirectory)->LARGE_TREE;
BENCHMARK(Walk_CollectFiles)->LARGE_TREE;
BENCHMARK(Walk_CollectFilesEx)->LARGE_TREE;
BENCHMARK(Walk_Bare)->LARGE_TREE;
BENCHMARK(Walk_Std)->TREES;
BENCHMARK(Walk_Boost)->TREES;
BENCHMARK(Walk_Qt)->TREES;
BENCHMARK(Walk_Poco)->TREES;
BENCHMARK(DirectorySize_Ostrel)->Arg(10'000)->Unit(benchmark::kMillisecond);
BENCHMARK(DirectorySize_Bare)->Arg(10'000)->Unit(benchmark::kMillisecond);
BENCHMARK(DirectorySize_Std)->Arg(10'000)->Unit(benchmark::kMillisecond);
BENCHMARK(Delete_Ostrel)->Arg(2'000)->Unit(benchmark::kMillisecond);
BENCHMARK(Delete_Std)->Arg(2'000)->Unit(benchmark::kMillisecond);
BENCHMARK(Delete_Boost)->Arg(2'000)->Unit(benchmark::kMillisecond);
BENCHMARK(Delete_Qt)->Arg(2'000)->Unit(benchmark::kMillisecond);
BENCHMARK(Delete_Poco)->Arg(2'000)->Unit(benchmark::kMillisecond);
BENCHMARK(Copy_Ostrel)->Unit(benchmark::kMillisecond);
BENCHMARK(Copy_ReadWrite)->Unit(benchmark::kMillisecond);
BENCHMARK(Copy_Std)->Unit(benchmark::kMillisecond);
BENCHMARK(Copy_Qt)->Unit(benchmark::kMillisecond);

}  // namespace
