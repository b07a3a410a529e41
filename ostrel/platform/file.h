#ifndef OSTREL_PLATFORM_FILE_H
#define OSTREL_PLATFORM_FILE_H

// Files and directories by path, and open files.
//
//   const HANDLE file = CreateFileW(TEXT("C:\\srv\\list.txt"), GENERIC_READ, FILE_SHARE_READ,
//                                   nullptr, OPEN_EXISTING, 0, nullptr);
//   char bytes[512];
//   DWORD count = 0;
//   if (file != INVALID_HANDLE_VALUE && ReadFile(file, bytes, sizeof bytes, &count, nullptr)) {
//       add(bytes, count);  // `count` is 0 at the end of the file
//   }
//   CloseHandle(file);  // handle.h
//
// Implemented with open, statx, renameat2, copy_file_range, futimens, extended attributes and
// open-file-description locks (fcntl).
//
// Paths. '\' and '/' both separate. "C:" is the host's root directory. Any other letter is the host
// directory that the environment variable OSTREL_DRIVE_<letter> (upper case) names at the call;
// while the variable is missing or empty, that drive does not exist. Nor does it exist in a program
// that has rights which its caller lacks, such as a set-user-ID program (AT_SECURE). A path without
// a drive begins at the host's root when it begins with a separator, and otherwise at the current
// directory; "C:x" is "C:\x". Names are case-sensitive. A separator at the end of a path requires a
// directory: on a file the call fails with ERROR_PATH_NOT_FOUND, or ERROR_ACCESS_DENIED where
// CreateFileW may create; a link is then followed or refused, except by RemoveDirectoryW, which
// takes the link.
//
// "." and "..". The text of the path decides, before the host looks at any file: "." has no effect,
// and ".." removes the component before it. So missing\..\file is file, and link\..\file lies
// beside the link, whatever the link leads to. In an absolute path a ".." at the root of the drive
// has no effect: no path leads above the host directory of a drive. In a relative path a ".." with
// nothing before it is the parent of the current directory.
//
// Prefixes. Behind \\?\ the path begins with a drive and a backslash. There '/' separates nothing
// and "." and ".." are names; the host can have neither, so that such a path fails with
// ERROR_PATH_NOT_FOUND. Any other path that begins with two separators names nothing here: a path
// with \\.\ (a device), or with one of the two prefixes spelled with '/', fails with
// ERROR_FILE_NOT_FOUND; every other, such as \\server\share\file, \\server and
// \\?\UNC\server\share, fails with ERROR_BAD_NETPATH.
//
// Names. Every name that the host can have is a name here, also one that ends in a blank or dot, or
// that holds one of < > : " | ? *. Host names are UTF-8. A byte that is not part of valid UTF-8 is
// the unit U+DC80 + (byte - 0x80). A backslash in a host name, which separates nothing there, is
// U+DC5C. No host file can have a path with any other lone surrogate.
//
// Length. A path as given, before ".." shortens it, has up to 259 characters (MAX_PATH with the
// NUL). A path with \\?\ has up to 32766 characters, and as a host path fewer than the host's
// PATH_MAX bytes. _wfopen, _wremove and the calls of profile.h take any length that the host takes.
// A longer path fails; no path is ever cut.
//
// Attributes. A regular file is READONLY when its owner has no write permission; the calls refuse
// to delete, overwrite or open such a file for writing, to root too. A read-only file can still be
// moved, also to another file system. The calls keep HIDDEN, SYSTEM and ARCHIVE in the extended
// attribute user.DOSATTRIB as text ("0x26"), the form that file servers share; on a file system
// without extended attributes they are lost without an error. Only regular files and directories
// have READONLY, HIDDEN, SYSTEM and ARCHIVE. To a user who may not read a file, the file has none
// of HIDDEN, SYSTEM and ARCHIVE. NORMAL stands for no attribute at all. REPARSE_POINT marks a
// symbolic link.
//
// Symbolic links. Facts (attributes, size, times) are those of the target, with REPARSE_POINT
// added; when the target cannot be reached, facts are the link's own, with size 0. Opening and
// copying follow a link; a file that they create appears at the link's target. Whether a call may
// follow a link that another user has put into a sticky directory, such as /tmp, is the host's
// decision (fs.protected_symlinks); CREATE_NEW never follows the last component. Deleting and
// moving take the link itself. Setting attributes on a link succeeds and has no effect.
//
// Sharing. The access of each open handle must be within the share mode of every other handle to
// the same file, directories included; otherwise the later open fails. Deleting a file, or
// replacing it by MoveFileExW, needs FILE_SHARE_DELETE of every handle. A stream of _wfopen has the
// share mode FILE_SHARE_READ | FILE_SHARE_WRITE. The rules hold between all users of the layer, in
// one process and in several. The rules are implemented with open-file-description locks, so they
// work only for files that this user may open for reading, on file systems that have such locks. A
// running program cannot be opened for writing. Nor can it be deleted or replaced, unless this user
// has no write permission on the program; the calls then do not recognise it as running. When
// conflicting opens or deletions happen at the same moment, exactly one succeeds. The others may
// wait up to 0.3 seconds before they fail.
//
// Errors. The calls below name two groups of codes. A "path error" is one of:
//   ERROR_PATH_NOT_FOUND        the path is null or empty; its drive does not exist; no host file
//                               can have it; a directory on the way is missing or is a file
//   ERROR_FILE_NOT_FOUND        the last component is missing; the path names a device
//   ERROR_BAD_NETPATH           the path names a server
//   ERROR_FILENAME_EXCED_RANGE  the path has more characters than allowed or is too long for the
//                               host
// In the calls of the runtime a device and a server are ENOENT.
// A "host error" is the code that error_codes.inc gives for the host's errno: ERROR_ACCESS_DENIED
// without permission, ERROR_DISK_FULL on a full disk, and so on. A call for which memory is missing
// sets ERROR_NOT_ENOUGH_MEMORY, a call of the runtime errno ENOMEM. A call checks its other
// arguments before its paths.
//
// Threads: every call may run on any thread, and threads may share a handle. On a regular file each
// read and write uses and advances the shared file position atomically.

