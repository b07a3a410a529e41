#ifndef OSTREL_PLATFORM_FILE_OPEN_FILE_H
#define OSTREL_PLATFORM_FILE_OPEN_FILE_H

// Internal. The object behind a handle of CreateFileW.

#include <mutex>

#include "ostrel/platform/base/handle_table.h"
#include "ostrel/platform/file/share_mode.h"
#include "ostrel/platform/types.h"

namespace ostrel_platform {

class OpenFile : public HandleObject {
public:
    // `access` holds the GENERIC_ bits of the open, `mode` the host's st_mode. Only a regular file
    // has a file position.
    OpenFile(SharingFile file, DWORD access, mode_t mode);

    // Has the close of the handle delete the file; see SharingFile::DeleteAtEnd.
    void DeleteAtClose() noexcept { m_file.DeleteAtEnd(); }

    int Get() const { return m_file.Get(); }
    mode_t Mode() const { return m_mode; }
    bool Allows(DWORD access) const { return (m_access & access) != 0; }

    // Transfer up to `count` bytes at the file position and advance the position. A read of a
    // regular file ends early only at the end of the file; any other read gives what one call of
    // the host gives. A write stores all bytes. `*done` must be 0 at the call; on return, and on
    // failure too,
    // `*done` is the number of bytes moved. Return 0 or an error code.
    DWORD Read(char *bytes, DWORD count, DWORD *done);
    DWORD Write(const char *bytes, DWORD count, DWORD *done);

private:
    template <class Step>
    DWORD Transfer(DWORD count, DWORD *done, bool one_step, Step step);

    SharingFile m_file;
    DWORD m_access;
    mode_t m_mode;
    int m_signal;           // blocked while writing; 0 is none
    std::mutex m_position;  // makes the steps of one call atomic
};

// Return the permissions of a file or directory that this thread creates, before the umask applies:
// platform_creation_limit decides.
mode_t mode_of_new_file() noexcept;
mode_t mode_of_new_directory() noexcept;

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_FILE_OPEN_FILE_H
