#ifndef OSTREL_PLATFORM_BASE_ENVIRONMENT_H
#define OSTREL_PLATFORM_BASE_ENVIRONMENT_H

// Internal. Sets variables of the process environment, and watches one variable at the cost of a
// few loads.
//
// The host's setenv is not safe while other threads read the environment. set_variable is safe: it
// replaces pointers one at a time, atomically, and never releases an entry or array that another
// thread may be reading.
//
//   WatchedVariable variable;
//   if (!variable.IsUnchanged()) {
//       const std::optional<std::string> value = variable.Read("TZ=");
//   }

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

// Remembers the slot of a variable in the environment, so that a few loads find out whether the
// variable may have changed.
//
// Threads: an object belongs to one thread.
class WatchedVariable {
public:
    // Whether the variable is as the last Read found it; false before the first Read. Does not
    // notice a change of the text itself behind a pointer that the program passed to putenv.
    bool IsUnchanged() const noexcept {
        return s_changes.load(std::memory_order_acquire) == m_changes &&
               load_environment() == m_environment && load_entry(m_slot) == m_entry &&
               load_entry(m_slotBefore) == m_entryBefore;
    }

    // Returns the value, or nothing when there is no such variable. `name` ends with '='. Throws
    // std::bad_alloc; IsUnchanged may then return true, so that the caller must replace the object.
    std::optional<std::string> Read(std::string_view name);

private:
    friend void set_variable(const std::string &name, std::string_view value);

    // Makes IsUnchanged return false in every object.
    static void NoteChange() noexcept { s_changes.fetch_add(1, std::memory_order_release); }

    static inline char *s_none = nullptr;
    static inline std::atomic<std::uint64_t> s_changes = 0;

    std::uint64_t m_changes = 0;

    char **m_environment = &s_none;  // equals no real environment
    char **m_slot = &s_none;         // the variable's slot, or the terminating slot without it
    char *m_entry = nullptr;
    // The slot of the last entry when the variable does not exist. It changes when entries are
    // removed before others are added.
    char **m_slotBefore = &s_none;
    char *m_entryBefore = nullptr;
};

// Returns true when the process has rights that its caller lacks, as a set-user-ID program has
// (AT_SECURE). The caller chose the environment, so no variable may then decide where the program
// reads or writes.
bool is_callers_environment() noexcept;

// Sets a variable, or removes it when `value` is empty. `name` ends with '='. Safe while other
// threads read the environment. Throws std::bad_alloc and then leaves the environment unchanged.
void set_variable(const std::string &name, std::string_view value);

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_BASE_ENVIRONMENT_H
