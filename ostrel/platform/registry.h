#ifndef OSTREL_PLATFORM_REGISTRY_H
#define OSTREL_PLATFORM_REGISTRY_H

// The registry: a tree of keys, each with named values, which all processes of the host share.
//
//   HKEY key = nullptr;
//   if (RegCreateKeyExW(HKEY_CURRENT_USER, TEXT("Software\\Larkspur"), 0, nullptr, 0,
//                       KEY_ALL_ACCESS, nullptr, &key, nullptr) == ERROR_SUCCESS) {
//       const DWORD count = 3;
//       RegSetValueExW(key, TEXT("Count"), 0, REG_DWORD, reinterpret_cast<const BYTE *>(&count),
//                      sizeof count);
//       RegCloseKey(key);
//   }
//
// Implemented with SQLite (one database for the machine, one for each user), a page of memory that
// the processes share, and futexes. The files are in /var/lib/ostrel/registry and in the user's
// ~/.local/state/ostrel/registry, or both in the folder that OSTREL_REGISTRY names.
//
// Errors. Every call returns a code of error.h, ERROR_SUCCESS (0) for success, and leaves the last
// error alone, unless its comment says otherwise. A call that reaches the store can also return:
//   ERROR_INVALID_HANDLE     `key` is no open key and no root that exists here
//   ERROR_KEY_DELETED        the key behind the handle has been deleted, or its store was removed
//   ERROR_ACCESS_DENIED      the handle lacks the right that the call needs, or this user may not
//                            read, or not write, the store's file
//   ERROR_BADDB              the file is damaged, is no registry, or has a newer format; the call
//                            leaves the file as it is
//   ERROR_DISK_FULL          the disk, or the user's quota of it, is full, or RLIMIT_FSIZE forbids
//                            the size of a file (no SIGXFSZ); nothing has changed
//   ERROR_WRITE_PROTECT      the file system is mounted read-only; reading works
//   ERROR_BUSY               other writers have held the store for more than 10 seconds
//   ERROR_NOT_ENOUGH_MEMORY  memory is short
// or the code that error_codes.inc gives for the host's errno.
//
// Names. Key and value names ignore case, by the simple upper case mapping of each unit, and keep
// the case of their first writer. '\' separates keys. '/' is an ordinary character. The unnamed
// value of a key has the name "" or null.
//
// Threads: every call may run on any thread, and threads may share a handle. No call returns
// something older than a write that had returned before, in this process or in another.
//
// Forks: the child of a fork may use every call, and the handles that it inherits. Notifications
// that are armed stay armed in both processes; in the child they tell from the child's first
// RegNotifyChangeKeyValue on. A fork waits for the calls that other threads are in. No descriptor
// of the layer passes exec.

#include "ostrel/platform/types.h"

#ifndef _WIN32

struct HKEY__;
using HKEY = HKEY__ *;
using LSTATUS = LONG;
using REGSAM = DWORD;

// The roots. HKEY_CLASSES_ROOT is SOFTWARE\Classes of the machine. HKEY_USERS has one subkey, the
// user's own tree, under the user's number (decimal). HKEY_CURRENT_CONFIG is
// SYSTEM\CurrentControlSet\Hardware Profiles\Current of the machine. The values are sign-extended
// to 64 bits; the calls also take the 32-bit forms.
inline HKEY make_registry_root(std::int32_t value) noexcept {
    return reinterpret_cast<HKEY>(static_cast<std::intptr_t>(value));
}
inline const HKEY HKEY_CLASSES_ROOT = make_registry_root(INT32_MIN);
inline const HKEY HKEY_CURRENT_USER = make_registry_root(INT32_MIN + 1);
inline const HKEY HKEY_LOCAL_MACHINE = make_registry_root(INT32_MIN + 2);
inline const HKEY HKEY_USERS = make_registry_root(INT32_MIN + 3);
inline const HKEY HKEY_CURRENT_CONFIG = make_registry_root(INT32_MIN + 5);

