#ifndef OSTREL_FILE_STD_UTILS_FILE_H
#define OSTREL_FILE_STD_UTILS_FILE_H

// Free functions for files: the pieces of a path, facts about files and drives, listing and summing
// up directories, copying, moving and deleting files and trees.
//
//   NS_FileUtils::createDirectory(TEXT("c:\\data\\new"), false, false, false);
//   std::vector<OS::x_wstring> logs;
//   NS_FileUtils::collectFiles(logs, TEXT("c:\\data"), TEXT("*.log"), 0, nullptr, true, nullptr);
//   for (const OS::x_wstring &log : logs) { ... }
//
// Paths, attributes, links and sharing modes are those of the platform's file calls: see
// ostrel/platform/file.h for what they are off Windows, and find.h for patterns. A null text counts
// as the empty one. Paths are joined as NS_StringUtils::concatPath does it, in full, whatever their
// length. The platform's calls take MAX_PATH (260) characters with the NUL: what a longer path
// names fails or is passed over with ERROR_FILENAME_EXCED_RANGE, and a path is never cut, so that
// it could name another file.
//
// Symbolic links. A walk takes a link for what it points to; a directory link that leads back to a
// directory on the way down to it is listed and not entered. deleteTree removes links and
// moveDirectory moves the links that it meets, and both leave what they point to alone.
//
// Threads: there is no state and no lock. Two calls that change the same tree at the same time are
// not kept apart.
// Errors: a failure is told by the result, and GetLastError has the code of the last call of the
// platform. What had been done before the failure stays. Nothing is raised but std::bad_alloc.

#include <cstdint>
#include <vector>

#include "ostrel/core/api.h"
#include "ostrel/core/x_string.h"
#include "ostrel/platform/types.h"

