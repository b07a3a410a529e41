#include "wexlog/log_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace DBG::detail {
namespace {

constexpr std::size_t kMaxOlderFiles = 200'000;
constexpr mode_t kFileMode = 0600;
constexpr mode_t kFolderMode = 0755;

[[noreturn]] void Fail(int error) {
    throw std::system_error(error, std::generic_category());
}

bool IsUsable(const struct stat &facts) {
    return S_ISREG(facts.st_mode) || S_ISCHR(facts.st_mode);
}

void CreateFoldersOf(const std::string &path) {
    for (std::size_t end = 1; (end = path.find('/', end)) != path.npos; ++end) {
        mkdir(path.substr(0, end).c_str(), kFolderMode);  // the open that follows tells a failure
    }
}

}  // namespace

LogFile::LogFile(std::string path, std::size_t maxBytes, std::size_t olderFiles)
    : m_path(std::move(path)), m_maxBytes(maxBytes), m_olderFiles(olderFiles) {
    if (maxBytes == 0 || olderFiles > kMaxOlderFiles) {
        throw std::invalid_argument("a limit of the file is out of range");
    }
    try {
        Open();
    } catch (...) {
        Close();
        throw;
    }
}

LogFile::~LogFile() {
    Close();
}

void LogFile::Open() {
    struct stat facts;
    if (lstat(m_path.c_str(), &facts) == 0 && !IsUsable(facts)) {
        Fail(EINVAL);  // opening would disturb the readers of a pipe
    }
    // Without O_NONBLOCK a pipe that has come since would hold up the caller.
    constexpr int kFlags = O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW | O_CLOEXEC | O_NOCTTY;
    m_file = open(m_path.c_str(), kFlags | O_NONBLOCK, kFileMode);
    if (m_file < 0 && errno == ENOENT) {
        CreateFoldersOf(m_path);
        m_file = open(m_path.c_str(), kFlags | O_NONBLOCK, kFileMode);
    }
    if (m_file < 0 || fstat(m_file, &facts) != 0) {
        Fail(errno);
    }
    if (!IsUsable(facts)) {
        Fail(EINVAL);
    }
    m_isDevice = S_ISCHR(facts.st_mode);
    m_size = static_cast<std::size_t>(facts.st_size);
    fcntl(m_file, F_SETFL, kFlags & ~O_CREAT);  // a terminal may make the writer wait
}

void LogFile::Close() {
    if (m_file >= 0) {
        close(std::exchange(m_file, -1));
    }
}

// The path of an older file: name.1.ext. A name that begins with its only dot, or ends in one, has
// no extension. Number 0 is the file itself.
std::string LogFile::NameOf(std::size_t number) const {
    if (number == 0) {
        return m_path;
    }
    const std::size_t name = m_path.rfind('/') + 1;  // 0 without a folder
    std::size_t dot = m_path.rfind('.');
    if (dot == m_path.npos || dot <= name || dot + 1 == m_path.size()) {
        dot = m_path.size();
    }
    return m_path.substr(0, dot) + '.' + std::to_string(number) + m_path.substr(dot);
}

// Numbers the files up and begins a new one.
void LogFile::MakeRoom() {
    if (m_olderFiles == 0) {
        if (ftruncate(m_file, 0) != 0) {
            Fail(errno);
        }
        m_size = 0;
        return;
    }
    Close();
    for (std::size_t number = m_olderFiles; number > 0; --number) {
        if (std::rename(NameOf(number - 1).c_str(), NameOf(number).c_str()) != 0 &&
            errno != ENOENT) {
            Fail(errno);
        }
    }
    Open();
}

void LogFile::Add(std::string_view text) {
    if (!m_isDevice && m_size != 0 && (m_size >= m_maxBytes || text.size() > m_maxBytes - m_size)) {
        MakeRoom();
    }
    while (!text.empty()) {
        const ssize_t count = write(m_file, text.data(), text.size());
        if (count < 0 && errno != EINTR) {
            Fail(errno);
        }
        if (count > 0) {
            text.remove_prefix(static_cast<std::size_t>(count));
            m_size += static_cast<std::size_t>(count);
        }
    }
}

}  // namespace DBG::detail
