#ifndef OSTREL_REGISTRY_REG_KEY_H
#define OSTREL_REGISTRY_REG_KEY_H

// CRegKey owns one open key of the registry and reads and writes its values.
//
//   OS::CRegKey key;
//   if (key.Open(HKEY_LOCAL_MACHINE, TEXT("SOFTWARE\\Larkspur"), KEY_READ) == ERROR_SUCCESS) {
//       OS::x_wstring folder;
//       DWORD retries = 3;
//       key.QueryValue(TEXT("Folder"), folder);
//       key.QueryValue(retries, TEXT("Retries"));
//   }
//
// In SetValue the value comes first and its name second. In QueryValue the order differs between
// the overloads. A null value name is the key's default value. Null for a key name, a path or any
// other argument is passed on; where a comment allows no null, the argument must not be null.
//
// Ownership: the destructor closes the key. Copying, assigning, Attach and the conversion to HKEY
// copy the handle's value alone: two objects then hold one key, and all but one of them must give
// the key up by Detach.
// Threads: one thread at a time may use an object. Const members may run in parallel.
// Errors: each call returns the code of the call of the platform that failed
// (ostrel/platform/registry.h), 0 (ERROR_SUCCESS) for success, and writes no trace lines. Reading a
// string and writing a set throw std::bad_alloc when memory is short, and a set of more than 4 GiB
// std::length_error. Nothing else throws.

#include <set>

#include "ostrel/core/api.h"
#include "ostrel/core/x_string.h"
#include "ostrel/platform/registry.h"

namespace OS {

class OSTREL_API CRegKey {
public:
    CRegKey() noexcept = default;  // holds no key
    CRegKey(const CRegKey &other) noexcept = default;
    ~CRegKey();

    // Copies the handle. A key that this object holds is not closed.
    CRegKey &operator=(const CRegKey &other) noexcept;

    operator HKEY() const noexcept { return m_hKey; }
    bool IsOpen() const noexcept { return m_hKey != nullptr; }

    // Returns the handle and gives the key up. Returns null when the object holds no key.
    HKEY Detach() noexcept;
    // Holds `key`. A key that this object holds is not closed.
    void Attach(HKEY key) noexcept { m_hKey = key; }

    // Closes the key. The object holds no key afterwards, whatever the call returns. Returns 0 when
    // it held none.
    LONG Close() noexcept;

    // Opens `keyName` below `parent`, and creates the key when it does not exist. The arguments are
    // those of RegCreateKeyExW. `disposition` may be null; it is stored to on failure too, and has
    // a meaning only after success.
    //
    // On failure the object keeps the key that it holds. On success closes that key and returns the
    // code of closing it, 0 when there was none.
    LONG Create(HKEY parent, const WCHAR *keyName, WCHAR *className, DWORD options, DWORD access,
                SECURITY_ATTRIBUTES *security, DWORD *disposition) noexcept;

    // Opens `keyName` below `parent` with the rights `access`: in the 64-bit view first, and when
    // that fails once more with `access` as it is, whose code the call returns on failure. The key
    // that the object holds is treated as in Create.
    LONG Open(HKEY parent, const WCHAR *keyName, DWORD access) noexcept;

    // Delete a key without subkeys, or a value, of this key.
    LONG DeleteSubKey(const WCHAR *name) noexcept;
    LONG DeleteValue(const WCHAR *name) noexcept;

    // Deletes the key `keyName` of this key with all that is below it, from the leaves up; an empty
    // name deletes this key itself. A failure leaves what is not deleted yet. The call is
    // recursive: each level, of which a registry has up to 512, takes about 700 bytes of the stack
    // and one handle. A subkey that another thread or process creates meanwhile is deleted too, or
    // makes the call fail with ERROR_ACCESS_DENIED, as does a subkey whose name has 256 units.
    LONG RecurseDeleteKey(const WCHAR *keyName) noexcept;

    // Writes the key with all that is below it to `file`, as RegSaveKeyW does. Deletes an existing
    // file before; when that fails, the code is that of RegSaveKeyW, ERROR_ALREADY_EXISTS.
    LONG SaveKey(const WCHAR *file, SECURITY_ATTRIBUTES *security) noexcept;
    // Replaces what is below the key by the content of `file`, as RegRestoreKeyW does.
    LONG RestoreKey(const WCHAR *file, DWORD flags) noexcept;