#include "ostrel/platform/types.h"

#ifdef _WIN32

#include <io.h>

// See below; the system has no permissions of this kind.
struct platform_creation_limit {
    explicit platform_creation_limit(HANDLE) noexcept {}
};

#else

#include <cstddef>

// The size of a buffer for a path, in characters with the NUL.
inline constexpr std::size_t MAX_PATH = 260;

inline constexpr DWORD FILE_ATTRIBUTE_READONLY = 0x01;
inline constexpr DWORD FILE_ATTRIBUTE_HIDDEN = 0x02;
inline constexpr DWORD FILE_ATTRIBUTE_SYSTEM = 0x04;
inline constexpr DWORD FILE_ATTRIBUTE_DIRECTORY = 0x10;
inline constexpr DWORD FILE_ATTRIBUTE_ARCHIVE = 0x20;
inline constexpr DWORD FILE_ATTRIBUTE_NORMAL = 0x80;
inline constexpr DWORD FILE_ATTRIBUTE_TEMPORARY = 0x100;
inline constexpr DWORD FILE_ATTRIBUTE_REPARSE_POINT = 0x400;
inline constexpr DWORD INVALID_FILE_ATTRIBUTES = 0xFFFFFFFF;

// Returns the attributes of a file or directory. On failure returns INVALID_FILE_ATTRIBUTES and
// sets the last error to a path error or a host error.
OSTREL_PLATFORM_API DWORD GetFileAttributesW(const WCHAR *path) noexcept;

