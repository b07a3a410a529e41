#ifndef OSTREL_FILE_STD_UTILS_FILE_H
#define OSTREL_FILE_STD_UTILS_FILE_H

// Free functions for files: pieces of paths, facts about files and drives, versions of modules,
// listing and adding up directories, copying, moving and deleting files and trees.
//
//   NS_FileUtils::createDirectory(TEXT("c:\\data\\new"), false, false, false);
//   std::vector<OS::x_wstring> logs;
//   NS_FileUtils::collectFiles(logs, TEXT("c:\\data"), TEXT("*.log"), 0, nullptr, true, nullptr);
//   for (const OS::x_wstring &log : logs) { ... }
//
// Paths. ostrel/platform/file.h describes paths, attributes, links and sharing off Windows, find.h
// describes patterns. Unless a comment says otherwise, a null text counts as the empty one, and a
// null or empty directory is the current directory, in copyDirectory, moveDirectory and moveFiles
// too; a null or empty target is a failure. The functions join paths as NS_StringUtils::concatPath
// does, but never cut or refuse a long one. The calls of the platform take up to 259 characters: an
// operation on a longer path fails with ERROR_FILENAME_EXCED_RANGE, and a directory whose path and
// pattern together are longer cannot be listed. In the current directory, when `dir` is empty, an
// entry whose name begins like a drive (c:x) has the path .\c:x. Do not pass a null or empty
// pattern: unless `dir` ends in a separator, the search finds `dir` itself, under the path
// dir\name.
//
// Symbolic links. Walks follow links. A link to a directory on the way down to the link is listed
// and not entered, and of several links to one directory a walk enters the first that it meets.
// deleteTree removes the links that it meets, and moveDirectory moves them; both leave the targets
// alone.
//
// Other users. deleteTree, copyDirectory and moveDirectory work in the directories that they have
// found and opened: one that somebody replaces by a link meanwhile is not followed. The path that
// the caller gives is looked up once, links included. Without /proc moveDirectory moves by paths.
// For each level the three need a descriptor, copyDirectory and moveDirectory a second one for the
// target. moveFiles and the collecting functions work by paths. During a walk a callback's calls by
// path directly below the directory that is being walked work in that directory too
// (ostrel/platform/pinned_directory.h).
//
// Threads: the functions keep no state and take no lock. Two calls that change the same tree at the
// same time disturb each other.
// Errors: the result reports a failure, and a comment names the last error only where it is not
// that of the platform call that failed. What was done before the failure stays. A listing that
// fails after its first entry counts as complete, except in copyDirectory, moveDirectory and
// moveFiles, which report it. The functions throw nothing but std::bad_alloc, and exceptions of a
// callback pass through.

#include <cstdint>
#include <vector>

#include "ostrel/core/api.h"
#include "ostrel/core/x_string.h"
#include "ostrel/platform/types.h"