namespace NS_FileUtils {

// Where the program, or a shared library (by its handle), was loaded from. Null is the program. On
// failure, also for a path of more than 259 characters, the result is empty.
OSTREL_API OS::x_wstring getAppFullPathName(HINSTANCE module);     // c:\bin\tool.exe
OSTREL_API OS::x_wstring getAppPath(HINSTANCE module);             // c:\bin\ .
OSTREL_API OS::x_wstring getAppFilename(HINSTANCE module);         // tool
OSTREL_API OS::x_wstring getAppFilenameWithExt(HINSTANCE module);  // tool.exe

// Pieces of a path; the disk is not looked at. They are those of _wsplitpath, so a piece that does
// not fit 256 characters makes all of them empty.
//
//                         c:\dir\name.tar.gz   c:name.txt   .profile    name.
//   getFilename           name.tar             name                     name
//   getFilenameWithExt    name.tar.gz          name.txt     .profile    name.
//   getFileExt            .gz                  .txt         .profile    .
//   getFilePath           c:\dir\              c:
OSTREL_API OS::x_wstring getFilename(const WCHAR *path);
OSTREL_API OS::x_wstring getFilenameWithExt(const WCHAR *path);
OSTREL_API OS::x_wstring getFileExt(const WCHAR *path);
OSTREL_API OS::x_wstring getFilePath(const WCHAR *path);

// The letter of the drive as it is written, 0 without a drive.
OSTREL_API WCHAR getDriveLetter(const WCHAR *path);

// The directory that holds the file `path` names, without a separator at its end; with `fUp` the
// one above it. What stands behind the last separator counts as the file, and only '\' separates.
//
//   c:\a\b\c.txt, c:\a\b\   c:\a\b, with fUp c:\a        c:\a    c:, with fUp c:
OSTREL_API OS::x_wstring getParentDirectory(const WCHAR *path, bool fUp);

// The folder for temporary files: the value of TMP if it names something that exists, else that of
// TEMP, as they are written; else what GetTempPathW gives, with a separator at its end; else empty.
// A value of more than 259 characters is passed over like one that does not exist.
OSTREL_API OS::x_wstring getTempPath();

// A path that names no file yet, in the form of _wtempnam; no file is created. Empty on failure.
OSTREL_API OS::x_wstring getTempFile(const WCHAR *dir, const WCHAR *prefix);

// Whether something is there: a directory is a file here.
OSTREL_API bool isFileExist(const WCHAR *path);
OSTREL_API bool isDirectoryExist(const WCHAR *path);

// Whether the drive of `path` exists; a CD or DVD drive counts as none, and so does a path without
// a drive.
OSTREL_API bool isDiskExist(const WCHAR *path);

// Whether the drive (a letter) has more than `required` bytes free; false when it cannot be told.
OSTREL_API bool isEnoughFreeDiskSpace(WCHAR drive, DWORD required);

// The low 32 bits of the size in bytes; 0 for a directory. `path` may hold a pattern, then it is
// the first match. False when nothing is found; `size` stays.
OSTREL_API bool getFileSize(const WCHAR *path, DWORD &size);

// The times of a file, in UTC. Null pointers are passed over. A pattern as above. False when
// nothing is found, with nothing written.
OSTREL_API bool getFileTime(const WCHAR *path, FILETIME *creation, FILETIME *access,
                            FILETIME *write);

// Sets the times that are not null. True means that the file could be opened for writing, and
// nothing more.
OSTREL_API bool setFileTime(const WCHAR *path, FILETIME *creation, FILETIME *access,
                            FILETIME *write);

// Reads yyyymmddhhmmss. A text that is shorter is filled with '0' at its end, what is longer is
// cut. With `fUtc` 0 the time is turned from UTC into local time by the zone's present offset. What
// is no time gives 0.
OSTREL_API void convertTime(const WCHAR *text, int fUtc, FILETIME *out);

// The full paths of what lies in `dir` and matches `spec`: files when bit 0x10 (directory) of
// `attrib` is clear, directories when it is set, "." and ".." among them. Other bits do not matter.
// With `fRecursive` the same in each subdirectory whose name does not begin with '.', whatever
// `spec` is; what lies in a subdirectory comes first. `reserved` and `reservedText` are not looked
// at.
//
// They are added to the end of `files`. Result: how many. A directory that cannot be listed counts
// as empty.
OSTREL_API LONG collectFiles(std::vector<OS::x_wstring> &files, const WCHAR *dir, const WCHAR *spec,
                             unsigned int attrib, LONG *reserved, bool fRecursive,
                             const WCHAR *reservedText);

// The same walk without keeping anything: `callback` gets each entry as the platform's search tells
// it: attributes, times in seconds since 1970, the low 32 bits of the size, the name without its
// folder, valid during the call. Null only counts.
OSTREL_API LONG collectFilesEx(void (*callback)(unsigned int attrib, std::int64_t timeCreate,
                                                std::int64_t timeAccess, std::int64_t timeWrite,
                                                DWORD size, WCHAR *name, void *context),
                               void *context, const WCHAR *dir, const WCHAR *spec,
                               unsigned int attrib, LONG *reserved, bool fRecursive,
                               const WCHAR *reservedText);

// The sizes of the files in `dir` that match `spec`, added up; with `fRecursive` also in each
// subdirectory that matches `spec` and whose name does not begin with '.'. The sum has 32 bits and
// wraps, as do the following. The other arguments are not looked at.
OSTREL_API DWORD calcFileSize(const WCHAR *dir, const WCHAR *spec, unsigned int attrib,
                              LONG *reserved, bool fRecursive, const WCHAR *reservedText);

// The sizes of these files, by getFileSize; those that cannot be read are passed over.
OSTREL_API DWORD calcFileSize(std::vector<OS::x_wstring> files);

// The sizes of the files that lie in `dir` itself. False, with `size` as it was, when `dir` is null
// or empty, cannot be listed, or is longer than a path may be.
OSTREL_API bool getDirectorySize(const WCHAR *dir, DWORD &size);

// Creates a directory and those above it that are missing; with `fPathHasFile` the last component
// of `path` is a file's name and not looked at. A new directory takes over the hidden, system and
// archive attributes of the one that getParentDirectory(new, true) names: the parent when the path
// ends in a separator, else one level higher. `fNoHidden` and `fNoSystem` keep one of them off.
//
// Where levels are missing only '\' separates. A path without a drive that begins with separators
// keeps them.
//
// Result: whether the directory exists now. One that existed keeps its attributes.
OSTREL_API bool createDirectory(const WCHAR *path, bool fPathHasFile, bool fNoHidden,
                                bool fNoSystem);

// Brings `pszNew` up to date: copies the file with its attributes and times, unless both have the
// same time of last write already. The folder must exist. The source is open with FILE_SHARE_READ
// meanwhile, the copy with no sharing; a new one has the permissions of any new file. A copy that
// cannot be opened for writing is, with `fMoveBusyAside`, first renamed: c:\x\a.dll becomes
// c:\x\a1234567.dll, with the system's tick count, and stays there.
//
// Result: true when `pszNew` is up to date. A read that fails ends the copy as the end of the file
// does, with the code in GetLastError. On a failed write what was written stays.
OSTREL_API bool copyFileEx(const WCHAR *pszExisting, const WCHAR *pszNew, bool fMoveBusyAside);

// MoveFileExW with the flags `dwFlag`. With `fIgnoreAttribute` not 0 a file that is read-only,
// hidden or system is made normal first, and stays so. Where the platform has no MoveFileExW
// (ERROR_CALL_NOT_IMPLEMENTED) the flags REPLACE_EXISTING and COPY_ALLOWED are carried out by other
// calls. Result: whether the file was moved.
OSTREL_API bool moveFileEx(const WCHAR *pszExistingFile, const WCHAR *pszNewFile, DWORD dwFlag,
                           int fIgnoreAttribute);

// Copies the files of a directory by copyFileEx, and with `fIncludeSubDirectory` first the
// subdirectories whose names do not begin with '.'. `target` is created when it is missing, also
// for a `source` that does not exist. A file that fails makes the result 0, and
// ends the copy unless `fContinueOnError`. In subdirectories files never end it, and busy files are
// not moved aside; but one that fails ends the whole copy.
//
// Result: 1, or 0, also when a directory is there and cannot be listed.
OSTREL_API int copyDirectory(const WCHAR *source, const WCHAR *target, int fIncludeSubDirectory,
                             int fContinueOnError, int fMoveBusyAside);

// Moves the files of a directory into `target`, replacing what is there, and with
// `fIncludeSubDirectory` first the subdirectories whose names do not begin with '.'; then removes
// `source`, if it is empty. A directory link in it is moved as it is, with the subdirectories. The
// first failure ends it, also a directory that is there and cannot be listed.
// `reserved` is not looked at.
//
// Result: 1, also when `source` does not exist or is not empty at the end; or 0.
OSTREL_API int moveDirectory(const WCHAR *source, const WCHAR *target, int fIncludeSubDirectory,
                             int reserved);

// Moves the files that match `spec` by moveFileEx, with `fRecursive` those of subdirectories too
// (as collectFiles lists them, also through links), all into `target` itself, which is created when
// it is missing. The new path is concatPath(target, getFilename) and getFileExt behind it: a name
// that is all extension, such as .profile, comes to lie beside `target`, as c:\target.profile. The
// first failure ends it.
OSTREL_API bool moveFiles(const WCHAR *source, const WCHAR *target, const WCHAR *spec, DWORD dwFlag,
                          int fRecursive);

// Deletes the files in `dir` that match `spec`, read-only ones too; with `fRecursive` also in each
// subdirectory that matches `spec` and whose name does not begin with '.'. Then, with
// `fRemoveDirectory`, removes each directory that was gone through. A failure does not stop it.
//
// `callback`, unless null, gets each file's path (valid during the call) with what DeleteFileW
// gave, and each directory that could not be removed with 0.
//
// A null `dir` deletes nothing; the empty one is the current directory. A link, `dir` too, is
// removed and not followed, unless the path goes on behind it (c:\link\.). All calls go by path:
// whoever can replace a directory of the tree by a link at the very moment between its being looked
// at and a deletion in it can have files deleted elsewhere, and that moment comes with each entry.
// Each directory is looked at just before its search is opened, and each entry is deleted as soon
// as it is found; more cannot be done by paths: a tree that others can write to is safe only when
// they cannot rename its directories.
OSTREL_API void deleteTree(const WCHAR *dir,
                           void (*callback)(const WCHAR *path, int result, void *context),
                           void *context, int fRemoveDirectory, int fRecursive, const WCHAR *spec);

// Asks the platform to delete the files at the next start of the system
// (MOVEFILE_DELAY_UNTIL_REBOOT).
OSTREL_API void deleteFilesUntilReboot(const std::vector<OS::x_wstring> &files);

}  // namespace NS_FileUtils

#endif  // OSTREL_FILE_STD_UTILS_FILE_H