// Sets those of READONLY, HIDDEN, SYSTEM and ARCHIVE that are in `attributes`, and clears the
// others of the four; NORMAL or 0 clears all four. Ignores every other bit. Keeps the file's times,
// except the host's own time of change.
//
// Clearing READONLY gives the owner write permission; setting it takes write permission from all.
// READONLY of a directory is stored with the other bits, not in the permissions: it only makes
// RemoveDirectoryW refuse. On a link, FIFO, socket or device the call succeeds and has no effect.
//
// Returns TRUE. On failure returns FALSE and sets the last error to ERROR_INVALID_PARAMETER for
// INVALID_FILE_ATTRIBUTES, to ERROR_NOT_SUPPORTED for READONLY of a directory on a file system
// without extended attributes, or to a path error or a host error. A failure may leave the stored
// bits changed.
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
inline constexpr DWORD FILE_FLAG_OPEN_REPARSE_POINT = 0x00200000;
inline constexpr DWORD FILE_FLAG_BACKUP_SEMANTICS = 0x02000000;
inline constexpr DWORD FILE_FLAG_DELETE_ON_CLOSE = 0x04000000;
inline constexpr DWORD FILE_FLAG_SEQUENTIAL_SCAN = 0x08000000;
inline constexpr DWORD FILE_FLAG_RANDOM_ACCESS = 0x10000000;
inline constexpr DWORD FILE_FLAG_NO_BUFFERING = 0x20000000;
inline constexpr DWORD FILE_FLAG_WRITE_THROUGH = 0x80000000;

// Opens or creates a file.
//
// `access` is GENERIC_READ, GENERIC_WRITE, both, or 0 to read attributes and times only. A handle
// with access 0 ignores all share modes and sets none, and opening it has no effect on the other
// end of a FIFO or socket, or on a device. `share` is any of the three bits. `security` and
// `pattern` must be null. `flags` is any of READONLY, HIDDEN, SYSTEM, ARCHIVE, NORMAL, TEMPORARY
// and the flags above:
//
//   TEMPORARY, SEQUENTIAL_SCAN, RANDOM_ACCESS, NO_BUFFERING
//                       Hints; have no effect. NO_BUFFERING keeps the host's cache, and buffers and
//                       counts need no alignment; to have data on the disk, add WRITE_THROUGH.
//   WRITE_THROUGH       Each write returns when the data, and what is needed to read them, are on
//                       the disk (O_DSYNC). Times and the directory entry may follow later.
//   BACKUP_SEMANTICS    With OPEN_EXISTING, without GENERIC_WRITE and DELETE_ON_CLOSE, opens a
//                       directory too.
//   OPEN_REPARSE_POINT  Opens a link itself, also one that leads to a directory or nowhere; any
//                       other file opens as without the flag. On the link's handle work
//                       CloseHandle, GetFileType, GetFileTime and GetFileInformationByHandle, which
//                       tell the link's own facts; the others fail with ERROR_ACCESS_DENIED, as
//                       does an open with GENERIC_WRITE. Sharing does not apply. Not together with
//                       CREATE_ALWAYS.
//   DELETE_ON_CLOSE     Closing this handle deletes the file, under the name that the file has
//                       then, or, with OPEN_REPARSE_POINT, the link. A name that others have given
//                       to another file stays. The name disappears at once, as with DeleteFileW:
//                       other handles stay valid and do not delay the deletion. Until then every
//                       other handle must share deletion, and DeleteFileW and a replacement fail as
//                       with a file that others delete. A process that ends without CloseHandle
//                       leaves the file, and a forked child does not delete it. Needs /proc;
//                       CloseHandle does not report a deletion that fails.
//
//   `creation`          the file exists                      it does not
//   CREATE_NEW          ERROR_FILE_EXISTS                    created
//   CREATE_ALWAYS       truncated                            created
//   OPEN_EXISTING       opened                               ERROR_FILE_NOT_FOUND
//   OPEN_ALWAYS         opened                               created
//   TRUNCATE_EXISTING   truncated; requires GENERIC_WRITE    ERROR_FILE_NOT_FOUND
//
// On success CREATE_ALWAYS and OPEN_ALWAYS set the last error too: to ERROR_ALREADY_EXISTS when the
// file existed, else to 0. A created file, and one that CREATE_ALWAYS truncates, gets ARCHIVE and
// those of READONLY, HIDDEN and SYSTEM that `flags` names; a failure to store them is not reported.
// The call truncates a file only when sharing allows the open, and, without GENERIC_WRITE, when
// every other handle shares writing.
//
// A FIFO, socket or device opens as the host opens it, but without waiting for a peer. The call
// does not truncate it, and sharing does not apply to it.
//
// Returns the handle, which the caller closes with CloseHandle. On failure returns
// INVALID_HANDLE_VALUE and sets the last error:
//   ERROR_FILE_EXISTS        CREATE_NEW, and `path` exists, also as a directory or any link
//   ERROR_SHARING_VIOLATION  another handle's share mode or access forbids the open; the file is a
//                            running program to be written or deleted; or others keep deleting and
//                            creating it
//   ERROR_ACCESS_DENIED      a directory or link, except as above; writing, truncating or deleting
//                            a read-only file; CREATE_ALWAYS on a hidden or system file without
//                            that attribute in `flags`; DELETE_ON_CLOSE of a FIFO, socket or device
//   ERROR_INVALID_PARAMETER  an argument that the rules above do not allow, such as
//                            TRUNCATE_EXISTING without GENERIC_WRITE, or another flag
//   ERROR_GEN_FAILURE        GENERIC_WRITE alone on a FIFO without a reader; a socket, unless
//                            `access` is 0
// or a path error or a host error. When others open a new file before this call has locked it, the
// call may fail with ERROR_SHARING_VIOLATION and leave the empty file behind.
OSTREL_PLATFORM_API HANDLE CreateFileW(const WCHAR *path, DWORD access, DWORD share,
                                       SECURITY_ATTRIBUTES *security, DWORD creation, DWORD flags,
                                       HANDLE pattern) noexcept;

