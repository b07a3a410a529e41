#ifndef TESTS_SUPPORT_REGISTRY_H
#define TESTS_SUPPORT_REGISTRY_H

// Registries of tests: a folder of their own, and short forms of the calls.

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>

#include "ostrel/platform/error.h"
#include "ostrel/platform/registry.h"
#include "support/test.h"

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
            std::ifstream file(m_path + "/" + store + end, std::ios::binary);
            const std::string bytes{std::istreambuf_iterator<char>(file), {}};
            for (std::size_t at = 0; (at = bytes.find(" shm", at)) != bytes.npos; ++at) {
                const std::size_t begin = bytes.rfind(' ', at - 1) + 1;
                const std::string page =
                    "/dev/shm/ostrel-registry-" + bytes.substr(begin, at - begin);
                found = std::filesystem::exists(page) ? page : found;
            }
        }
        return found;
    }

    void RemovePages() const {
        for (const char *store : {"machine", "user"}) {
            for (std::string page; !(page = Page(store)).empty();) {
                std::filesystem::remove(page);
            }
        }
    }

private:
    std::string m_top, m_path;
};

// Forks a child that does not outlive this process.
inline pid_t fork_child() {
    const pid_t child = fork();
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
    }
    return child;
}

// Runs `body` in a child process and returns whether neither the child nor this process has met a
// failure.
template <class Body>
bool holds_in_child(Body body) {
    const pid_t child = fork_child();
    if (child == 0) {
        alarm(120);
        body();
        std::fflush(nullptr);
        _exit(testing::Test::HasFailure() ? 1 : 0);
    }
    int status = 1;
    waitpid(child, &status, 0);
    return status == 0;
}

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

inline LSTATUS set_bytes(HKEY key, const WCHAR *name, DWORD type, const std::string &bytes) {
    return RegSetValueExW(key, name, 0, type, reinterpret_cast<const BYTE *>(bytes.data()),
                          static_cast<DWORD>(bytes.size()));
}

// The names of all subkeys, or values, each with a blank behind it.
inline std::u16string subkeys(HKEY key) {
    std::u16string names;
    for (DWORD index = 0;; ++index) {
        WCHAR name[257];
        DWORD count = 257;
        if (RegEnumKeyExW(key, index, name, &count, nullptr, nullptr, nullptr, nullptr) != 0) {
            return names;
        }
        names += std::u16string(name, count) + u' ';
    }
}
inline std::u16string values(HKEY key) {
    std::u16string names;
    for (DWORD index = 0;; ++index) {
        WCHAR name[257];
        DWORD count = 257;
        if (RegEnumValueW(key, index, name, &count, nullptr, nullptr, nullptr, nullptr) != 0) {
            return names;
        }
        names += std::u16string(name, count) + u' ';
    }
}

#endif  // TESTS_SUPPORT_REGISTRY_H
