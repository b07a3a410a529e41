#ifndef OSTREL_PLATFORM_BASE_ENVIRONMENT_H
#define OSTREL_PLATFORM_BASE_ENVIRONMENT_H

// Internal. A variable of the process environment that is asked for all the time.
//
// The host's setenv is not safe beside other threads that read the environment. _putenv_s is: it
// changes pointers one at a time and never releases what another thread may be looking at.

#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace ostrel_platform {

inline char **load_environment() noexcept {
    return std::atomic_ref(environ).load(std::memory_order_acquire);
}
inline char *load_entry(char **slot) noexcept {
    return std::atomic_ref(*slot).load(std::memory_order_acquire);
}

// Remembers where the variable was found, so that a few loads tell whether it may have changed.
// For one thread.
class WatchedVariable {
public:
    // Whether the environment is as Read found it, as far as it matters. A text that is changed in
    // place, behind a pointer that putenv was given, is not noticed.
    bool IsUnchanged() const noexcept {
        return s_changes.load(std::memory_order_acquire) == m_changes &&
               load_environment() == m_environment && load_entry(m_slot) == m_entry &&
               load_entry(m_slotBefore) == m_entryBefore;
    }

    // The value, or nothing when there is no such variable. `name` ends with '='. Throws when
    // memory is missing.
    std::optional<std::string> Read(std::string_view name);

private:
    friend void set_variable(const std::string &name, std::string_view value);

    // Tells every watcher that a variable was set or removed.
    static void NoteChange() noexcept { s_changes.fetch_add(1, std::memory_order_release); }

    static inline char *s_none = nullptr;
    static inline std::atomic<std::uint64_t> s_changes = 0;

    std::uint64_t m_changes = 0;

    char **m_environment = &s_none;  // matches none
    char **m_slot = &s_none;         // of the variable; without it, of the end
    char *m_entry = nullptr;
    // Without the variable, of the last entry: it tells when entries were removed before others
    // were added.
    char **m_slotBefore = &s_none;
    char *m_entryBefore = nullptr;
};

// Sets a variable, or removes it when `value` is empty. `name` ends with '='. Safe beside threads
// that read the environment. Throws std::bad_alloc; the environment is then as it was.
void set_variable(const std::string &name, std::string_view value);

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_BASE_ENVIRONMENT_H
