// Losses of power. A process writes to a registry, and the host calls by which its bytes reach the
// files are recorded: this program defines the calls, and SQLite and the layer reach the
// definitions. Then the files are built as a loss at a random moment could leave them, and a
// process that takes itself to be on the next boot opens the store.
//
// The model of the disk: what a sync of the file has covered is there. Of what came later each
// sector of 512 bytes is old or new by itself. Names are made and removed in order, and a sync of
// the folder covers those before it.

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/syscall.h>

#include <cstdarg>
#include <map>

#include "bench/soak/registry_soak.h"

namespace {

struct Event {
    enum Kind {
        kCreate,
        kRename,
        kUnlink,
        kWrite,
        kTruncate,
        kSync,
        kSyncFolder,
        kBegun,
        kReturned,
        kFlushed
    };
    Kind kind;
    int file;            // the number of a file in the order of creation
    std::int64_t place;  // offset, size, or the number of an operation
    std::string bytes;   // or a name
    std::string other;   // the new name
};

// What the process that records does. Only its one thread uses it.
struct Recorder {
    std::string folder;
    std::vector<Event> events;
    std::map<std::string, int> names;
    std::map<int, int> descriptors;  // to numbers of files; kFolder for the folder
    int count = 0;
};
constexpr int kFolder = -1;
Recorder *s_recorder;

bool s_is_next_boot;

int number_of(int descriptor) {
    const auto found = s_recorder != nullptr ? s_recorder->descriptors.find(descriptor)
                                             : std::map<int, int>::iterator();
    return s_recorder == nullptr || found == s_recorder->descriptors.end() ? -2 : found->second;
}

// The name of a file in the folder that counts; "" for others. Memory that processes share is lost.
std::string recorded_name(const char *path) {
    if (s_recorder == nullptr || !std::string_view(path).starts_with(s_recorder->folder + '/')) {
        return {};
    }
    const std::string name = path + s_recorder->folder.size() + 1;
    return name.ends_with("-shm") || name.ends_with(".page") ? "" : name;
}

void record(Event::Kind kind, int file, std::int64_t place, std::string bytes = {},
            std::string other = {}) {
    s_recorder->events.push_back({kind, file, place, std::move(bytes), std::move(other)});
}

int opened(const char *path, int flags, mode_t mode) {
    if (s_is_next_boot && std::string_view(path) == "/proc/sys/kernel/random/boot_id") {
        const int file = memfd_create("boot", 0);
        const std::string_view boot = "00000000-0000-0000-0000-000000000000";
        if (write(file, boot.data(), boot.size()) > 0) {
            lseek(file, 0, SEEK_SET);
        }
        return file;
    }
    const std::string name = recorded_name(path);
    const bool is_new = !name.empty() && access(path, F_OK) != 0;
    const auto file =
        static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags | O_LARGEFILE, mode));
    if (s_recorder == nullptr || file < 0) {
        return file;
    }
    if (is_new) {
        s_recorder->names[name] = s_recorder->count;
        record(Event::kCreate, s_recorder->count++, 0, name);
    }
    s_recorder->descriptors.erase(file);
    if (!name.empty()) {
        s_recorder->descriptors[file] = s_recorder->names[name];
        if ((flags & O_TRUNC) != 0) {
            record(Event::kTruncate, s_recorder->names[name], 0);
        }
    } else if (path == s_recorder->folder) {
        s_recorder->descriptors[file] = kFolder;
    }
    return file;
}

ssize_t written(int descriptor, const void *bytes, std::size_t size, off64_t offset) {
    const ssize_t count = syscall(SYS_pwrite64, descriptor, bytes, size, offset);
    if (const int file = number_of(descriptor); file >= 0 && count > 0) {
        record(Event::kWrite, file, offset,
               {static_cast<const char *>(bytes), static_cast<std::size_t>(count)});
    }
    return count;
}

int truncated(int descriptor, off64_t size) {
    const auto result = static_cast<int>(syscall(SYS_ftruncate, descriptor, size));
    if (const int file = number_of(descriptor); file >= 0 && result == 0) {
        record(Event::kTruncate, file, size);
    }
    return result;
}

// The sync itself is left out: no power is lost in earnest.
int synced(int descriptor) {
    if (const int file = number_of(descriptor); file >= kFolder) {
        record(file == kFolder ? Event::kSyncFolder : Event::kSync, file, 0);
    }
    return 0;
}

}  // namespace

