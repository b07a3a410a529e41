#ifndef OSTREL_PLATFORM_PROCESS_H
#define OSTREL_PLATFORM_PROCESS_H

// Processes: starting and ending them, which ones run, and what they are called.
//
//   WCHAR line[] = TEXT("\"C:\\srv\\tool\" -v \"a b\"");
//   STARTUPINFOW startup = {};
//   startup.cb = sizeof startup;
//   PROCESS_INFORMATION info;
//   DWORD code = 0;
//   if (CreateProcessW(nullptr, line, nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
//                      &info)) {
//       WaitForSingleObject(info.hProcess, INFINITE);  // sync.h
//       GetExitCodeProcess(info.hProcess, &code);
//       CloseHandle(info.hProcess);
//       CloseHandle(info.hThread);
//   }
//
//   DWORD ids[1024], bytes = 0;
//   EnumProcesses(ids, sizeof ids, &bytes);
//   for (DWORD i = 0; i < bytes / sizeof(DWORD); ++i) {
//       const HANDLE process = OpenProcess(PROCESS_QUERY_INFORMATION | PROCESS_VM_READ, FALSE,
//                                          ids[i]);
//       WCHAR name[MAX_PATH];  // file.h
//       if (process != nullptr && GetModuleBaseNameW(process, nullptr, name, MAX_PATH) != 0) {
//           show(ids[i], name);
//       }
//       CloseHandle(process);  // handle.h
//   }
//
// Implemented with clone, execve, /proc, pidfd_open, pidfd_send_signal and waitid (Linux 5.4).
//
// Handles. A handle means one process for as long as the handle is open: a later process that gets
// the same id is never meant. WaitForSingleObject and WaitForMultipleObjects (sync.h) take the
// handle, whatever its access; the handle is signalled when the process has ended. Each process
// with open handles costs a descriptor of the host.
//
// Names. The name of a process is that of the file which it executes, without its folder: of a
// script the name of the interpreter. A file that was removed or replaced since keeps its name, and
// a file that was renamed has the new one. A handle of OpenProcess keeps the name that the process
// had then, also when the process executes another program. file.h says how host names become
// UTF-16.
//
// Access. An access that a handle lacks is refused with ERROR_ACCESS_DENIED. The calls below name
// what they need.
//
// Ends. The host forgets a process of CreateProcessW as soon as the process has ended, whether or
// not its handles are closed: no zombie stays. A thread of the layer, which starts with the first
// such process, sees to that; from then on dlclose does not unload the layer.
//
// Exit codes. What a program exits with has 8 bits on the host: 256 is 0. A signal that ended the
// process is one of these codes:
//
//   0xC0000005  SIGSEGV, SIGBUS: an access violation
//   0xC000001D  SIGILL: an illegal instruction
//   0xC0000094  SIGFPE: a division by zero
//   0xC000013A  SIGINT: Ctrl-C
//   0xE0000000  and the number of any other signal: 0xE0000009 for SIGKILL
//
// TerminateProcess gives all 32 bits of its code, but only in the process that calls it.
//
// SIGCHLD. A program may handle or ignore SIGCHLD, and may wait for all its children. From Linux
// 6.15 on the exit codes are known all the same. On an older host the code of a process that the
// program's own wait took, or that ended while SIGCHLD was ignored, is lost: GetExitCodeProcess
// fails. Waits for handles are never affected.
//
// Threads: every call may run on any thread.
//
// Forks. The child of a fork may use the handles of its parent.

#include "ostrel/platform/types.h"

#ifdef _WIN32

#include <psapi.h>

#else

inline constexpr DWORD PROCESS_TERMINATE = 0x1;
inline constexpr DWORD PROCESS_VM_READ = 0x10;
inline constexpr DWORD PROCESS_QUERY_INFORMATION = 0x400;
inline constexpr DWORD PROCESS_QUERY_LIMITED_INFORMATION = 0x1000;
inline constexpr DWORD SYNCHRONIZE = 0x100000;
inline constexpr DWORD PROCESS_ALL_ACCESS = 0x1FFFFF;

// In STARTUPINFOW::dwFlags.
inline constexpr DWORD STARTF_USESHOWWINDOW = 0x1;
inline constexpr DWORD STARTF_USESTDHANDLES = 0x100;
inline constexpr WORD SW_HIDE = 0;

inline constexpr DWORD DETACHED_PROCESS = 0x8;
inline constexpr DWORD CREATE_NEW_PROCESS_GROUP = 0x200;
inline constexpr DWORD CREATE_UNICODE_ENVIRONMENT = 0x400;
inline constexpr DWORD CREATE_NO_WINDOW = 0x8000000;

