#ifndef OSTREL_PLATFORM_FILE_H
#define OSTREL_PLATFORM_FILE_H

// Files and directories by path, and open files.
//
// Paths. '\' and '/' both separate. "C:" is the host's root directory, another letter the host
// directory that the environment variable OSTREL_DRIVE_<letter> names; without it that drive does
// not exist. A path without a drive that begins with a separator begins at the host's root, any
// other at the current directory; "C:x" is "C:\x". Names are case-sensitive.
//
// Names. Every name that the host can have is a name here, also one with a trailing blank or dot,
// or with one of < > : " | ? * in it. Host names are UTF-8. A byte that is not part of valid UTF-8
// travels as the unit U+DC80 + (byte - 0x80), and a backslash in a host name, which separates
// nothing there, as U+DC5C. A path that no host file can have (another lone surrogate) is not
// found.
//
// Length. The system's calls take paths of up to 259 characters (MAX_PATH with the NUL) and refuse
// a longer one with ERROR_FILENAME_EXCED_RANGE; nothing is ever cut. A drive of one's own reaches
// what lies deeper. The runtime's _wfopen and _wremove take paths of any length.
//
// Attributes. FILE_ATTRIBUTE_READONLY is the absence of the owner's write permission; a read-only
// file is not deleted, overwritten or opened for writing, whoever asks. HIDDEN, SYSTEM and ARCHIVE
// are kept in the extended attribute user.DOSATTRIB as text ("0x26"), the form that file servers
// share; a file system without such attributes loses them in silence. A file with none of these has
// NORMAL. REPARSE_POINT marks a symbolic link.
//
// Symbolic links. Facts (attributes, size, times) are those of the target, with REPARSE_POINT
// added; of a link that leads nowhere they are its own, as of a file of size 0. Opening and copying
// follow a link. Deleting and moving take the link itself, never what it points to; setting
// attributes on a link changes nothing.
//
// Sharing. Of two handles to one file, the access of each must be within the share mode of the
// other: the second open fails with ERROR_SHARING_VIOLATION otherwise. This holds between all
// users of the layer, in one process and in several, as long as a file can be opened for reading on
// the host (it stands on the host's advisory locks on open files); a stream of _wfopen shares
// reading and writing. A program that runs is busy in the same way. Two opens at the same moment in
// two processes may both fail, not both succeed.
//
// The host's errno becomes one of the system's codes by one table: no permission is
// ERROR_ACCESS_DENIED, a full disk ERROR_DISK_FULL, and so on; comments name the others.
//
// Threads: every call may run in any thread. One handle may be used by several; each read and write
// takes the file position on at once.

#include "ostrel/platform/types.h"

#ifdef _WIN32

#include <io.h>

#else

#include <cstddef>

// The room for a path, in characters with the NUL.
inline constexpr std::size_t MAX_PATH = 260;

inline constexpr DWORD FILE_ATTRIBUTE_READONLY = 0x01;
inline constexpr DWORD FILE_ATTRIBUTE_HIDDEN = 0x02;
inline constexpr DWORD FILE_ATTRIBUTE_SYSTEM = 0x04;
inline constexpr DWORD FILE_ATTRIBUTE_DIRECTORY = 0x10;
inline constexpr DWORD FILE_ATTRIBUTE_ARCHIVE = 0x20;
inline constexpr DWORD FILE_ATTRIBUTE_NORMAL = 0x80;
inline constexpr DWORD FILE_ATTRIBUTE_REPARSE_POINT = 0x400;
inline constexpr DWORD INVALID_FILE_ATTRIBUTES = 0xFFFFFFFF;

// The attributes of a file or directory. Result: INVALID_FILE_ATTRIBUTES with the last error
// ERROR_FILE_NOT_FOUND, ERROR_PATH_NOT_FOUND (a folder on the way is missing or none; an empty or
// null path; a drive that does not exist), or what the host's refusal becomes.
OSTREL_PLATFORM_API DWORD GetFileAttributesW(const WCHAR *path) noexcept;

