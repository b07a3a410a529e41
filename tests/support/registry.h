#ifndef TESTS_SUPPORT_REGISTRY_H
#define TESTS_SUPPORT_REGISTRY_H

// Registries of tests: a folder of their own, and short forms of the calls.

#include <optional>

#include "ostrel/platform/error.h"
#include "ostrel/platform/registry.h"
#include "support/child.h"
#include "support/file_tree.h"

// A folder that OSTREL_REGISTRY names, removed with the pages of its stores at the end. A process
// has one, from before its first call on: the layer asks for the folder once.
class RegistryFolder {
public:
    // `below` is a path of folders, each behind a '/', that the layer has to create.
    explicit RegistryFolder(const std::string &below = {}) {
        std::string name = std::filesystem::temp_directory_path() / "ostrel-registry-XXXXXX";
        m_top = mkdtemp(name.data());
        m_path = m_top + below;
        setenv("OSTREL_REGISTRY", m_path.c_str(), 1);
    }
    ~RegistryFolder() {
        RemovePages();
        std::filesystem::remove_all(m_top);
    }
    RegistryFolder &operator=(RegistryFolder &&) = delete;  // nor copied

    // The folder of all tests in a program that needs one alone.
    static const RegistryFolder &OfProcess() {
        static const RegistryFolder folder;
        return folder;
    }

    std::string Path(const std::string &name = {}) const { return m_path + "/" + name; }

    // The path of the page that the machine's, or the user's, database names last; "" for none.
    std::string Page(const std::string &store) const {
        std::string found;
        for (const char *end : {".db", ".db-wal"}) {
            for (const std::string &page : PagesIn(Path(store + end))) {
                found = std::filesystem::exists(page) ? page : found;
            }
        }
        return found;
    }

    void RemovePages() const {
        std::error_code missing;
        for (const auto &file : std::filesystem::recursive_directory_iterator(m_top, missing)) {
            for (const std::string &page : PagesIn(file.path())) {
                std::filesystem::remove(page);
            }
        }
    }

private:
    // The paths of the pages that a file names. Reads in blocks: databases may be large.
    static std::vector<std::string> PagesIn(const std::string &path) {
        const std::string bytes = content_of(path);
        std::vector<std::string> pages;
        for (std::size_t end = 0; (end = bytes.find(" shm", end)) != bytes.npos; ++end) {
            const std::size_t begin = bytes.rfind(' ', end - 1) + 1;
            pages.push_back("/dev/shm/ostrel-registry-" + bytes.substr(begin, end - begin));
        }
        return pages;
    }

    std::string m_top, m_path;
};

// A handle that closes itself.
class TestKey {
public:
    explicit TestKey(HKEY key = nullptr) : m_key(key) {}
    TestKey(TestKey &&other) noexcept : m_key(std::exchange(other.m_key, nullptr)) {}
    ~TestKey() { RegCloseKey(m_key); }
    TestKey &operator=(TestKey &&) = delete;  // nor copied
    operator HKEY() const { return m_key; }

private:
    HKEY m_key;
};

inline TestKey created(HKEY parent, const std::u16string &path, DWORD access = KEY_ALL_ACCESS,
                       DWORD options = 0) {
    HKEY key = nullptr;
    EXPECT_EQ(
        RegCreateKeyExW(parent, path.c_str(), 0, nullptr, options, access, nullptr, &key, nullptr),
        0);
    return TestKey(key);
}

// A key of the current user that has no subkeys and no values, in the registry of the process.
inline TestKey emptied(const std::u16string &path) {
    RegistryFolder::OfProcess();
    RegDeleteTreeW(HKEY_CURRENT_USER, path.c_str());
    return created(HKEY_CURRENT_USER, path);
}

inline LSTATUS open_code(HKEY parent, const std::u16string &path, DWORD access = KEY_READ) {
    HKEY key = nullptr;
    const LSTATUS code = RegOpenKeyExW(parent, path.c_str(), 0, access, &key);
    RegCloseKey(key);
    return code;
}

inline LSTATUS set_number(HKEY key, const WCHAR *name, DWORD number) {
    return RegSetValueExW(key, name, 0, REG_DWORD, reinterpret_cast<const BYTE *>(&number),
                          sizeof number);
}

// The number, or nothing when there is no such value.
inline std::optional<DWORD> number(HKEY key, const WCHAR *name) {
    DWORD value = 0;
    DWORD size = sizeof value;
    const LSTATUS code =
        RegQueryValueExW(key, name, nullptr, nullptr, reinterpret_cast<BYTE *>(&value), &size);
    EXPECT_TRUE(code == 0 || code == 2) << code;
    return code == 0 ? std::optional(value) : std::nullopt;
}

// The bytes of a value, read into `capacity` bytes.
inline std::string bytes_of(HKEY key, const WCHAR *name, DWORD *type = nullptr,
                            DWORD capacity = 1 << 20) {
    std::string bytes(capacity, '?');
    auto *const data = reinterpret_cast<BYTE *>(bytes.data());
    EXPECT_EQ(RegQueryValueExW(key, name, nullptr, type, data, &capacity), 0);
    return bytes.substr(0, capacity);
}

inline LSTATUS set_bytes(HKEY key, const WCHAR *name, DWORD type, const std::string &bytes) {
    return RegSetValueExW(key, name, 0, type, reinterpret_cast<const BYTE *>(bytes.data()),
                          static_cast<DWORD>(bytes.size()));
}

// The names that RegEnumKeyExW, or RegEnumValueW, gives, each with a blank behind it.
template <class Enumerate>
std::u16string names_of(HKEY key, Enumerate enumerate) {
    std::u16string names;
    WCHAR name[300];
    DWORD count = 300;
    for (DWORD i = 0; enumerate(key, i, name, &count, nullptr, nullptr, nullptr, nullptr) == 0;
         ++i) {
        names += std::u16string(name, std::exchange(count, 300)) + u' ';
    }
    return names;
}
inline std::u16string subkeys(HKEY key) {
    return names_of(key, RegEnumKeyExW);
}
inline std::u16string values(HKEY key) {
    return names_of(key, RegEnumValueW);
}

#endif  // TESTS_SUPPORT_REGISTRY_H
