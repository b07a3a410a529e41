#ifndef TESTS_SOAK_REGISTRY_SOAK_H
#define TESTS_SOAK_REGISTRY_SOAK_H

// The proofs of the registry that registry_soak runs, and what they share. Each reports failures by
// GoogleTest's expectations, and prints one line with its figures.

#include <sys/mman.h>

#include <atomic>
#include <chrono>
#include <random>

#include "support/registry.h"

inline constexpr char16_t kSoakPath[] = u"SOFTWARE\\Soak";

void prove_kills(long kills);
void prove_power_losses(long losses);
void prove_order(long seconds);
void prove_pages(long seconds);
void prove_model(long operations);
void prove_turns(long operations);
void prove_crowd(long processes);

// Memory that this process and its children share, zeros at first.
template <class T>
T *shared_memory() {
    return static_cast<T *>(
        mmap(nullptr, sizeof(T), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
}

inline void expect_success(pid_t child) {
    EXPECT_TRUE(has_succeeded(child));
}

// Whether `ostrel-reg check` finds the stores of OSTREL_REGISTRY sound. Prints what it finds else.
inline void expect_sound() {
    EXPECT_EQ(std::system("said=$(" OSTREL_REG " check 2>&1) || { echo \"$said\"; false; }"), 0);
}

// The content that a value has by its number: from 8 to 30,000 bytes.
inline std::string payload(DWORD number) {
    std::mt19937 random(number);
    std::string bytes(random() % 4 == 0 ? 8 + random() % 29'992 : 8 + random() % 400, '\0');
    bytes.replace(0, sizeof number, reinterpret_cast<const char *>(&number), sizeof number);
    for (std::size_t i = sizeof number; i < bytes.size(); i += 7) {
        bytes[i] = static_cast<char>(random());
    }
    return bytes;
}

// The number of the payload that a value holds, 0 without a value. Fails for any other bytes.
inline DWORD payload_number(HKEY key, const WCHAR *name) {
    std::string bytes(30'000, '\0');
    auto size = static_cast<DWORD>(bytes.size());
    const LSTATUS code = RegQueryValueExW(key, name, nullptr, nullptr,
                                          reinterpret_cast<BYTE *>(bytes.data()), &size);
    if (code == ERROR_FILE_NOT_FOUND) {
        return 0;
    }
    EXPECT_EQ(code, 0);
    bytes.resize(size);
    DWORD number = 0;
    std::copy_n(bytes.data(), std::min(bytes.size(), sizeof number),
                reinterpret_cast<char *>(&number));
    EXPECT_TRUE(bytes == payload(number)) << number;
    return number;
}

class Stopwatch {
public:
    double Seconds() const {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - m_begin).count();
    }

private:
    const std::chrono::steady_clock::time_point m_begin = std::chrono::steady_clock::now();
};

#endif  // TESTS_SOAK_REGISTRY_SOAK_H