// Limits the permissions of the files and directories that CreateFileW and CreateDirectoryW create
// on this thread while the object lives: a new one gives its group and others no permission that
// the file or directory of `source` does not give them. Without the object the permissions are 0666
// or 0777 without the bits of the umask, which applies too. An existing file keeps its permissions.
// When `source` is no open handle of CreateFileW, a new file gives them no permission at all. Not a
// call of the platform; a program that copies a file through its own buffer uses it when it opens
// the target:
//
//   const platform_creation_limit limit(source);
//   target = CreateFileW(path, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
//
// Destroy the objects of a thread in the reverse order of their construction, on that thread. The
// constructor may set the last error.
class OSTREL_PLATFORM_API platform_creation_limit {
public:
    explicit platform_creation_limit(HANDLE source) noexcept;
    ~platform_creation_limit();
    platform_creation_limit &operator=(platform_creation_limit &&) = delete;  // nor copied

private:
    unsigned m_before;
};

inline constexpr DWORD FILE_TYPE_UNKNOWN = 0;
inline constexpr DWORD FILE_TYPE_DISK = 1;
inline constexpr DWORD FILE_TYPE_CHAR = 2;
inline constexpr DWORD FILE_TYPE_PIPE = 3;

// Tells what a handle of CreateFileW is open on. Returns FILE_TYPE_DISK for a file, directory or
// block device, FILE_TYPE_CHAR for a character device, and FILE_TYPE_PIPE for a FIFO or socket.
// Otherwise returns FILE_TYPE_UNKNOWN and sets the last error to ERROR_INVALID_HANDLE.
OSTREL_PLATFORM_API DWORD GetFileType(HANDLE file) noexcept;

// Reads up to `count` bytes at the file position and advances it. A regular file gives fewer bytes
// only at its end; a FIFO, socket or device gives what one read of the host gives, and the call
// waits for the first byte; a FIFO without a writer is at its end. `*done` receives the number of
// bytes read, 0 at the end. `overlapped` must be null.
//
// Returns TRUE, also at the end. On failure returns FALSE and sets the last error:
//   ERROR_INVALID_HANDLE     `file` is no open handle of CreateFileW
//   ERROR_INVALID_PARAMETER  `done` is null or `overlapped` is not
//   ERROR_ACCESS_DENIED      the handle lacks GENERIC_READ, or is that of a directory and `count`
//                            is not 0
//   ERROR_NOACCESS           `buffer` is null and `count` is not 0
// or a host error. ERROR_INVALID_HANDLE and ERROR_INVALID_PARAMETER leave `*done` as it is. Every
// other failure stores the number of bytes moved before it, 0 if the handle lacks the access or
// `buffer` is null. The handle is checked first.
OSTREL_PLATFORM_API BOOL ReadFile(HANDLE file, LPVOID buffer, DWORD count, DWORD *done,
                                  LPVOID overlapped) noexcept;