    // Read the value `name`. No overload compares the type of the value with what it expects. On
    // failure the caller's variable is as it was, unless the comment says otherwise.

    // Reads a number. A value of fewer than 4 bytes replaces the low bytes of `value` alone, and a
    // longer one fails with ERROR_MORE_DATA.
    LONG QueryValue(DWORD &value, const WCHAR *name) const noexcept;
    // Stores 1 for a number that is not 0, and otherwise 0, on failure too.
    LONG QueryValue(int &value, const WCHAR *name) const noexcept;
    // Reads up to `size` bytes to `data`. The number of bytes read is not given. A null `data`
    // reads nothing and tells by 0 that the value exists.
    LONG QueryValue(const WCHAR *name, void *data, int size) const noexcept;
    // Reads the bytes of the value to `text`, without adding a NUL. `count` holds the bytes (not
    // characters) of `text` and receives those of the value. A null `text` asks for the size.
    LONG QueryValue(WCHAR *text, const WCHAR *name, DWORD *count) const noexcept;
    // Read a string, which ends at the first NUL of the value, or at the end of a value without
    // NUL. A value of 0 bytes is an empty string; a last odd byte of a wide string is left out. The
    // bytes of another type count as text. In the first overload name and text are in the system
    // code page. A value that becomes longer during the call can fail with ERROR_MORE_DATA.
    LONG QueryValue(const char *name, x_astring &text) const;
    LONG QueryValue(const WCHAR *name, x_wstring &text) const;

    // Reads a number of `key`. Stores to `value` on success only.
    static LONG QueryDWORDValue(CRegKey &key, const WCHAR *name, DWORD *value) noexcept;
    // Opens `keyName` below `parent` with KEY_READ and reads a number of it. Returns the code of
    // opening or of reading.
    static LONG QueryDWORDValue(HKEY parent, const WCHAR *keyName, const WCHAR *name,
                                DWORD *value) noexcept;

    // Write the value `name`, and replace its type. A null text counts as empty. A text that is
    // longer than the platform takes (512 MiB) fails with ERROR_NO_SYSTEM_RESOURCES.

    LONG SetValue(DWORD value, const WCHAR *name) noexcept;  // REG_DWORD
    // REG_SZ, with its NUL. Value and name are in the system code page.
    LONG SetValue(const char *value, const char *name) noexcept;
    LONG SetValue(const WCHAR *value, const WCHAR *name) noexcept;  // REG_SZ, with its NUL
    LONG SetValue(FILETIME value, const WCHAR *name) noexcept;      // REG_QWORD
    // REG_MULTI_SZ: the strings in the order of the set (from Z to A), each with a NUL, and one NUL
    // at the end. Empty strings are left out. Each string has its full length: a NUL inside makes
    // two strings of it.
    LONG SetValue(const std::set<x_wstring, XWSTRICMP> &values, const WCHAR *name);

    // Writes a REG_SZ of the key `keyName` below `parent`, which is created when it does not exist.
    // Returns the code of creating or of writing.
    static LONG SetValue(HKEY parent, const WCHAR *keyName, const WCHAR *value,
                         const WCHAR *name) noexcept;
    // The same below this key.
    LONG SetKeyValue(const WCHAR *keyName, const WCHAR *value, const WCHAR *name) noexcept;

    // Copies the value `name` of `source` to the value `newName` of this key, or to `name` when
    // `newName` is null. The copy is a REG_SZ, whatever the type of the value. The value has up to
    // 256 bytes, its NUL included; a longer one fails with ERROR_MORE_DATA. The text ends at the
    // first NUL or at the end of the value. When reading fails, writes nothing.
    LONG CopyStringValue(CRegKey &source, const WCHAR *name, const WCHAR *newName) noexcept;
    // The same for a number. The copy is a REG_DWORD.
    LONG CopyDwordValue(CRegKey &source, const WCHAR *name, const WCHAR *newName) noexcept;

private:
    HKEY m_hKey = nullptr;
};

}  // namespace OS

#endif  // OSTREL_REGISTRY_REG_KEY_H