// Types of values. Any other number is stored too. The calls never compare bytes with their type.
inline constexpr DWORD REG_NONE = 0;
inline constexpr DWORD REG_SZ = 1;
inline constexpr DWORD REG_EXPAND_SZ = 2;
inline constexpr DWORD REG_BINARY = 3;
inline constexpr DWORD REG_DWORD = 4;
inline constexpr DWORD REG_DWORD_LITTLE_ENDIAN = 4;
inline constexpr DWORD REG_DWORD_BIG_ENDIAN = 5;
inline constexpr DWORD REG_LINK = 6;
inline constexpr DWORD REG_MULTI_SZ = 7;
inline constexpr DWORD REG_RESOURCE_LIST = 8;
inline constexpr DWORD REG_FULL_RESOURCE_DESCRIPTOR = 9;
inline constexpr DWORD REG_RESOURCE_REQUIREMENTS_LIST = 10;
inline constexpr DWORD REG_QWORD = 11;
inline constexpr DWORD REG_QWORD_LITTLE_ENDIAN = 11;

// Rights of a handle.
inline constexpr REGSAM KEY_QUERY_VALUE = 0x0001;
inline constexpr REGSAM KEY_SET_VALUE = 0x0002;
inline constexpr REGSAM KEY_CREATE_SUB_KEY = 0x0004;
inline constexpr REGSAM KEY_ENUMERATE_SUB_KEYS = 0x0008;
inline constexpr REGSAM KEY_NOTIFY = 0x0010;
inline constexpr REGSAM KEY_CREATE_LINK = 0x0020;
inline constexpr REGSAM KEY_WOW64_64KEY = 0x0100;
inline constexpr REGSAM KEY_WOW64_32KEY = 0x0200;
inline constexpr REGSAM KEY_READ = 0x20019;
inline constexpr REGSAM KEY_EXECUTE = 0x20019;
inline constexpr REGSAM KEY_WRITE = 0x20006;
inline constexpr REGSAM KEY_ALL_ACCESS = 0xF003F;

// Options of a key.
inline constexpr DWORD REG_OPTION_NON_VOLATILE = 0;
inline constexpr DWORD REG_OPTION_VOLATILE = 1;
inline constexpr DWORD REG_OPTION_CREATE_LINK = 2;
inline constexpr DWORD REG_OPTION_BACKUP_RESTORE = 4;
inline constexpr DWORD REG_OPTION_OPEN_LINK = 8;

// What RegCreateKeyExW did.
inline constexpr DWORD REG_CREATED_NEW_KEY = 1;
inline constexpr DWORD REG_OPENED_EXISTING_KEY = 2;

// Flags of RegRestoreKeyW.
inline constexpr DWORD REG_WHOLE_HIVE_VOLATILE = 1;
inline constexpr DWORD REG_FORCE_RESTORE = 8;

// Filters of RegNotifyChangeKeyValue.
inline constexpr DWORD REG_NOTIFY_CHANGE_NAME = 1;
inline constexpr DWORD REG_NOTIFY_CHANGE_ATTRIBUTES = 2;
inline constexpr DWORD REG_NOTIFY_CHANGE_LAST_SET = 4;
inline constexpr DWORD REG_NOTIFY_CHANGE_SECURITY = 8;
inline constexpr DWORD REG_NOTIFY_THREAD_AGNOSTIC = 0x10000000;