// How a new process begins. Only dwFlags and the three handles have an effect.
struct STARTUPINFOW {
    DWORD cb;  // sizeof(STARTUPINFOW)
    WCHAR *lpReserved;
    WCHAR *lpDesktop;
    WCHAR *lpTitle;
    DWORD dwX;
    DWORD dwY;
    DWORD dwXSize;
    DWORD dwYSize;
    DWORD dwXCountChars;
    DWORD dwYCountChars;
    DWORD dwFillAttribute;
    DWORD dwFlags;
    WORD wShowWindow;
    WORD cbReserved2;
    BYTE *lpReserved2;
    HANDLE hStdInput;
    HANDLE hStdOutput;
    HANDLE hStdError;
};

struct PROCESS_INFORMATION {
    HANDLE hProcess;
    HANDLE hThread;
    DWORD dwProcessId;
    DWORD dwThreadId;
};

// Starts a program. `security` and `thread_security` are ignored.
//
// `application` is the path of the program, or null. `line` is the command line: the program's name
// and its arguments; null stands for `application` alone. The call does not write to `line`.
//
// The name. With `application` the call takes that file, or the file without a ".exe" at its end.
// Otherwise the first word of `line` names the program. Without quotation marks, the name may hold
// blanks: the call tries the line up to the first blank, then up to the next, as far as 259
// characters go. For each name the call looks for these files:
//
//   tool.exe  tool.exe, then tool; "exe" in either case
//   tool      tool.exe, then tool
//   tool.     tool
//   tool.sh   that file alone, and so for every other suffix
//
// A name with a separator or a drive is a path (file.h); a relative one begins at the current
// directory of this process. Any other name is looked for in the program's folder, in the folder
// of the layer's own programs, and in the folders of PATH that begin at the root. A program never
// comes from the current directory by a name alone, because others may be able to write there. In a
// program that has rights which its caller lacks (AT_SECURE), neither the program's folder nor PATH
// counts; /usr/local/sbin and the host's other standard folders do, as without PATH. CMD and
// taskkill, in any case, are the layer's own programs wherever those are installed. What cannot be
// executed is passed over in a search. A script begins with "#!": no shell is ever asked.
//
// The arguments are cut by the rules of the platform's runtime. Blanks (a blank or a tab) separate.
// Between quotation marks they do not, and two marks stand for one. Before a mark two backslashes
// stand for one, and an odd one makes the mark an ordinary character. Nothing is expanded. CMD and
// taskkill get what follows their name as one argument, as it is. Arguments become UTF-8, with the
// units of file.h that stand for bytes of host names as those bytes.
//
// `inherit` says whether the program keeps the host's descriptors above 2 which are not closed on
// execution. The layer's own handles are. With STARTF_USESTDHANDLES, which needs `inherit`, the
// three handles of files become its standard input, output and error; null and INVALID_HANDLE_VALUE
// leave what this process has.
//
// `flags` is any of CREATE_UNICODE_ENVIRONMENT, CREATE_NEW_PROCESS_GROUP (the host's process group
// of its own), CREATE_NO_WINDOW and DETACHED_PROCESS (without effect).
//
// `environment` is null for the environment of this process, or texts such as "NAME=value", each
// with its NUL, and an empty text behind them: WCHAR in the system code page with
// CREATE_UNICODE_ENVIRONMENT, otherwise bytes. `directory` is the program's current directory; null
// means that of this process. The program begins with all signals at their default actions and none
// blocked.
//
// Stores handles of the process and of its first thread, with all access, which CloseHandle closes;
// both are signalled when the process has ended. Both ids are that of the process. Returns TRUE
// once the program is executed. On failure returns FALSE and sets the last error:
//   ERROR_INVALID_PARAMETER     no name, a null `startup` or `information`, unknown flags, or
//                               handles without `inherit`
//   ERROR_NOT_SUPPORTED         CREATE_SUSPENDED
//   ERROR_FILE_NOT_FOUND        there is no such program, or not the interpreter that it names
//   ERROR_PATH_NOT_FOUND        the folder of a path is missing
//   ERROR_ACCESS_DENIED         this user may not execute the file; a directory
//   ERROR_BAD_EXE_FORMAT        the file is no program for this host
//   ERROR_FILENAME_EXCED_RANGE  the line has more than 32767 characters, or the host takes no
//                               arguments and environment as long as these
//   ERROR_DIRECTORY             `directory` is no directory that this user may enter
//   ERROR_INVALID_HANDLE        a handle of `startup` is no file's
//   ERROR_NO_SYSTEM_RESOURCES   the host refuses another process
//   ERROR_NOT_ENOUGH_MEMORY     memory is short
// or the code that error_codes.inc gives for the host's errno.
OSTREL_PLATFORM_API BOOL CreateProcessW(const WCHAR *application, WCHAR *line,
                                        SECURITY_ATTRIBUTES *security,
                                        SECURITY_ATTRIBUTES *thread_security, BOOL inherit,
                                        DWORD flags, LPVOID environment, const WCHAR *directory,
                                        STARTUPINFOW *startup,
                                        PROCESS_INFORMATION *information) noexcept;

