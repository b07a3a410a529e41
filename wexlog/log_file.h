#ifndef WEXLOG_LOG_FILE_H
#define WEXLOG_LOG_FILE_H

// Internal. A file that lines are added to, and the older files beside it.

#include <cstddef>
#include <string>
#include <string_view>

namespace DBG::detail {

// An open file of at most `maxBytes`, which is numbered up before it would grow larger. Never
// follows a symbolic link at the path, and a program that this process starts does not inherit the
// file. A new file can be read and written by its owner alone.
//
// Errors: the constructor and Add throw std::exception. After that, only destroy the object.
class LogFile {
public:
    // Opens the regular file or character device at `path`, or creates a file. A device has no
    // limit and no older files. Throws std::invalid_argument for `maxBytes` 0 and for more than
    // 200000 `olderFiles`.
    LogFile(std::string path, std::size_t maxBytes, std::size_t olderFiles);
    ~LogFile();
    LogFile(const LogFile &) = delete;
    LogFile &operator=(const LogFile &) = delete;

    // Adds a text, at once.
    void Add(std::string_view text);

private:
    void Open();
    void Close();
    void MakeRoom();
    std::string NameOf(std::size_t number) const;

    const std::string m_path;
    const std::size_t m_maxBytes;
    const std::size_t m_olderFiles;
    int m_file = -1;
    bool m_isDevice = false;
    std::size_t m_size = 0;  // of a file
};

}  // namespace DBG::detail

#endif  // WEXLOG_LOG_FILE_H