// Flags of RegGetValueW: the types that the caller takes, and what to do with the value.
inline constexpr DWORD RRF_RT_REG_NONE = 0x0001;
inline constexpr DWORD RRF_RT_REG_SZ = 0x0002;
inline constexpr DWORD RRF_RT_REG_EXPAND_SZ = 0x0004;
inline constexpr DWORD RRF_RT_REG_BINARY = 0x0008;
inline constexpr DWORD RRF_RT_REG_DWORD = 0x0010;
inline constexpr DWORD RRF_RT_REG_MULTI_SZ = 0x0020;
inline constexpr DWORD RRF_RT_REG_QWORD = 0x0040;
inline constexpr DWORD RRF_RT_DWORD = RRF_RT_REG_BINARY | RRF_RT_REG_DWORD;
inline constexpr DWORD RRF_RT_QWORD = RRF_RT_REG_BINARY | RRF_RT_REG_QWORD;
inline constexpr DWORD RRF_RT_ANY = 0xFFFF;
inline constexpr DWORD RRF_SUBKEY_WOW6464KEY = 0x00010000;
inline constexpr DWORD RRF_SUBKEY_WOW6432KEY = 0x00020000;
inline constexpr DWORD RRF_NOEXPAND = 0x10000000;
inline constexpr DWORD RRF_ZEROONFAILURE = 0x20000000;

// Opens a key that exists.
//
// `subkey` is a path of any length below `key`; one '\' at its end is ignored. An empty path opens
// `key` once more, and so does null, which only a root may have. `options` is 0,
// REG_OPTION_BACKUP_RESTORE or REG_OPTION_OPEN_LINK and has no effect. `access` is the rights of
// the new handle; KEY_WOW64_64KEY and KEY_WOW64_32KEY have no effect, since there is one view.
// MAXIMUM_ALLOWED and the GENERIC rights of file.h are taken too.
//
// Returns ERROR_SUCCESS and stores a handle in `result`, which the caller closes by RegCloseKey. On
// failure stores null and returns:
//   ERROR_FILE_NOT_FOUND     a key of the path does not exist
//   ERROR_BAD_PATHNAME       the path begins with '\', or holds an empty name
//   ERROR_ACCESS_DENIED      `access` holds rights to write and this user may not write the store
//   ERROR_INVALID_PARAMETER  `result` is null, `subkey` is null with a key that is no root,
//                            `options` has other bits, `access` has both flags for a view
OSTREL_PLATFORM_API LSTATUS RegOpenKeyExW(HKEY key, const WCHAR *subkey, DWORD options,
                                          REGSAM access, HKEY *result) noexcept;

// Opens a key, and creates it and all missing keys on the way in one commit.
//
// `reserved` is 0. `class_name` may be null; the class of a key stays that of its creation.
// `options` is 0 or REG_OPTION_VOLATILE, with or without REG_OPTION_BACKUP_RESTORE. A volatile key
// and its values live until the host starts again. The option has no effect on keys that exist.
// `security` is ignored: the rights of the store's file apply. `disposition` may be null. What the
// key behind `key` allows decides whether a key can be created, not the rights of the handle.
//
// Returns what RegOpenKeyExW returns, and stores REG_CREATED_NEW_KEY or REG_OPENED_EXISTING_KEY in
// `disposition` on success; further codes:
//   ERROR_INVALID_PARAMETER        a name of more than 256 units, more than 32 levels to create, a
//                                  key more than 512 levels below HKEY_LOCAL_MACHINE or HKEY_USERS,
//                                  or directly below one of these, `subkey` is null, `reserved` or
//                                  `options` is wrong
//   ERROR_CHILD_MUST_BE_VOLATILE   a stable key below a volatile one
OSTREL_PLATFORM_API LSTATUS RegCreateKeyExW(HKEY key, const WCHAR *subkey, DWORD reserved,
                                            WCHAR *class_name, DWORD options, REGSAM access,
                                            SECURITY_ATTRIBUTES *security, HKEY *result,
                                            DWORD *disposition) noexcept;

// Closes a handle. Whoever waits for its notification is woken. Writes nothing to the disk. A root
// stays open, with ERROR_SUCCESS. A closed or foreign handle gives ERROR_INVALID_HANDLE.
OSTREL_PLATFORM_API LSTATUS RegCloseKey(HKEY key) noexcept;