// Sets READONLY, HIDDEN, SYSTEM and ARCHIVE as `attributes` has them; the other bits cannot be
// changed and are not looked at. NORMAL or 0 clears the four. Clearing READONLY gives the owner
// write permission, setting it takes it from all. The times of the file stay, but the host's own
// time of change. READONLY on a directory is kept beside the other bits, not in the permissions: it
// protects nothing.
//
// Result: FALSE with the last error as above, ERROR_ACCESS_DENIED, or ERROR_INVALID_PARAMETER for
// INVALID_FILE_ATTRIBUTES.
OSTREL_PLATFORM_API BOOL SetFileAttributesW(const WCHAR *path, DWORD attributes) noexcept;

inline constexpr DWORD GENERIC_READ = 0x80000000;
inline constexpr DWORD GENERIC_WRITE = 0x40000000;
inline constexpr DWORD FILE_SHARE_READ = 1;
inline constexpr DWORD FILE_SHARE_WRITE = 2;
inline constexpr DWORD FILE_SHARE_DELETE = 4;
inline constexpr DWORD CREATE_NEW = 1;
inline constexpr DWORD CREATE_ALWAYS = 2;
inline constexpr DWORD OPEN_EXISTING = 3;
inline constexpr DWORD OPEN_ALWAYS = 4;
inline constexpr DWORD TRUNCATE_EXISTING = 5;
inline constexpr DWORD FILE_FLAG_BACKUP_SEMANTICS = 0x02000000;

struct SECURITY_ATTRIBUTES;

// Opens or creates a file.
//
// `access` is GENERIC_READ, GENERIC_WRITE, both, or 0: facts only, which takes no part in sharing
// and leaves the peers of a FIFO, socket or device alone.
// `share` is any of the three bits. `security` and `pattern` must be null. A directory opens with
// FILE_FLAG_BACKUP_SEMANTICS among `flags`, OPEN_EXISTING and without GENERIC_WRITE.
//
//   `creation`          the file exists              it does not
//   CREATE_NEW          ERROR_FILE_EXISTS            created
//   CREATE_ALWAYS       emptied                      created
//   OPEN_EXISTING       opened                       ERROR_FILE_NOT_FOUND
//   OPEN_ALWAYS         opened                       created
//   TRUNCATE_EXISTING   emptied (GENERIC_WRITE)      ERROR_FILE_NOT_FOUND
//
// CREATE_ALWAYS and OPEN_ALWAYS set the last error on success too: ERROR_ALREADY_EXISTS when the
// file was there, else 0. A file is emptied only when the sharing rules allow the open. A created
// file has ARCHIVE and those of READONLY, HIDDEN and SYSTEM that `flags` names; emptied by
// CREATE_ALWAYS it gets these as well.
//
// Result: the handle, for CloseHandle; INVALID_HANDLE_VALUE on failure, with the last error
// ERROR_PATH_NOT_FOUND (as above), ERROR_SHARING_VIOLATION, ERROR_ACCESS_DENIED (a directory;
// writing to a read-only file; CREATE_ALWAYS on a hidden or system file when `flags` lacks that
// attribute), ERROR_INVALID_PARAMETER (other arguments), or what the host's refusal becomes. A
// FIFO, socket or device opens as the host opens it, without waiting for a peer. A file that others
// open between its creation and its sharing may be refused with ERROR_SHARING_VIOLATION and stay
// behind, empty.
OSTREL_PLATFORM_API HANDLE CreateFileW(const WCHAR *path, DWORD access, DWORD share,
                                       SECURITY_ATTRIBUTES *security, DWORD creation, DWORD flags,
                                       HANDLE pattern) noexcept;

// Reads up to `count` bytes from the file position on; fewer only at the end of a file. `*done`
// receives the number, 0 at the end, also on failure what had been read. `overlapped` must be null.
//
// Result: FALSE with the last error ERROR_INVALID_HANDLE, ERROR_ACCESS_DENIED (not open for
// reading), ERROR_INVALID_PARAMETER or what the host's failure becomes.
OSTREL_PLATFORM_API BOOL ReadFile(HANDLE file, LPVOID buffer, DWORD count, DWORD *done,
                                  LPVOID overlapped) noexcept;