namespace NS_FileUtils {

// Return the path, or a piece of the path, of the file that a module was loaded from. `module` is
// the handle of a shared library; null is the program. On failure, also for a path of more than 259
// characters, return the empty string.
OSTREL_API OS::x_wstring getAppFullPathName(HINSTANCE module);     // c:\bin\tool.exe
OSTREL_API OS::x_wstring getAppPath(HINSTANCE module);             // c:\bin\ .
OSTREL_API OS::x_wstring getAppFilename(HINSTANCE module);         // tool
OSTREL_API OS::x_wstring getAppFilenameWithExt(HINSTANCE module);  // tool.exe

// Read the version block of a module, a PE or an ELF file (ostrel/platform/version.h). Load and run
// nothing. The first stores the first three of the four numbers of the file's version. The second
// copies the text FileVersion with its NUL, as its author wrote the text; the block's first
// translation names the text's language and code page. When the block has no text for them, the
// function takes the text of US English in code page 1252 (040904E4), if there is one.
//
// Numbers and text may differ. The size of `version` is not passed: a text has up to 32767
// characters with its NUL, whoever wrote the file.
//
// Return 1. On failure return 0, store nothing and leave the last error of the platform's calls:
// the file cannot be read, has no version block, or the block has no numbers, no translation or no
// text. Throw nothing; missing memory is a failure too.
OSTREL_API int getModuleVersion(const WCHAR *path, DWORD &major, DWORD &minor, DWORD &build);
OSTREL_API int getModuleVersion(const WCHAR *path, WCHAR *version);

// Return pieces of a path, split as _wsplitpath does; both '\' and '/' separate. Do not access the
// disk. Return the empty string when the directory, the name or the extension has more than 255
// characters.
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

// Returns the letter of the drive as it is spelled, or 0 for a path without a drive, or with a
// piece that is too long as above.
OSTREL_API WCHAR getDriveLetter(const WCHAR *path);

// Returns the directory of the file `path`; with `fUp` the directory above that one. The result has
// no '\' at its end. The name of the file is what follows the last '\' or '/', so a path that ends
// in a separator names its own directory. Between directories only '\' separates. A '\' at the
// beginning of a path without a drive is lost: \a\b.txt gives a. Returns the empty string when
// getFilePath does.
//
//   c:\a\b\c.txt, c:\a\b\   c:\a\b, with fUp c:\a        c:\a    c:, with fUp c:
OSTREL_API OS::x_wstring getParentDirectory(const WCHAR *path, bool fUp);

// Returns the directory for temporary files: the value of the environment variable TMP if something
// exists at that path, else the value of TEMP likewise, both as they are spelled; else the path of
// GetTempPathW, with a separator at its end. Skips a value of more than 259 characters. A program
// with rights that its caller lacks (set-user-ID) ignores the variables. On failure returns the
// empty string.
OSTREL_API OS::x_wstring getTempPath();

// Returns a path that no file has at the moment, as _wtempnam makes it up from `dir` and
// `prefix`; both may be null. Creates no file. On failure returns the empty string and sets errno
// as _wtempnam does.
OSTREL_API OS::x_wstring getTempFile(const WCHAR *dir, const WCHAR *prefix);

// isFileExist returns true when a file or directory is at `path`, isDirectoryExist when a directory
// is. Both return false on failure.
OSTREL_API bool isFileExist(const WCHAR *path);
OSTREL_API bool isDirectoryExist(const WCHAR *path);

// Returns true when the drive of `path` exists and is no CD or DVD drive. Returns false for a path
// without a drive.
OSTREL_API bool isDiskExist(const WCHAR *path);

// Returns true when the drive with the letter `drive` has more than `required` bytes free. Returns
// false when it has not, and on failure.
OSTREL_API bool isEnoughFreeDiskSpace(WCHAR drive, DWORD required);

// Stores the low 32 bits of a file's size in bytes; 0 for a directory. `path` may end in a pattern;
// the file of that very name counts, else the first match (for dir\* that is ".", with size 0).
// Returns true. When nothing is found, returns false and leaves `size` as it is.
OSTREL_API bool getFileSize(const WCHAR *path, DWORD &size);

// Stores the times of a file, in UTC; a null pointer skips that time. `path` may end in a pattern
// as above. Returns true. When nothing is found, returns false and stores nothing.
OSTREL_API bool getFileTime(const WCHAR *path, FILETIME *creation, FILETIME *access,
                            FILETIME *write);

// Sets the times of a file, in UTC; a null pointer leaves that time as it is. The attributes stay.
// The file is opened with FILE_SHARE_READ. Returns true when the file could be opened for reading
// and writing, also when setting the times failed. Returns false when the file could not be opened.
OSTREL_API bool setFileTime(const WCHAR *path, FILETIME *creation, FILETIME *access,
                            FILETIME *write);

// Reads a time of the form yyyymmddhhmmss and stores it in `*out`. Fills a shorter text with '0' at
// its end and ignores the rest of a longer one. With a `fUtc` of 0, converts the time from UTC to
// local time with the zone's present offset. A field that is no number is 0. Stores 0
// when the fields are no valid time or the conversion fails. Does nothing when `out` is null.
OSTREL_API void convertTime(const WCHAR *text, int fUtc, FILETIME *out);

// Adds to the end of `files` the full path of each entry of `dir` that matches the pattern `spec`.
// Bit 0x10 (directory) of `attrib` selects directories, "." and ".." among them; without that bit
// files are listed. Other bits are ignored. With `fRecursive` does the same in each subdirectory
// whose name does not begin with '.', whether or not it matches `spec`; the entries of a
// subdirectory come before those of `dir`. `reserved` and `reservedText` are ignored.
//
// Returns the number of paths added. A directory that cannot be listed counts as empty and is not
// reported.
OSTREL_API LONG collectFiles(std::vector<OS::x_wstring> &files, const WCHAR *dir, const WCHAR *spec,
                             unsigned int attrib, LONG *reserved, bool fRecursive,
                             const WCHAR *reservedText);

// Walks as collectFiles does and passes each entry to `callback`: the attributes (without NORMAL),
// the three times in seconds since 1970-01-01 00:00:00 UTC, the low 32 bits of the size, the name
// without its directory, and `context`. The name is valid during the call only. `callback` may be
// null. Returns the number of entries.
OSTREL_API LONG collectFilesEx(void (*callback)(unsigned int attrib, std::int64_t timeCreate,
                                                std::int64_t timeAccess, std::int64_t timeWrite,
                                                DWORD size, WCHAR *name, void *context),
                               void *context, const WCHAR *dir, const WCHAR *spec,
                               unsigned int attrib, LONG *reserved, bool fRecursive,
                               const WCHAR *reservedText);

// Returns the sum of the sizes of the files in `dir` that match `spec`, in bytes. With `fRecursive`
// adds those in each subdirectory that matches `spec` and whose name does not begin with '.'. The
// sum has 32 bits and wraps; so do the sums of the next two functions. A directory that cannot be
// listed and a file whose size cannot be read count as 0. The other arguments are ignored.
OSTREL_API DWORD calcFileSize(const WCHAR *dir, const WCHAR *spec, unsigned int attrib,
                              LONG *reserved, bool fRecursive, const WCHAR *reservedText);

// Returns the sum of the sizes of `files`, read with getFileSize. A file whose size cannot be read
// counts as 0.
OSTREL_API DWORD calcFileSize(std::vector<OS::x_wstring> files);

// Stores the sum of the sizes of the files in `dir` itself, in bytes. Returns true. On failure
// returns false and leaves `size` as it is: when `dir` cannot be listed (the root of a drive also
// when it holds nothing), when `dir` with a separator and "*.*" has more than 259 characters, and
// when `dir` is null or empty, which sets no last error.
OSTREL_API bool getDirectorySize(const WCHAR *dir, DWORD &size);

// Creates a directory and the missing directories above it. With `fPathHasFile` the last component
// of `path` is the name of a file and is ignored. Where directories above are missing, only '\'
// separates; a path without a drive keeps the separators at its beginning.
//
// Each new directory also gets the hidden, system and archive attributes of the directory above it
// if `path` ends in a separator, else of the directory two levels above it. `fNoHidden` and
// `fNoSystem` exclude one attribute each. An existing directory keeps its attributes.
//
// Returns true when the directory exists at the end, false otherwise.
OSTREL_API bool createDirectory(const WCHAR *path, bool fPathHasFile, bool fNoHidden,
                                bool fNoSystem);

// Copies a file with its attributes and times, unless both files have the same time of last write
// already. The directory of `pszNew` must exist. During the copy the source is open with
// FILE_SHARE_READ and the target without sharing. Off Windows a new target never gives its group
// and others a permission that the source does not give them, nor one that the umask takes; an
// existing target keeps its permissions, unless the source is read-only. With `fMoveBusyAside` a
// target that cannot be opened for writing, a directory too, is first renamed, and the renamed file
// stays: c:\x\a.dll becomes c:\x\a1234567.dll, with the tick count of the system as a signed
// number.
//
// Returns true when the copy was made or was not needed. A failed read ends the copy as the end of
// the file does: the function then sets attributes and times and returns true, and the last error
// is that of ReadFile unless a later call fails. A failure to set attributes or times is not
// reported. On failure to open either file or to write returns false, as for a source that is a
// FIFO, socket or character device; for a FIFO or character device the last error stays as it was.
// The bytes that were written stay.
OSTREL_API bool copyFileEx(const WCHAR *pszExisting, const WCHAR *pszNew, bool fMoveBusyAside);

// Moves a file with MoveFileExW and the flags `dwFlag`. With `fIgnoreAttribute` not 0, first
// removes all attributes of a source that is read-only, hidden or system; they are not restored.
// Passes null paths on.
//
// Returns true when the file was moved, false otherwise. When MoveFileExW fails with
// ERROR_CALL_NOT_IMPLEMENTED, the function uses other calls: within a drive MoveFileW, with
// MOVEFILE_REPLACE_EXISTING after DeleteFileW on the target; between drives, with
// MOVEFILE_COPY_ALLOWED only, CopyFileW and DeleteFileW. It then ignores the other flags, so a
// move within a drive that was to wait for the next start happens at once.
OSTREL_API bool moveFileEx(const WCHAR *pszExistingFile, const WCHAR *pszNewFile, DWORD dwFlag,
                           int fIgnoreAttribute);

// Copies the files of a directory with copyFileEx. With `fIncludeSubDirectory` first copies the
// subdirectories whose names do not begin with '.'. Creates `target` when it is missing, also for a
// `source` that does not exist.
//
// A file that fails ends the copy, unless `fContinueOnError` is not 0. When a file of a
// subdirectory fails, the other files of that subdirectory are still copied; then the whole copy
// ends, whatever `fContinueOnError` is. `fMoveBusyAside` applies to the files of `source` itself
// only.
//
// A directory that is copied into itself (c:\d to c:\d\e) is copied level below level until a path
// has more than 259 characters, and the call fails. A link that leads nowhere is a file that fails.
// Links in `source` are followed. Links in `target`, which others may have put there, are not: a
// file or subdirectory that would have to be written through one fails. `target` itself may be a
// link. A new directory is no more open to others than that of `source`. A subdirectory of `source`
// that others replace by a link meanwhile fails as well.
//
// Returns 1, also when `source` does not exist or is a file. On failure returns 0: when a file
// fails, when an existing directory, or an entry of it, cannot be read, and when `target` cannot be
// created. An entry that cannot be read counts as a file that fails. The last error may be that of
// a later call; a directory whose files cannot be listed sets errno instead.
OSTREL_API int copyDirectory(const WCHAR *source, const WCHAR *target, int fIncludeSubDirectory,
                             int fContinueOnError, int fMoveBusyAside);

// Moves the files of a directory into `target` with moveFileEx and replaces existing files; a
// read-only, hidden or system file loses its attributes. Creates `target` when it is missing. With
// `fIncludeSubDirectory` first moves the subdirectories whose names do not begin with '.', a link
// to a directory as a link. Then removes `source` if it is empty. The first failure ends the move.
// `reserved` is ignored. A directory that is moved into itself nests as in copyDirectory.
//
// Returns 1, also when `source` does not exist or is a file, or is not empty at the end. On failure
// returns 0: when a file or link cannot be moved, when an existing directory, or an entry of it,
// cannot be read, and when `target` cannot be created. A directory whose files cannot be listed
// sets errno instead of the last error.
OSTREL_API int moveDirectory(const WCHAR *source, const WCHAR *target, int fIncludeSubDirectory,
                             int reserved);

// Moves the files of `source` that match `spec` with moveFileEx and the flags `dwFlag`. With
// `fRecursive` moves those of subdirectories too, as collectFiles lists them, also through links.
// All go to `target` itself, which is created when it is missing. The new path is
// concatPath(target, getFilename) followed by getFileExt, so a name that is all extension, such as
// .profile, is moved beside `target`, to c:\target.profile.
//
// Returns true, also when nothing matches. On failure returns false: when `target` cannot be
// created, when an existing directory, or an entry of it, cannot be read (then nothing is moved),
// and at the first file that cannot be moved, which ends the call.
OSTREL_API bool moveFiles(const WCHAR *source, const WCHAR *target, const WCHAR *spec, DWORD dwFlag,
                          int fRecursive);

// Deletes the files in `dir` that match `spec`, read-only ones too. With `fRecursive` does the same
// in each subdirectory that matches `spec` and whose name does not begin with '.'. With
// `fRemoveDirectory` then removes each directory that it has processed, `dir` too. A failure does
// not stop the call.
//
// Passes to `callback`, unless that is null, the path of each file with the result of DeleteFileW,
// and the path of each directory that could not be removed with 0. The path is valid during the
// call only. Nothing else reports a failure; a directory that cannot be listed counts as empty.
//
// A null `dir` deletes nothing; an empty `dir` is the current directory. Links are not followed: a
// link to a file is deleted as a file, and a link to a directory, `dir` too, counts as an empty
// directory. A path that continues after the link (c:\link\dir) is followed. A read-only file that
// this user may not make writable stays.
OSTREL_API void deleteTree(const WCHAR *dir,
                           void (*callback)(const WCHAR *path, int result, void *context),
                           void *context, int fRemoveDirectory, int fRecursive, const WCHAR *spec);

// Asks the platform to delete the files at the next start of the system, with MoveFileExW and
// MOVEFILE_DELAY_UNTIL_REBOOT. Does not report a failure.
OSTREL_API void deleteFilesUntilReboot(const std::vector<OS::x_wstring> &files);

}  // namespace NS_FileUtils

#endif  // OSTREL_FILE_STD_UTILS_FILE_H