// Writes `count` bytes at the file position and advances it; repeats partial writes of the host
// until all bytes are written. `*done` receives the number of bytes written. A write never raises
// SIGPIPE, nor SIGXFSZ if the process had a file size limit (RLIMIT_FSIZE) when the file was
// opened.
//
// Returns TRUE. On failure returns FALSE and sets the last error and `*done` as ReadFile does, with
// GENERIC_WRITE for GENERIC_READ. Host errors here are ERROR_DISK_FULL (a full disk or quota, or a
// file as large as the process or the file system allows), ERROR_BROKEN_PIPE (the reader of a FIFO
// has gone), ERROR_IO_DEVICE (also when the host writes no byte without an error) and others.
OSTREL_PLATFORM_API BOOL WriteFile(HANDLE file, LPCVOID buffer, DWORD count, DWORD *done,
                                   LPVOID overlapped) noexcept;

// Store and set the three times of an open file, in UTC; a null pointer skips that time. Times have
// the resolution of the host's file system, 100 ns at best.
//
// The creation time is the one that SetFileTime stored in the extended attribute
// user.ostrel.creation_time, provided that user.DOSATTRIB is there too, else the host's, else the
// earlier of the times of the last write and the last change. GetFileTime works with any access,
// and stores 0 for a time before 1601 and 2^63-1 for a time that does not fit.
//
// SetFileTime needs GENERIC_WRITE. A FILETIME of 0 or of all bits set leaves that time as it is. On
// a file system without extended attributes, and on a FIFO, socket or device, a creation time is
// lost without an error. The creation time is set last, so that a failure may leave the other two
// set.
//
// Return TRUE. On failure return FALSE and set the last error to ERROR_INVALID_HANDLE (no open
// handle of CreateFileW) or a host error; SetFileTime also to ERROR_ACCESS_DENIED (a handle without
// GENERIC_WRITE) or ERROR_INVALID_PARAMETER (a FILETIME of 2^63 or more, or a time that the host's
// file system cannot keep).
OSTREL_PLATFORM_API BOOL GetFileTime(HANDLE file, FILETIME *creation, FILETIME *access,
                                     FILETIME *write) noexcept;
OSTREL_PLATFORM_API BOOL SetFileTime(HANDLE file, const FILETIME *creation, const FILETIME *access,
                                     const FILETIME *write) noexcept;

// Facts of an open file. Volume and index together are equal for two handles exactly when both are
// open on the same file. Both are the host's device and inode numbers. The size is 0 except for a
// regular file.
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

// Stores the facts of an open file; works with any access. Returns TRUE. On failure returns FALSE
// and sets the last error to ERROR_INVALID_HANDLE (no open handle of CreateFileW), to
// ERROR_NOACCESS (`information` is null) or to a host error.
OSTREL_PLATFORM_API BOOL
GetFileInformationByHandle(HANDLE file, BY_HANDLE_FILE_INFORMATION *information) noexcept;

// Creates one directory. `security` must be null.
//
// Returns TRUE. On failure returns FALSE and sets the last error to ERROR_ALREADY_EXISTS (something
// is at `path`, a file or link too), to ERROR_INVALID_PARAMETER (`security` is not null), or to a
// path error or a host error.
OSTREL_PLATFORM_API BOOL CreateDirectoryW(const WCHAR *path,
                                          SECURITY_ATTRIBUTES *security) noexcept;

// Removes an empty directory, or a symbolic link that leads to a directory. Open handles to the
// directory do not prevent the removal.
//
// Returns TRUE. On failure returns FALSE and sets the last error:
//   ERROR_DIRECTORY          a file, or a link that leads to a file or nowhere
//   ERROR_DIR_NOT_EMPTY      the directory is not empty
//   ERROR_ACCESS_DENIED      the directory is READONLY or the root of a drive
//   ERROR_CURRENT_DIRECTORY  the current directory of this process
// or a path error or a host error.
OSTREL_PLATFORM_API BOOL RemoveDirectoryW(const WCHAR *path) noexcept;

// Deletes a file or a symbolic link. The name disappears at once; open handles stay valid.
//
// Returns TRUE. On failure returns FALSE and sets the last error to ERROR_ACCESS_DENIED (a
// read-only file, a directory), to ERROR_SHARING_VIOLATION (a handle does not share deletion, the
// file is a running program, or others are deleting or replacing it), or to a path error or a host
// error.
OSTREL_PLATFORM_API BOOL DeleteFileW(const WCHAR *path) noexcept;