// Stores the exit code of a process, or STILL_ACTIVE (sync.h) while the process runs. A process may
// also end with that number; a wait tells. The handle needs PROCESS_QUERY_INFORMATION or
// PROCESS_QUERY_LIMITED_INFORMATION.
//
// Returns TRUE. On failure returns FALSE and sets the last error to ERROR_INVALID_HANDLE,
// ERROR_ACCESS_DENIED (the handle), ERROR_NOACCESS (`code` is null) or ERROR_NOT_FOUND: the process
// has ended and the host does not tell how, as it may not for a process that this one has not
// started.
OSTREL_PLATFORM_API BOOL GetExitCodeProcess(HANDLE process, DWORD *code) noexcept;

// Ends a process at once, by SIGKILL, with the exit code `code`. The process may still be there
// when the call returns; a wait tells. For the calling process, ends it with the low 8 bits of
// `code`, without destructors. The handle needs PROCESS_TERMINATE.
//
// Returns TRUE. On failure returns FALSE and sets the last error to ERROR_INVALID_HANDLE, or to
// ERROR_ACCESS_DENIED: the handle lacks access, the host refuses, or the process has ended.
OSTREL_PLATFORM_API BOOL TerminateProcess(HANDLE process, DWORD code) noexcept;

// Stores the ids of the processes that /proc shows, in ascending order, threads left out. `size` is
// the size of `ids` in bytes; as many ids are stored as fit. `stored` receives the bytes stored.
// When that is all of `size`, there may be more processes: try again with a larger buffer.
//
// Returns TRUE. On failure returns FALSE and sets the last error to ERROR_NOACCESS (a null pointer;
// `ids` may be null when `size` is below 4) or the code that error_codes.inc gives for the host's
// errno.
OSTREL_PLATFORM_API BOOL EnumProcesses(DWORD *ids, DWORD size, DWORD *stored) noexcept;

// Opens a process. `access` is any of the bits above; other bits are kept and mean nothing.
// `inherit` has no effect: no new process gets the handle.
//
// This user needs the host's permission to look into the process (as ptrace does) for
// PROCESS_VM_READ and PROCESS_QUERY_INFORMATION, and to send it signals for PROCESS_TERMINATE.
//
// Returns a handle that CloseHandle closes. On failure returns null and sets the last error:
//   ERROR_INVALID_PARAMETER     no process has the id, such as 0
//   ERROR_ACCESS_DENIED         the host refuses one of the accesses
//   ERROR_TOO_MANY_OPEN_FILES   the host has no descriptor left
//   ERROR_NOT_ENOUGH_MEMORY     memory is short
OSTREL_PLATFORM_API HANDLE OpenProcess(DWORD access, BOOL inherit, DWORD id) noexcept;

// Lists the modules of a process: the program alone, not the libraries that it has loaded. The
// handle of the module means the program of `process`, and only GetModuleBaseNameW takes it. `size`
// is the size of `modules` in bytes; below 8 nothing is stored. `needed` receives 8. The process
// handle needs PROCESS_QUERY_INFORMATION and PROCESS_VM_READ.
//
// Returns TRUE. On failure returns FALSE and sets the last error:
//   ERROR_INVALID_HANDLE   `process` is no process's handle
//   ERROR_ACCESS_DENIED    the handle lacks access, or the host refuses it since
//   ERROR_NOACCESS         a null pointer
//   ERROR_PARTIAL_COPY     the process has no program: it has ended, or is the kernel's own
OSTREL_PLATFORM_API BOOL EnumProcessModules(HANDLE process, HMODULE *modules, DWORD size,
                                            DWORD *needed) noexcept;

// Stores the name of a process. `module` is what EnumProcessModules stored, or null. `capacity` is
// the size of `name` in characters, the NUL included; a longer name is cut. The process handle
// needs PROCESS_QUERY_INFORMATION and PROCESS_VM_READ.
//
// Returns the number of characters stored, without the NUL. On failure returns 0, leaves `name` as
// it is and sets the last error as EnumProcessModules does, or to ERROR_INVALID_HANDLE for another
// module and ERROR_INVALID_PARAMETER for a `capacity` of 0.
OSTREL_PLATFORM_API DWORD GetModuleBaseNameW(HANDLE process, HMODULE module, WCHAR *name,
                                             DWORD capacity) noexcept;

#endif

#endif  // OSTREL_PLATFORM_PROCESS_H
