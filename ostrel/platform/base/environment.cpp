#include "ostrel/platform/base/environment.h"

#include <sys/auxv.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <memory>
#include <mutex>
#include <set>
#include <vector>

#include "ostrel/platform/base/fork_lock.h"
#include "ostrel/platform/base/never_destroyed.h"

namespace ostrel_platform {
namespace {

// The entries and arrays that _putenv_s has added to the environment. They are never released,
// since the host's environment and threads that read it hold pointers to them. Equal entries are
// stored once, and a new array has at least twice the size that is needed, so that a program which
// keeps setting variables does not keep taking memory.
class Additions {
public:
    static Additions &Instance() {
        static NeverDestroyed<Additions> additions;  // static destructors use the environment too
        return *additions;
    }

    Additions() { register_fork_lock(ForkOrder::kEnvironment, &m_mutex); }

    std::mutex &Mutex() { return m_mutex; }

    char *Entry(std::string text) {
        // environ is declared without const, but nothing writes to an entry.
        return const_cast<char *>(m_entries.insert(std::move(text)).first->c_str());
    }

    // Adds an entry behind the `count` existing ones.
    void Append(char **environment, std::size_t count, char *entry) {
        if (m_arrays.empty() || environment != m_arrays.back().get() || count + 2 > m_capacity) {
            const std::size_t capacity = std::max(m_capacity, 2 * (count + 2));
            auto array = std::make_unique<char *[]>(capacity);
            std::copy_n(environment, count, array.get());
            m_arrays.push_back(std::move(array));
            m_capacity = capacity;
        }
        char **const array = m_arrays.back().get();
        std::atomic_ref(array[count + 1]).store(nullptr, std::memory_order_release);
        std::atomic_ref(array[count]).store(entry, std::memory_order_release);
        std::atomic_ref(environ).store(array, std::memory_order_release);
    }

private:
    std::mutex m_mutex;
    std::set<std::string> m_entries;
    std::vector<std::unique_ptr<char *[]>> m_arrays;
    std::size_t m_capacity = 0;  // of the last array
};

// Returns the index of a variable, or of the terminating null. `name` ends with '='.
std::size_t find(char **environment, std::string_view name) {
    std::size_t index = 0;
    while (environment[index] != nullptr &&
           std::strncmp(environment[index], name.data(), name.size()) != 0) {
        ++index;
    }
    return index;
}

void remove(char **environment, std::size_t index) {
    for (; environment[index] != nullptr; ++index) {
        std::atomic_ref(environment[index])
            .store(environment[index + 1], std::memory_order_release);
    }
}

void replace_variable(const std::string &name, std::string_view value) {
    char *none = nullptr;
    char **const environment = environ != nullptr ? environ : &none;
    const std::size_t index = find(environment, name);
    if (value.empty()) {
        remove(environment, index);
        return;
    }
    char *const entry = Additions::Instance().Entry(name + std::string(value));
    if (environment[index] != nullptr) {
        std::atomic_ref(environment[index]).store(entry, std::memory_order_release);
    } else {
        Additions::Instance().Append(environment, index, entry);
    }
}

}  // namespace

std::optional<std::string> WatchedVariable::Read(std::string_view name) {
    const std::lock_guard lock(Additions::Instance().Mutex());
    m_changes = s_changes.load(std::memory_order_acquire);
    m_environment = environ;
    char **const environment = environ != nullptr ? environ : &s_none;
    const std::size_t index = find(environment, name);
    m_slot = &environment[index];
    m_entry = *m_slot;
    m_slotBefore = m_entry != nullptr || index == 0 ? m_slot : m_slot - 1;
    m_entryBefore = *m_slotBefore;
    if (m_entry == nullptr) {
        return std::nullopt;
    }
    return std::string(m_entry + name.size());
}

bool is_callers_environment() noexcept {
    return getauxval(AT_SECURE) != 0;
}

void set_variable(const std::string &name, std::string_view value) {
    const std::lock_guard lock(Additions::Instance().Mutex());
    replace_variable(name, value);
    WatchedVariable::NoteChange();
}

}  // namespace ostrel_platform