// Copies a file with its permissions, whatever the umask is, its attributes and the time of its
// last write. The copy gets its name when it is complete, so a failed copy leaves an existing
// target as it was. A crash may leave a temporary file beside the target (".ostrel-copy-" and a
// number), which a later copy into the directory removes. Handles that are open on a replaced
// target keep the old file.
//
// Returns TRUE. On failure returns FALSE and sets the last error:
//   ERROR_FILE_EXISTS        `failIfExists` is not 0 and the target exists, also as a directory; a
//                            link that leads nowhere does not count as existing
//   ERROR_ACCESS_DENIED      the source or target is a directory; the target is a FIFO, socket or
//                            device, or is read-only, hidden or system
//   ERROR_SHARING_VIOLATION  a handle to the source does not share reading, or one to the target
//                            does not share writing; the target is a running program; or the two
//                            are the same file
//   ERROR_NOT_SUPPORTED      the source is a FIFO or device (a socket gives ERROR_GEN_FAILURE)
// or a path error (ERROR_FILE_NOT_FOUND is the source, a missing directory may be the target's) or
// a host error.
OSTREL_PLATFORM_API BOOL CopyFileW(const WCHAR *source, const WCHAR *target,
                                   BOOL failIfExists) noexcept;

inline constexpr DWORD MOVEFILE_REPLACE_EXISTING = 1;
inline constexpr DWORD MOVEFILE_COPY_ALLOWED = 2;
inline constexpr DWORD MOVEFILE_DELAY_UNTIL_REBOOT = 4;
inline constexpr DWORD MOVEFILE_WRITE_THROUGH = 8;

// Moves or renames a file, directory or symbolic link. Within a file system the move is atomic:
// other processes see the old path or the new one. On a file system without an exclusive rename
// (RENAME_NOREPLACE) a file may have both paths for a moment, and what another process creates at
// `target` just then may be replaced. Handles that are open on the source stay valid; unless the
// source is to be copied, their share modes do not restrict the move.
//
//   REPLACE_EXISTING     Replaces a file or link at `target`. ERROR_ACCESS_DENIED when a directory
//                        other than the source is at `target`, or when the file at `target` is
//                        read-only, a running program, open without FILE_SHARE_DELETE, or being
//                        deleted or replaced by others. A directory that replaces a file exchanges
//                        names with the file (RENAME_EXCHANGE) before the call deletes the file. A
//                        crash in between leaves the file at the directory's old path. On a file
//                        system that cannot exchange names, nothing is at `target` for a moment; a
//                        crash then leaves the directory at its old path and the file as ".ostrel-"
//                        and 16 hexadecimal digits beside `target`.
//   COPY_ALLOWED         Moves a file or link to another file system by copying it, with its
//                        attributes, times and user extended attributes, and with its owner if the
//                        host allows that. Writes the copy to the disk, then deletes the source.
//                        Succeeds even if the source cannot be deleted or was changed meanwhile.
//   DELAY_UNTIL_REBOOT   Only records the move, for the next start of the system; the source need
//                        not exist. A null `target` deletes the file, or the directory if it is
//                        empty then. Not together with COPY_ALLOWED. See docs/platform.md.
//   WRITE_THROUGH        Writes the two directories to the disk before the call returns. When that
//                        fails, the call fails although the move has been made. Has no effect with
//                        DELAY_UNTIL_REBOOT.
//
// MoveFileW is MoveFileExW with COPY_ALLOWED.
//
// Return TRUE. On failure return FALSE and set the last error:
//   ERROR_ALREADY_EXISTS     something other than the source itself is at `target`, and
//                            REPLACE_EXISTING is not given
//   ERROR_NOT_SAME_DEVICE    `target` is on another file system, and COPY_ALLOWED is not given or
//                            the source is neither a file nor a link
//   ERROR_SHARING_VIOLATION  the source is to be copied, and a handle to it does not share reading
//   ERROR_ACCESS_DENIED      as above; a path is the root of a drive; this user may not write the
//                            record of DELAY_UNTIL_REBOOT, or the record cannot be trusted
//   ERROR_INVALID_PARAMETER  other flags; a null `target` without DELAY_UNTIL_REBOOT; a directory
//                            is to be moved into itself
//   ERROR_INVALID_DATA       the record file of DELAY_UNTIL_REBOOT holds something else
//   ERROR_DISK_FULL          the disk is full, or that record would exceed 64 MiB
// or a path error (ERROR_FILE_NOT_FOUND is the source, a missing directory may be the target's or
// the record's) or a host error; ERROR_NOT_SUPPORTED when DELAY_UNTIL_REBOOT finds no boot id of
// the host. On failure the source has not moved, unless WRITE_THROUGH failed after the move.
// When the directory of a copied file cannot be written to the disk, the copy stays too.
OSTREL_PLATFORM_API BOOL MoveFileW(const WCHAR *source, const WCHAR *target) noexcept;
OSTREL_PLATFORM_API BOOL MoveFileExW(const WCHAR *source, const WCHAR *target,
                                     DWORD flags) noexcept;