// Writes `count` bytes, all of them, also when the host takes them piece by piece. `*done` receives
// how many were written: fewer only on failure, where the last error is ERROR_DISK_FULL for a full
// file system or a file as large as the process may make one (RLIMIT_FSIZE as it was at the open),
// else as for ReadFile.
OSTREL_PLATFORM_API BOOL WriteFile(HANDLE file, LPCVOID buffer, DWORD count, DWORD *done,
                                   LPVOID overlapped) noexcept;

// The three times of an open file, in UTC; a null pointer is passed over. The time of creation is
// the host's until one has been set, which is kept in the extended attribute
// user.ostrel.creation_time; without either it is the earlier of the last write and change.
// Setting: a FILETIME of 0 leaves that time alone, as does one with all bits set. Steps are those
// of the host's file system, 100 ns at best.
//
// Result: FALSE with the last error ERROR_INVALID_HANDLE, ERROR_ACCESS_DENIED (setting on a handle
// without GENERIC_WRITE), ERROR_INVALID_PARAMETER (a time the host cannot keep), or what the host's
// refusal becomes. A file system without extended attributes keeps no time of creation, in silence.
OSTREL_PLATFORM_API BOOL GetFileTime(HANDLE file, FILETIME *creation, FILETIME *access,
                                     FILETIME *write) noexcept;
OSTREL_PLATFORM_API BOOL SetFileTime(HANDLE file, const FILETIME *creation, const FILETIME *access,
                                     const FILETIME *write) noexcept;

// Facts of an open file. Volume and index together are the same for two handles exactly when they
// are open on the same file.
struct BY_HANDLE_FILE_INFORMATION {
    DWORD dwFileAttributes;
    FILETIME ftCreationTime;
    FILETIME ftLastAccessTime;
    FILETIME ftLastWriteTime;
    DWORD dwVolumeSerialNumber;
    DWORD nFileSizeHigh;
    DWORD nFileSizeLow;
    DWORD nNumberOfLinks;
    DWORD nFileIndexHigh;
    DWORD nFileIndexLow;
};
OSTREL_PLATFORM_API BOOL
GetFileInformationByHandle(HANDLE file, BY_HANDLE_FILE_INFORMATION *information) noexcept;

// Creates one directory. `security` must be null. Result: FALSE with the last error
// ERROR_ALREADY_EXISTS (a file of that name too), ERROR_PATH_NOT_FOUND, or what the host's refusal
// becomes.
OSTREL_PLATFORM_API BOOL CreateDirectoryW(const WCHAR *path,
                                          SECURITY_ATTRIBUTES *security) noexcept;

// Removes an empty directory, or a symbolic link that leads to a directory. Result: FALSE with the
// last error ERROR_FILE_NOT_FOUND, ERROR_PATH_NOT_FOUND, ERROR_DIRECTORY (a file),
// ERROR_DIR_NOT_EMPTY, ERROR_ACCESS_DENIED (READONLY is set on it; the root of a drive),
// ERROR_CURRENT_DIRECTORY (of this process), or what the host's refusal becomes.
OSTREL_PLATFORM_API BOOL RemoveDirectoryW(const WCHAR *path) noexcept;

// Deletes a file or a symbolic link. Result: FALSE with the last error ERROR_FILE_NOT_FOUND,
// ERROR_PATH_NOT_FOUND, ERROR_ACCESS_DENIED (read-only, a directory), ERROR_SHARING_VIOLATION (open
// without FILE_SHARE_DELETE; others keep deleting it), or what the host's refusal becomes. The name
// is gone at once; those who have the file open keep it.
OSTREL_PLATFORM_API BOOL DeleteFileW(const WCHAR *path) noexcept;

// Copies a file with its attributes and the time of its last write. The new file comes into place
// whole: a failed copy leaves an existing one as it was.
//
// Result: FALSE with the last error ERROR_FILE_NOT_FOUND, ERROR_PATH_NOT_FOUND, ERROR_FILE_EXISTS
// (`failIfExists` not 0 and there is one), ERROR_ACCESS_DENIED (a directory; the existing one is
// read-only, hidden or system), ERROR_SHARING_VIOLATION (either is open against it, or the two are
// the same file), or what the host's refusal becomes.
OSTREL_PLATFORM_API BOOL CopyFileW(const WCHAR *source, const WCHAR *target,
                                   BOOL failIfExists) noexcept;