extern "C" {
int open(const char *path, int flags, ...) {
    va_list list;
    va_start(list, flags);
    const mode_t mode = va_arg(list, mode_t);
    va_end(list);
    return opened(path, flags, mode);
}
int open64(const char *path, int flags, ...) {
    va_list list;
    va_start(list, flags);
    const mode_t mode = va_arg(list, mode_t);
    va_end(list);
    return opened(path, flags, mode);
}
ssize_t pwrite(int file, const void *bytes, std::size_t size, off_t offset) {
    return written(file, bytes, size, offset);
}
ssize_t pwrite64(int file, const void *bytes, std::size_t size, off64_t offset) {
    return written(file, bytes, size, offset);
}
int ftruncate(int file, off_t size) noexcept {
    return truncated(file, size);
}
int ftruncate64(int file, off64_t size) noexcept {
    return truncated(file, size);
}
int fsync(int file) {
    return synced(file);
}
int fdatasync(int file) {
    return synced(file);
}
int unlink(const char *path) noexcept {
    const auto result = static_cast<int>(syscall(SYS_unlink, path));
    if (const std::string name = recorded_name(path); !name.empty() && result == 0) {
        record(Event::kUnlink, s_recorder->names[name], 0, name);
    }
    return result;
}
int renameat2(int from_folder, const char *from, int to_folder, const char *to,
              unsigned flags) noexcept {
    const auto result =
        static_cast<int>(syscall(SYS_renameat2, from_folder, from, to_folder, to, flags));
    const std::string name = recorded_name(from);
    if (!name.empty() && result == 0) {
        const std::string target = recorded_name(to);
        s_recorder->names[target] = s_recorder->names[name];
        record(Event::kRename, s_recorder->names[name], 0, name, target);
    }
    return result;
}
// Time runs faster for who records, so that checkpoints come often.
int clock_gettime(clockid_t clock, timespec *time) noexcept {
    const auto result = static_cast<int>(syscall(SYS_clock_gettime, clock, time));
    if (s_recorder != nullptr && clock == CLOCK_MONOTONIC_COARSE) {
        time->tv_sec += static_cast<time_t>(s_recorder->events.size() / 64);
    }
    return result;
}
}

namespace {

constexpr DWORD kSlots = 16;

std::u16string slot_name(DWORD slot) {
    return u"slot " + std::u16string(1, static_cast<char16_t>(u'a' + slot));
}

// Each operation is one commit. Returns when the events suffice.
void write_on(DWORD operations) {
    const TestKey key = created(HKEY_LOCAL_MACHINE, kSoakPath);
    created(key, u"volatile", KEY_ALL_ACCESS, REG_OPTION_VOLATILE);
    std::mt19937 random(5);
    for (DWORD i = 1; i <= operations; ++i) {
        record(Event::kBegun, 0, i);
        EXPECT_EQ(set_bytes(key, slot_name(i % kSlots).c_str(), REG_BINARY, payload(i)), 0);
        record(Event::kReturned, 0, i);
        if (random() % 32 == 0) {
            EXPECT_EQ(RegFlushKey(key), 0);
            record(Event::kFlushed, 0, i);
        }
    }
}

// The disk at one moment of the recording.
class Disk {
public:
    DWORD begun = 0, durable = 0;

    void Apply(const Event &event) {
        switch (event.kind) {
            case Event::kCreate:
            case Event::kRename:
            case Event::kUnlink:
                m_pendingNames.push_back(&event);
                break;
            case Event::kWrite:
            case Event::kTruncate:
                m_files[event.file].pending.push_back(&event);
                break;
            case Event::kSync: {
                File &file = m_files[event.file];
                for (const Event *const one : file.pending) {
                    ApplyTo(&file.bytes, *one, nullptr);
                }
                file.pending.clear();
                m_inLog = IsLog(event.file) ? m_returned : m_inLog;
                break;
            }
            case Event::kSyncFolder:
                m_names = NamesAfter(m_pendingNames.size());
                m_pendingNames.clear();
                break;
            case Event::kBegun:
                begun = static_cast<DWORD>(event.place);
                break;
            case Event::kReturned:
                m_returned = static_cast<DWORD>(event.place);
                break;
            case Event::kFlushed:
                m_inLog = static_cast<DWORD>(event.place);
                EXPECT_TRUE(HasLog()) << "a flush left the name of the log behind";
                break;
        }
        // A checkpoint counts once it has forced the log to the disk.
        if (event.kind >= Event::kSync && HasLog()) {
            durable = m_inLog;
        }
    }

    // Writes the files as a loss now could leave them.
    void Lose(const std::string &folder, std::mt19937 *random) const {
        const auto names = NamesAfter((*random)() % (m_pendingNames.size() + 1));
        for (const auto &[name, number] : names) {
            const auto found = m_files.find(number);
            std::string bytes = found != m_files.end() ? found->second.bytes : "";
            const auto way = (*random)() % 4;  // 0 drops all of a file, 1 keeps all, others mix
            for (std::size_t i = 0;
                 found != m_files.end() && i < found->second.pending.size() && way != 0; ++i) {
                ApplyTo(&bytes, *found->second.pending[i], way == 1 ? nullptr : random);
            }
            std::ofstream(folder + "/" + name, std::ios::binary) << bytes;
        }
        std::string rubbish(32768, '\0');
        for (char &byte : rubbish) {
            byte = static_cast<char>((*random)());
        }
        if ((*random)() % 2 == 0) {
            std::ofstream(folder + "/machine.db-shm", std::ios::binary) << rubbish;
        }
    }

private:
    struct File {
        std::string bytes;
        std::vector<const Event *> pending;
    };
    using Names = std::map<std::string, int>;