// Stores the path of the directory for temporary files, with a separator at its end. Takes the
// first of the variables TMP, TEMP and USERPROFILE that is not empty, else TMPDIR if that is an
// absolute host path, else "C:\tmp\". In a program that has rights which its caller lacks
// (AT_SECURE), ignores these variables. Skips a path of more than 259 characters, the separator
// included. Stores a host path in the form C:\dir\. Does not check that the directory exists.
// `capacity` is the size of `buffer` in characters, the NUL included.
//
// Returns the number of characters stored, without the NUL. When `capacity` is too small, stores
// nothing, returns the capacity needed, with the NUL, and leaves the last error as it is; `buffer`
// may be null when `capacity` is 0. On failure returns 0 and sets the last error to
// ERROR_INVALID_PARAMETER (a null `buffer` with another `capacity`) or ERROR_NOT_ENOUGH_MEMORY.
OSTREL_PLATFORM_API DWORD GetTempPathW(DWORD capacity, WCHAR *buffer) noexcept;

// Checks whether a file can be used: `mode` is 0 (it exists), 2 (write), 4 (read) or 6 (both).
// Beyond existence only READONLY counts, and only for writing a file; the host's permissions on the
// file itself do not count, and a directory always passes.
//
// Returns 0. On failure returns -1 and sets errno to EACCES (`mode` has 2 and the file is
// read-only), to EINVAL (a null `path`, another `mode`), to ENOENT (nothing is at `path`, or `path`
// is empty, has more than 259 characters or a name too long for the host, is on a drive that does
// not exist, cannot be that of a host file, or leads through a file), or to another errno of the
// host, such as EACCES for a directory on the way.
OSTREL_PLATFORM_API int _waccess(const WCHAR *path, int mode) noexcept;

// Makes up a path that no file has at the moment: a directory, `prefix` (null is empty) and a
// random number of up to 20 digits, which nobody can guess, without an extension. The directory is
// the value of TMP if that is an existing directory, else `directory` if that is one, else the
// current directory (the text begins with .\). With TMP not set, a missing `directory` is no
// failure. Ignores TMP where GetTempPathW does. The call creates no file, and another process may
// take the name once it is known: create the file with CREATE_NEW, which follows no link.
//
// Returns a text that the caller releases with free. On failure returns null and sets errno to
// ENOENT (TMP is set, `directory` is not null, and neither is an existing directory; or no host
// file can have the path), to ENAMETOOLONG (the path would have more than 259 characters), or to
// another errno of the host.
OSTREL_PLATFORM_API WCHAR *_wtempnam(const WCHAR *directory, const WCHAR *prefix) noexcept;

// Deletes a file or a symbolic link by the rules of DeleteFileW. `path` has any length.
//
// Returns 0. On failure returns -1 and sets errno to EACCES (a directory, a read-only file, or
// where DeleteFileW sets ERROR_SHARING_VIOLATION), to ENOENT (nothing is at `path`, `path` is
// empty, its drive does not exist, or no host file can have it), to ENOTDIR (the path leads through
// a file), to EINVAL (`path` is null), or to another errno of the host.
OSTREL_PLATFORM_API int _wremove(const WCHAR *path) noexcept;

#endif

#endif  // OSTREL_PLATFORM_FILE_H