inline constexpr DWORD MOVEFILE_REPLACE_EXISTING = 1;
inline constexpr DWORD MOVEFILE_COPY_ALLOWED = 2;
inline constexpr DWORD MOVEFILE_DELAY_UNTIL_REBOOT = 4;
inline constexpr DWORD MOVEFILE_WRITE_THROUGH = 8;

// Gives a file, directory or symbolic link another path, in one step: nobody sees half of it. Who
// has the file open keeps it, whatever the share mode.
//
//   REPLACE_EXISTING     a file at `target` is replaced; a directory there, or a directory as the
//                        source, gives ERROR_ACCESS_DENIED, as do a read-only target and one that
//                        is open
//   COPY_ALLOWED         to another file system a file or link is copied, with attributes and
//                        times, and then deleted; directories are not (ERROR_NOT_SAME_DEVICE). When
//                        the source cannot be deleted the move has succeeded all the same. Without
//                        the flag such a move is ERROR_NOT_SAME_DEVICE
//   DELAY_UNTIL_REBOOT   only recorded, to be done at the next start of the system; `target` null
//                        deletes the file, or the directory if it is empty then. Not together with
//                        COPY_ALLOWED (ERROR_INVALID_PARAMETER). See docs/platform.md
//   WRITE_THROUGH        the directories are on disk when the call returns; when that fails, the
//                        move has been made all the same
//
// MoveFileW is MoveFileExW with COPY_ALLOWED.
//
// Result: FALSE with the last error ERROR_FILE_NOT_FOUND, ERROR_PATH_NOT_FOUND,
// ERROR_ALREADY_EXISTS (something is at `target`, but for the source itself),
// ERROR_INVALID_PARAMETER (other flags; a null target without DELAY_UNTIL_REBOOT),
// ERROR_SHARING_VIOLATION (to be copied, and open against reading), ERROR_ACCESS_DENIED (also for
// the root of a drive), or what the host's refusal becomes. On failure the source is where it was.
OSTREL_PLATFORM_API BOOL MoveFileW(const WCHAR *source, const WCHAR *target) noexcept;
OSTREL_PLATFORM_API BOOL MoveFileExW(const WCHAR *source, const WCHAR *target,
                                     DWORD flags) noexcept;

// The folder for temporary files: the first of the variables TMP, TEMP and USERPROFILE that is set,
// else the host's (TMPDIR, else "C:\tmp"), with a separator behind it. Whether it exists is not
// looked at. A host path is told in the form C:\dir.
//
// Result: the characters stored, without the NUL; when `room` is too small, nothing is stored and
// it is the room needed, with the NUL; 0, with ERROR_INVALID_PARAMETER, for a null buffer with a
// room.
OSTREL_PLATFORM_API DWORD GetTempPathW(DWORD capacity, WCHAR *buffer) noexcept;

// Whether a file can be used: `mode` is 0 (it exists), 2 (written), 4 (read) or 6. Only READONLY
// counts; a directory can always. Result: 0, or -1 with errno ENOENT (also for a path that is too
// long or has no drive), EACCES, or EINVAL for another mode and for a null path.
OSTREL_PLATFORM_API int _waccess(const WCHAR *path, int mode) noexcept;

// A name that no file has at the moment: in the folder of the variable TMP if that exists, else in
// `directory` if that is not null and exists, else in the current directory; `prefix` (null is
// empty) and a number, without an extension. No file is created, and another process may take the
// name. Result: a text that the caller releases with free; null, with errno, when there is none:
// ENOENT when TMP is set and `directory` is given and neither exists, ENAMETOOLONG, ENOMEM.
OSTREL_PLATFORM_API WCHAR *_wtempnam(const WCHAR *directory, const WCHAR *prefix) noexcept;

// Removes a file. Result: 0, or -1 with errno: EACCES for a directory, for a file that is read-only
// (its owner has no write permission) and for one that is open without FILE_SHARE_DELETE, ENOENT,
// EINVAL for a null path, or what else the host's unlink gives.
OSTREL_PLATFORM_API int _wremove(const WCHAR *path) noexcept;

#endif

#endif  // OSTREL_PLATFORM_FILE_H
