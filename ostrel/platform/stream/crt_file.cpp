#include <algorithm>
#include <cerrno>
#include <mutex>
#include <set>
#include <unordered_map>

#include "ostrel/platform/base/call_result.h"
#include "ostrel/platform/base/fork_lock.h"
#include "ostrel/platform/base/never_destroyed.h"
#include "ostrel/platform/base/no_cancellation.h"
#include "ostrel/platform/crt_text.h"
#include "ostrel/platform/file/host_path.h"
#include "ostrel/platform/stream.h"
#include "ostrel/platform/stream/stream.h"

namespace {

using ostrel_platform::NeverDestroyed;
using ostrel_platform::NoCancellation;
using ostrel_platform::OpenMode;
using ostrel_platform::Stream;

// Maps the streams of the host that _wfopen has opened to the objects behind them.
//
// Threads: every thread may call it.
class OpenStreams {
public:
    static OpenStreams &Instance() {
        static NeverDestroyed<OpenStreams> streams;
        return *streams;
    }

    OpenStreams() {
        ostrel_platform::register_fork_lock(ostrel_platform::ForkOrder::kStreams, &m_mutex);
    }

    void Add(std::FILE *file, Stream *stream) {
        const std::lock_guard lock(m_mutex);
        m_streams.emplace(file, stream);
        if (!stream->Reads()) {
            m_writers.insert(file);
        }
    }

    void Remove(const Stream *stream) {
        const std::lock_guard lock(m_mutex);
        const auto found =
            std::find_if(m_streams.begin(), m_streams.end(),
                         [stream](const auto &entry) { return entry.second == stream; });
        if (found != m_streams.end()) {
            m_writers.erase(found->first);
            m_streams.erase(found);
        }
    }

    // Writes out the buffers of the streams that write, except those that another thread is using.
    // fclose frees a stream only after it has called Remove and holds the stream's lock meanwhile:
    // a stream that is found here and whose lock is free stays alive until the lock is released.
    // m_mutex is not held during the write, which may take long.
    void Flush() {
        std::FILE *file = nullptr;
        while ((file = LockNextWriter(file)) != nullptr) {
            std::fflush(file);
            funlockfile(file);
        }
    }

    // Returns null for a stream that _wfopen has not opened.
    Stream *Find(std::FILE *file) {
        const std::lock_guard lock(m_mutex);
        const auto found = m_streams.find(file);
        return found != m_streams.end() ? found->second : nullptr;
    }

    int Count() {
        const std::lock_guard lock(m_mutex);
        return static_cast<int>(m_streams.size());
    }

private:
    // Returns the first writer behind `previous` whose lock is free, with the lock taken; null
    // behind the last one.
    std::FILE *LockNextWriter(std::FILE *previous) {
        const std::lock_guard lock(m_mutex);
        const auto next = std::find_if(m_writers.upper_bound(previous), m_writers.end(),
                                       [](std::FILE *file) { return ftrylockfile(file) == 0; });
        return next != m_writers.end() ? *next : nullptr;
    }

    std::mutex m_mutex;
    std::unordered_map<std::FILE *, Stream *> m_streams;
    std::set<std::FILE *> m_writers;  // those of m_streams that write
};

Stream *stream_of(void *cookie) {
    return static_cast<Stream *>(cookie);
}

ssize_t read_cookie(void *cookie, char *bytes, std::size_t capacity) {
    const NoCancellation uncancelled;
    return stream_of(cookie)->ReadBytes(bytes, capacity);
}

ssize_t write_cookie(void *cookie, const char *bytes, std::size_t count) {
    const int result =
        ostrel_platform::crt_result([=] { return stream_of(cookie)->WriteBytes(bytes, count); });
    return result == 0 ? static_cast<ssize_t>(count) : 0;
}

int close_cookie(void *cookie) {
    const NoCancellation uncancelled;
    const std::unique_ptr<Stream> stream(stream_of(cookie));
    OpenStreams::Instance().Remove(stream.get());
    return stream->Close();
}

int open_stream(const WCHAR *path, const WCHAR *mode_text, std::FILE **result) {
    const std::optional<OpenMode> mode =
        path != nullptr && mode_text != nullptr ? OpenMode::Parse(mode_text) : std::nullopt;
    if (!mode || *path == 0) {
        return EINVAL;
    }
    const std::optional<std::string> host = ostrel_platform::host_path(path);
    if (!host) {
        return ENOENT;
    }
    std::unique_ptr<Stream> stream = Stream::Open(host->c_str(), *mode);
    if (stream == nullptr) {
        return errno;
    }
    const char host_mode[] = {mode->access, '\0'};
    std::FILE *const file =
        fopencookie(stream.get(), host_mode, {read_cookie, write_cookie, nullptr, close_cookie});
    if (file == nullptr) {
        return errno;
    }
    Stream *const owned_by_file = stream.release();
    int error = ENOMEM;
    try {
        OpenStreams::Instance().Add(file, owned_by_file);
        error = owned_by_file->Truncate();
    } catch (const std::bad_alloc &) {
    }
    if (error != 0) {
        std::fclose(file);
        return error;
    }
    *result = file;
    return 0;
}

}  // namespace

std::FILE *_wfopen(const WCHAR *path, const WCHAR *mode) noexcept {
    std::FILE *file = nullptr;
    ostrel_platform::crt_result([&] { return open_stream(path, mode, &file); });
    return file;
}

WCHAR *fgetws(WCHAR *buffer, int count, std::FILE *file) noexcept {
    Stream *const stream = file != nullptr ? OpenStreams::Instance().Find(file) : nullptr;
    if (buffer == nullptr || count < 1 || stream == nullptr || !stream->Reads()) {
        errno = EINVAL;
        return nullptr;
    }
    return stream->ReadLine(buffer, static_cast<std::size_t>(count));
}

int _flushall() noexcept {
    constexpr int kStandardStreams = 3;
    const NoCancellation uncancelled;
    OpenStreams::Instance().Flush();
    std::fflush(stdout);
    std::fflush(stderr);
    return kStandardStreams + OpenStreams::Instance().Count();
}