// Read a value. Need KEY_QUERY_VALUE.
//
// `reserved` is null. `type` may be null. `size` holds the bytes of `data` and receives the bytes
// of the value. A null `data` asks for the size. The bytes come back as they were stored: a string
// has a NUL at its end only if its writer stored the NUL. RegQueryValueExA takes the name in the
// system code page and converts REG_SZ, REG_EXPAND_SZ and REG_MULTI_SZ to it, inner NULs included;
// the size is that of the converted text.
//
// Return ERROR_SUCCESS. On failure return:
//   ERROR_FILE_NOT_FOUND     there is no such value; `size` is unchanged
//   ERROR_MORE_DATA          `data` is too small and unchanged; `type` and `size` are stored
//   ERROR_INVALID_PARAMETER  `data` without `size`, or `reserved` is not null
OSTREL_PLATFORM_API LSTATUS RegQueryValueExW(HKEY key, const WCHAR *name, DWORD *reserved,
                                             DWORD *type, BYTE *data, DWORD *size) noexcept;
OSTREL_PLATFORM_API LSTATUS RegQueryValueExA(HKEY key, const char *name, DWORD *reserved,
                                             DWORD *type, BYTE *data, DWORD *size) noexcept;

// Create or replace a value. Need KEY_SET_VALUE.
//
// `reserved` is 0. `data` has `size` bytes; null is allowed with a size of 0. RegSetValueExA takes
// the name in the system code page and converts REG_SZ, REG_EXPAND_SZ and REG_MULTI_SZ from it.
//
// Return ERROR_SUCCESS once every later read, in any process, gives the new value. A crash of the
// process loses nothing of it. A power loss may take what was written since the last checkpoint,
// which a write makes when the last one is 3 seconds old; after the last write, what the host has
// not yet written to the disk by itself (by default within 30 seconds). RegFlushKey bounds both.
// On failure return:
//   ERROR_INVALID_PARAMETER    a name of more than 16,383 units, `data` is null with a size above
//                              0, or `reserved` is not 0
//   ERROR_NO_SYSTEM_RESOURCES  the value has more than 512 MiB
OSTREL_PLATFORM_API LSTATUS RegSetValueExW(HKEY key, const WCHAR *name, DWORD reserved, DWORD type,
                                           const BYTE *data, DWORD size) noexcept;
OSTREL_PLATFORM_API LSTATUS RegSetValueExA(HKEY key, const char *name, DWORD reserved, DWORD type,
                                           const BYTE *data, DWORD size) noexcept;

// Delete a key without subkeys, and its values. `subkey` is a path below `key`; an empty path
// deletes `key` itself. The name is free at once; a handle that is still open gives
// ERROR_KEY_DELETED, also after a new key has the name. RegDeleteKeyExW ignores `access`, apart
// from the check for both flags of a view. The rights of the handle do not matter.
//
// Return ERROR_SUCCESS. On failure return:
//   ERROR_FILE_NOT_FOUND     there is no such key
//   ERROR_ACCESS_DENIED      the key has subkeys, or may not be deleted because the layer keeps it
//   ERROR_BAD_PATHNAME       the path begins with '\', or holds an empty name
//   ERROR_INVALID_PARAMETER  `subkey` is null, or `reserved` is not 0
OSTREL_PLATFORM_API LSTATUS RegDeleteKeyW(HKEY key, const WCHAR *subkey) noexcept;
OSTREL_PLATFORM_API LSTATUS RegDeleteKeyExW(HKEY key, const WCHAR *subkey, REGSAM access,
                                            DWORD reserved) noexcept;

// Deletes a value. Needs KEY_SET_VALUE. Returns ERROR_SUCCESS, or ERROR_FILE_NOT_FOUND when there
// is no such value.
OSTREL_PLATFORM_API LSTATUS RegDeleteValueW(HKEY key, const WCHAR *name) noexcept;