    // With `random` each sector, and the new size, comes to the disk or not.
    static void ApplyTo(std::string *bytes, const Event &event, std::mt19937 *random) {
        const auto comes = [random] { return random == nullptr || (*random)() % 2 == 0; };
        const auto place = static_cast<std::size_t>(event.place);
        if (event.kind == Event::kTruncate) {
            if (comes()) {
                bytes->resize(place);
            }
            return;
        }
        constexpr std::size_t kSector = 512;
        for (std::size_t begin = place; begin < place + event.bytes.size();) {
            const std::size_t end =
                std::min(place + event.bytes.size(), (begin / kSector + 1) * kSector);
            if (comes()) {
                bytes->resize(std::max(bytes->size(), end));
                bytes->replace(begin, end - begin, event.bytes, begin - place, end - begin);
            }
            begin = end;
        }
    }

    Names NamesAfter(std::size_t count) const {
        Names names = m_names;
        for (std::size_t i = 0; i < count; ++i) {
            const Event &event = *m_pendingNames[i];
            if (event.kind != Event::kCreate) {
                names.erase(event.bytes);
            }
            if (event.kind != Event::kUnlink) {
                names[event.kind == Event::kRename ? event.other : event.bytes] = event.file;
            }
        }
        return names;
    }

    bool IsLog(int file) const {
        const Names names = NamesAfter(m_pendingNames.size());
        const auto found = names.find("machine.db-wal");
        return found != names.end() && found->second == file;
    }
    bool HasLog() const { return m_names.contains("machine.db-wal"); }

    std::map<int, File> m_files;
    Names m_names;
    std::vector<const Event *> m_pendingNames;
    DWORD m_returned = 0, m_inLog = 0;
};

// On the next boot: everything up to an operation is there, and nothing that came later.
void expect_whole(DWORD begun, DWORD durable) {
    s_is_next_boot = true;
    const TestKey key = created(HKEY_LOCAL_MACHINE, kSoakPath);
    EXPECT_EQ(open_code(key, u"volatile"), 2);
    DWORD found[kSlots];
    DWORD last = 0;
    for (DWORD slot = 0; slot < kSlots; ++slot) {
        found[slot] = payload_number(key, slot_name(slot).c_str());
        last = std::max(last, found[slot]);
    }
    EXPECT_GE(last, durable);
    EXPECT_LE(last, begun);
    for (DWORD slot = 0; slot < kSlots; ++slot) {
        const DWORD behind = (last + kSlots - slot) % kSlots;
        EXPECT_EQ(found[slot], last > behind ? last - behind : 0) << slot << " of " << last;
    }
    EXPECT_EQ(set_number(key, u"after", 1), 0);
    EXPECT_EQ(RegFlushKey(key), 0);
}

// A loss that is to be checked.
struct Loss {
    char folder[64];
    DWORD begun, durable;
};

// Records, and gives the losses to the other end of `socket` one by one, from then on.
void lose_on(long losses, int socket) {
    const auto operations = static_cast<DWORD>(std::min(losses * 4 + 50, 2000L));
    Recorder recorder;
    {
        const RegistryFolder folder;
        recorder.folder = folder.Path();
        recorder.folder.pop_back();
        s_recorder = &recorder;
        write_on(operations);
        s_recorder = nullptr;
    }
    std::mt19937 random(6);
    std::vector<std::size_t> moments(static_cast<std::size_t>(losses));
    for (std::size_t &moment : moments) {
        moment = random() % (recorder.events.size() + 1);
    }
    std::sort(moments.begin(), moments.end());
    Disk disk;
    std::size_t at = 0;
    for (const std::size_t moment : moments) {
        for (; at < moment; ++at) {
            disk.Apply(recorder.events[at]);
        }
        const RegistryFolder folder;
        disk.Lose(folder.Path(), &random);
        Loss loss{{}, disk.begun, disk.durable};
        folder.Path().copy(loss.folder, sizeof loss.folder - 1);
        char answer;
        if (send(socket, &loss, sizeof loss, 0) < 0 || recv(socket, &answer, 1, 0) != 1) {
            std::printf("moment %zu\n", moment);
            std::fflush(stdout);
            _exit(1);  // and leaves the folder
        }
    }
    std::printf("%ld losses within %zu host calls of %u commits, up to %u durable; ", losses,
                recorder.events.size(), operations, disk.durable);
}

}  // namespace

void prove_power_losses(long losses) {
    const Stopwatch watch;
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends), 0);
    // A process binds its registry at its first call. This one makes none.
    const pid_t source = started([&] {
        close(ends[0]);
        lose_on(losses, ends[1]);
    });
    close(ends[1]);
    Loss loss;
    while (recv(ends[0], &loss, sizeof loss, 0) == sizeof loss) {
        setenv("OSTREL_REGISTRY", loss.folder, 1);
        EXPECT_TRUE(holds_in_child([&] { expect_whole(loss.begun, loss.durable); })) << loss.folder;
        expect_sound();
        if (testing::Test::HasFailure()) {
            break;
        }
        send(ends[0], "", 1, 0);
    }
    close(ends[0]);
    expect_success(source);
    std::printf("%.0f s\n", watch.Seconds());
}
