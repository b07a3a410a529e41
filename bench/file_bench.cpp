// Files: walks of a tree, sizes, deletion and copying, beside the libraries and a bare loop over
// the host's calls. Walk_ and Sizes_ read names and sizes, Names_ names alone.
//
// The tree has ten files in each directory, in two levels of subdirectories, and is made by the
// host's own calls. ns_file is the time for a file. The first walk of
// each is not timed: it warms up the host's caches and the layer's.

#include <benchmark/benchmark.h>
#include <dirent.h>
#include <fcntl.h>
#include <fts.h>
#include <ftw.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
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
#include <ctime>
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
void make_tree(const std::filesystem::path &root, int files, const std::string &content = {}) {
    const int directories = files / kFilesOfDirectory;
    for (int i = 0; i < directories; ++i) {
        const std::filesystem::path directory =
            root / (numbered("d", i / kDirectoriesOfDirectory)) / (numbered("e", i));
        std::filesystem::create_directories(directory);
        for (int k = 0; k < kFilesOfDirectory; ++k) {
            std::ofstream file(directory / (numbered("file", k) + ".txt"));
            file << (content.empty() ? std::to_string(k) : content);
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

// The first walk of a process that has never seen the tree: each iteration walks in a child. The
// time is the processor time of the child.
template <class Walk>
void run_first_walk(benchmark::State &state, Walk walk) {
    const auto files = static_cast<int>(state.range(0));
    const std::filesystem::path &root = tree_of(files);
    for (auto _ : state) {
        int ends[2];
        double seconds = 0;
        if (pipe(ends) != 0) {
            state.SkipWithError("no pipe");
            break;
        }
        if (const pid_t child = fork(); child == 0) {
            const std::clock_t begin = std::clock();
            const Sum sum = walk(root);
            seconds = static_cast<double>(std::clock() - begin) / CLOCKS_PER_SEC;
            seconds = sum.files == files ? seconds : -1;
            _exit(write(ends[1], &seconds, sizeof seconds) == sizeof seconds ? 0 : 1);
        } else if (read(ends[0], &seconds, sizeof seconds) != sizeof seconds || seconds < 0) {
            state.SkipWithError("files are missing");
        } else {
            waitpid(child, nullptr, 0);
        }
        close(ends[0]);
        close(ends[1]);
        state.SetIterationTime(seconds);
    }
    state.counters["ns_file"] = benchmark::Counter(
        files / 1e9, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

Sum walk_fts(const std::filesystem::path &root, int options) {
    Sum sum;
    std::string path = root;
    char *paths[] = {path.data(), nullptr};
    FTS *const walk = fts_open(paths, FTS_PHYSICAL | FTS_NOCHDIR | options, nullptr);
    while (const FTSENT *const entry = fts_read(walk)) {
        const bool is_file = entry->fts_info == FTS_F || entry->fts_info == FTS_NSOK;
        sum.files += is_file ? 1 : 0;
        sum.bytes += is_file && options == 0 ? entry->fts_statp->st_size : 0;
    }
    fts_close(walk);
    return sum;
}

Sum browse(const std::filesystem::path &root) {
    class Counter : public OS::CBrowseDirectory::CFileSearchCallback {
    public:
        void operator()(const WCHAR *, const WCHAR *, const WCHAR *) override { ++sum.files; }
        Sum sum;
    };
    Counter counter;
    OS::CBrowseDirectory().BrowseDirectory(root.u16string().c_str(), true, TEXT("*.*"), counter);
    return counter.sum;
}

Sum collect(const std::filesystem::path &root) {
    std::vector<OS::x_wstring> files;
    return {NS_FileUtils::collectFiles(files, root.u16string().c_str(), TEXT("*.*"), 0, nullptr,
                                       true, nullptr),
            0};
}

Sum collect_ex(const std::filesystem::path &root) {
    return {NS_FileUtils::collectFilesEx(nullptr, nullptr, root.u16string().c_str(), TEXT("*.*"), 0,
                                         nullptr, true, nullptr),
            0};
}

// Counts no files, so the sum stands for them: a byte each.
Sum calculate(const std::filesystem::path &root) {
    const DWORD bytes = NS_FileUtils::calcFileSize(root.u16string().c_str(), TEXT("*.*"), 0,
                                                   nullptr, true, nullptr);
    return {bytes, bytes};
}

Sum walk_nftw(const std::filesystem::path &root) {
    static Sum sum;
    sum = {};
    nftw(
        root.c_str(),
        [](const char *, const struct stat *facts, int type, struct FTW *) {
            sum.files += type == FTW_F ? 1 : 0;
            sum.bytes += type == FTW_F ? facts->st_size : 0;
            return 0;
        },
        64, FTW_PHYS);
    return sum;
}

void Names_BrowseDirectory(benchmark::State &state) {
    run_first_walk(state, browse);
}
void Names_CollectFiles(benchmark::State &state) {
    run_first_walk(state, collect);
}
void Names_Fts(benchmark::State &state) {
    run_first_walk(state, [](const auto &root) { return walk_fts(root, FTS_NOSTAT); });
}
void Sizes_CalcFileSize(benchmark::State &state) {
    run_first_walk(state, calculate);
}
void Sizes_CollectFilesEx(benchmark::State &state) {
    run_first_walk(state, collect_ex);
}
void Sizes_Fts(benchmark::State &state) {
    run_first_walk(state, [](const auto &root) { return walk_fts(root, 0); });
}
void Sizes_Nftw(benchmark::State &state) {
    run_first_walk(state, walk_nftw);
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

// A tree of so many files of 1 KiB, each time to a new directory.
template <class Copy>
void run_tree_copy(benchmark::State &state, Copy copy) {
    const auto files = static_cast<int>(state.range(0));
    const std::filesystem::path source = Scratch::Path() / "copied_tree";
    const std::filesystem::path target = Scratch::Path() / "copy_of_tree";
    if (!exists(source)) {
        make_tree(source, files, std::string(1024, 'x'));
    }
    for (auto _ : state) {
        copy(source, target);
        state.PauseTiming();
        if (std::filesystem::remove_all(target) < static_cast<std::uintmax_t>(files)) {
            state.SkipWithError("not copied");
        }
        state.ResumeTiming();
    }
    state.counters["ns_file"] = benchmark::Counter(
        files / 1e9, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void CopyTree_Ostrel(benchmark::State &state) {
    run_tree_copy(state, [](const auto &source, const auto &target) {
        NS_FileUtils::copyDirectory(source.u16string().c_str(), target.u16string().c_str(), 1, 1,
                                    0);
    });
}
void CopyTree_Std(benchmark::State &state) {
    run_tree_copy(state, [](const auto &source, const auto &target) {
        std::filesystem::copy(source, target, std::filesystem::copy_options::recursive);
    });
}
// Neither has a copy of trees: the files one by one.
void CopyTree_Boost(benchmark::State &state) {
    run_tree_copy(state, [](const auto &source, const auto &target) {
        const std::string from = source, to = target;
        boost::filesystem::create_directory(to);
        for (const auto &entry : boost::filesystem::recursive_directory_iterator(from)) {
            const std::string copied = to + entry.path().string().substr(from.size());
            if (entry.status().type() == boost::filesystem::directory_file) {
                boost::filesystem::create_directory(copied);
            } else {
                boost::filesystem::copy_file(entry.path(), copied);
            }
        }
    });
}
void CopyTree_Qt(benchmark::State &state) {
    run_tree_copy(state, [](const auto &source, const auto &target) {
        const QString from = QString::fromStdString(source), to = QString::fromStdString(target);
        QDir().mkdir(to);
        QDirIterator entries(from, QDir::AllEntries | QDir::NoDotAndDotDot,
                             QDirIterator::Subdirectories);
        while (entries.hasNext()) {
            entries.next();
            const QString copied = to + entries.filePath().mid(from.size());
            entries.fileInfo().isDir() ? QDir().mkdir(copied)
                                       : QFile::copy(entries.filePath(), copied);
        }
    });
}
void CopyTree_Poco(benchmark::State &state) {
    run_tree_copy(state, [](const auto &source, const auto &target) {
        Poco::File(source.string()).copyTo(target.string());
    });
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
#define FIRST_WALK Arg(20'000)->UseManualTime()->Unit(benchmark::kMillisecond)
BENCHMARK(Names_BrowseDirectory)->FIRST_WALK;
BENCHMARK(Names_CollectFiles)->FIRST_WALK;
BENCHMARK(Names_Fts)->FIRST_WALK;
BENCHMARK(Sizes_CalcFileSize)->FIRST_WALK;
BENCHMARK(Sizes_CollectFilesEx)->FIRST_WALK;
BENCHMARK(Sizes_Fts)->FIRST_WALK;
BENCHMARK(Sizes_Nftw)->FIRST_WALK;
BENCHMARK(DirectorySize_Ostrel)->Arg(10'000)->Unit(benchmark::kMillisecond);
BENCHMARK(DirectorySize_Bare)->Arg(10'000)->Unit(benchmark::kMillisecond);
BENCHMARK(DirectorySize_Std)->Arg(10'000)->Unit(benchmark::kMillisecond);
BENCHMARK(Delete_Ostrel)->Arg(2'000)->Unit(benchmark::kMillisecond);
BENCHMARK(Delete_Std)->Arg(2'000)->Unit(benchmark::kMillisecond);
BENCHMARK(Delete_Boost)->Arg(2'000)->Unit(benchmark::kMillisecond);
BENCHMARK(Delete_Qt)->Arg(2'000)->Unit(benchmark::kMillisecond);
BENCHMARK(Delete_Poco)->Arg(2'000)->Unit(benchmark::kMillisecond);
BENCHMARK(CopyTree_Ostrel)->Arg(2'000)->Unit(benchmark::kMillisecond);
BENCHMARK(CopyTree_Std)->Arg(2'000)->Unit(benchmark::kMillisecond);
BENCHMARK(CopyTree_Boost)->Arg(2'000)->Unit(benchmark::kMillisecond);
BENCHMARK(CopyTree_Qt)->Arg(2'000)->Unit(benchmark::kMillisecond);
BENCHMARK(CopyTree_Poco)->Arg(2'000)->Unit(benchmark::kMillisecond);
BENCHMARK(Copy_Ostrel)->Unit(benchmark::kMillisecond);
BENCHMARK(Copy_ReadWrite)->Unit(benchmark::kMillisecond);
BENCHMARK(Copy_Std)->Unit(benchmark::kMillisecond);
BENCHMARK(Copy_Qt)->Unit(benchmark::kMillisecond);

}  // namespace