// Deletes a key with all keys below it, in one commit. With a null or empty `subkey` empties `key`
// itself and keeps it. Needs DELETE (0x10000), KEY_ENUMERATE_SUB_KEYS and KEY_QUERY_VALUE, and
// KEY_SET_VALUE where `key` itself loses values. Returns ERROR_SUCCESS, or what RegDeleteKeyW
// returns.
OSTREL_PLATFORM_API LSTATUS RegDeleteTreeW(HKEY key, const WCHAR *subkey) noexcept;

// Gives the name of a subkey. Needs KEY_ENUMERATE_SUB_KEYS.
//
// Subkeys are in the order of their names in upper case, by unit. `index` begins with 0; creations
// and deletions shift what is behind them. `name_count` holds the units of `name` with room for a
// NUL, and receives the units without it. `reserved` is null. `class_name`, with `class_count` used
// in the same way, and `written`, the time of the last change, may be null.
//
// Returns ERROR_SUCCESS. On failure returns:
//   ERROR_NO_MORE_ITEMS      there is no subkey with this index
//   ERROR_MORE_DATA          a buffer is too small; nothing is stored and the counts are unchanged
//   ERROR_INVALID_PARAMETER  `name` or `name_count` is null, `class_name` without `class_count`, or
//                            `reserved` is not null
OSTREL_PLATFORM_API LSTATUS RegEnumKeyExW(HKEY key, DWORD index, WCHAR *name, DWORD *name_count,
                                          DWORD *reserved, WCHAR *class_name, DWORD *class_count,
                                          FILETIME *written) noexcept;

// Gives a value. Needs KEY_QUERY_VALUE. Values are in the order of their creation. `type`, `data`
// and `size` are those of RegQueryValueExW; the rest is as in RegEnumKeyExW. ERROR_MORE_DATA for
// `data` stores the size that is needed.
OSTREL_PLATFORM_API LSTATUS RegEnumValueW(HKEY key, DWORD index, WCHAR *name, DWORD *name_count,
                                          DWORD *reserved, DWORD *type, BYTE *data,
                                          DWORD *size) noexcept;

// Gives facts of a key. Needs KEY_QUERY_VALUE. Every pointer may be null. Lengths of names and
// classes are in units without NUL, the longest data in bytes. `security_size` receives 0. The
// call looks at each subkey, unless the three pointers for subkeys are null, and at each value,
// unless the three for values are null.
//
// Returns ERROR_SUCCESS. On failure returns:
//   ERROR_MORE_DATA          `class_name` is too small; `class_count` receives the units, and all
//                            other facts are stored
//   ERROR_INVALID_PARAMETER  `class_name` without `class_count`, or `reserved` is not null
OSTREL_PLATFORM_API LSTATUS RegQueryInfoKeyW(HKEY key, WCHAR *class_name, DWORD *class_count,
                                             DWORD *reserved, DWORD *subkeys, DWORD *longest_subkey,
                                             DWORD *longest_class, DWORD *values,
                                             DWORD *longest_value_name, DWORD *longest_value,
                                             DWORD *security_size, FILETIME *written) noexcept;

// Writes everything that has been committed to the store of `key` to the disk. Returns
// ERROR_SUCCESS when it is there.
OSTREL_PLATFORM_API LSTATUS RegFlushKey(HKEY key) noexcept;

// Reads a value of a subkey, with a check of its type. `subkey` may be null or empty.
//
// `flags` holds the types that the caller takes (RRF_RT_...). A string comes back with its NULs,
// also when they were not stored. REG_EXPAND_SZ comes back as REG_SZ with its %NAME% replaced by
// variables of the environment, unless RRF_NOEXPAND is given. RRF_ZEROONFAILURE zeroes `data` on
// failure. Rights, `type`, `data` and `size` are as in RegQueryValueExW.
//
// Returns what RegOpenKeyExW and RegQueryValueExW return; further codes:
//   ERROR_UNSUPPORTED_TYPE   the value has another type
//   ERROR_MORE_DATA          `data` is too small; `size` receives a size that is sufficient
//   ERROR_INVALID_PARAMETER  `flags` holds no type, both flags for a view, or RRF_RT_REG_EXPAND_SZ
//                            as its only type without RRF_NOEXPAND
OSTREL_PLATFORM_API LSTATUS RegGetValueW(HKEY key, const WCHAR *subkey, const WCHAR *name,
                                         DWORD flags, DWORD *type, void *data,
                                         DWORD *size) noexcept;

// Tells of the next change of a key. Needs KEY_NOTIFY.
//
// `filter` is a combination of REG_NOTIFY_CHANGE_NAME (a subkey created or deleted),
// REG_NOTIFY_CHANGE_LAST_SET (a value set or deleted) and, without effect of their own,
// REG_NOTIFY_CHANGE_ATTRIBUTES and REG_NOTIFY_CHANGE_SECURITY. With `subtree` the keys below count
// too. Filter and `subtree` of the first call on a handle stay; those of later calls are ignored. A
// root is one handle of the process that is never closed.
// With `asynchronous`, `event` is an event of sync.h that the change sets, and the call returns at
// once. Without, `event` is ignored and the call returns with the change.
//
// Each call tells of one change. A change after the one that was told, and before the next call,
// makes that call tell at once. Changes by any process count. The call also tells when the key is
// deleted, when the handle is closed, and, unless the filter has REG_NOTIFY_THREAD_AGNOSTIC, when
// the thread that called ends. A call may tell of a change that did not concern the key; it never
// leaves one out. Up to 64 events wait on one handle.
//
// Returns ERROR_SUCCESS. On failure returns ERROR_INVALID_PARAMETER for a filter that is 0 or has
// other bits, for `asynchronous` without an event, or for a 65th event.
OSTREL_PLATFORM_API LSTATUS RegNotifyChangeKeyValue(HKEY key, BOOL subtree, DWORD filter,
                                                    HANDLE event, BOOL asynchronous) noexcept;

// Writes a key with all that is below it to a new file, in the text form that begins with "Windows
// Registry Editor Version 5.00". `file` is a path as in file.h; `security` is ignored.
//
// Volatile keys and the classes of keys are left out. The file calls the key
// HKEY_CURRENT_USER\Software\Saved. The file has the mode 0600, and has its name only when it is
// complete and on the disk.
//
// Returns ERROR_SUCCESS. On failure returns:
//   ERROR_ALREADY_EXISTS  there is something at that path
//   ERROR_ACCESS_DENIED   `key` is a root, or the folder may not be written
//   ERROR_PATH_NOT_FOUND  the folder does not exist, or `file` is null or empty
//   ERROR_BADKEY          the name of a key contains LF, which the text form cannot hold
// or another code of file.h.
OSTREL_PLATFORM_API LSTATUS RegSaveKeyW(HKEY key, const WCHAR *file,
                                        SECURITY_ATTRIBUTES *security) noexcept;

// Replaces the values of a key and all that is below it by what a file of RegSaveKeyW holds, in one
// commit. The first key of the file stands for `key`, whatever its name. `flags` is 0 or
// REG_FORCE_RESTORE, which goes on although keys below are open; these are deleted and made anew.
// The restoration is a change of which RegNotifyChangeKeyValue tells.
//
// Returns ERROR_SUCCESS. On failure changes nothing and returns:
//   ERROR_FILE_NOT_FOUND     there is no such file
//   ERROR_NOT_REGISTRY_FILE  the file is no such text, has a fault, deletes something, or has a key
//                            that is not below its first one
//   ERROR_ACCESS_DENIED      `key` is a root, or this process has keys below it open
//   ERROR_INVALID_PARAMETER  `flags` has other bits
// or another code of file.h.
OSTREL_PLATFORM_API LSTATUS RegRestoreKeyW(HKEY key, const WCHAR *file, DWORD flags) noexcept;

#endif

#endif  // OSTREL_PLATFORM_REGISTRY_H
