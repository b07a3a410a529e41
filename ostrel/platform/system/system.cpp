#include "ostrel/platform/system.h"

#include <cerrno>
#include <cstring>
#include <mutex>
#include <set>
#include <string>
#include <string_view>

#include "ostrel/platform/base/ascii.h"
#include "ostrel/platform/base/call_result.h"
#include "ostrel/platform/base/environment.h"
#include "ostrel/platform/base/fork_lock.h"
#include "ostrel/platform/base/never_destroyed.h"
#include "ostrel/platform/text/charset.h"

namespace ostrel_platform {
namespace {

// The variables that name a place to write. The caller of a program with raised rights must not
// choose that place.
bool is_place_of_caller(std::u16string_view name) {
    for (const std::u16string_view place : {u"TMP", u"TEMP", u"TMPDIR", u"USERPROFILE"}) {
        if (is_same_name(place, name)) {
            return is_callers_environment();
        }
    }
    return false;
}

// Returns the value of a variable, a pointer into its entry, or null.
const char *find_value(std::u16string_view name) {
    char **const environment = load_environment();
    if (environment == nullptr || is_place_of_caller(name)) {
        return nullptr;
    }
    std::size_t count = 0;
    while (load_entry(&environment[count]) != nullptr) {
        ++count;
    }
    const std::size_t length = to_narrow(name).size();
    const char *spelled = nullptr;
    const char *similar = nullptr;
    // Walks from the end, because another thread may remove a variable meanwhile. The removal
    // copies each later entry to the slot before it, in order, so that the walk misses no entry.
    while (count-- > 0) {
        const char *const entry = load_entry(&environment[count]);
        if (entry == nullptr || std::strcspn(entry, "=") != length || entry[length] == '\0' ||
            entry[length + 1] == '\0') {
            continue;
        }
        const std::u16string entry_name = to_wide({entry, length});
        if (is_same_name(entry_name, name)) {
            (entry_name == name ? spelled : similar) = entry + length + 1;
        }
    }
    return spelled != nullptr ? spelled : similar;
}

// Stores a text until the process ends. Returns the same pointer for equal texts.
WCHAR *keep(std::u16string text) {
    static NeverDestroyed<std::mutex> mutex;  // static destructors use both too
    static NeverDestroyed<std::set<std::u16string>> texts;
    [[maybe_unused]] static const bool registered =
        (register_fork_lock(ForkOrder::kValues, &*mutex), true);
    const std::lock_guard lock(*mutex);
    // The interface lacks const; callers must not write to the text.
    return const_cast<WCHAR *>((*texts).insert(std::move(text)).first->c_str());
}

}  // namespace
}  // namespace ostrel_platform

BOOL GetVersionExW(OSVERSIONINFOW *version) noexcept {
    if (version == nullptr || version->dwOSVersionInfoSize != sizeof(OSVERSIONINFOW)) {
        SetLastError(version == nullptr ? ERROR_NOACCESS : ERROR_INSUFFICIENT_BUFFER);
        return FALSE;
    }
    *version = {sizeof(OSVERSIONINFOW), 6, 2, 9200, VER_PLATFORM_WIN32_NT, {}};
    return TRUE;
}

WCHAR *_wgetenv(const WCHAR *name) noexcept {
    WCHAR *kept = nullptr;
    ostrel_platform::crt_result([&] {
        if (name == nullptr) {
            return EINVAL;
        }
        if (const char *const value = ostrel_platform::find_value(name)) {
            kept = ostrel_platform::keep(ostrel_platform::to_wide(value));
        }
        return 0;
    });
    return kept;
}

int _putenv_s(const char *name, const char *value) noexcept {
    const int result = ostrel_platform::crt_result([=] {
        if (name == nullptr || value == nullptr || *name == '\0' ||
            std::strchr(name, '=') != nullptr) {
            return EINVAL;
        }
        ostrel_platform::set_variable(std::string(name) + '=', value);
        return 0;
    });
    return result == 0 ? 0 : errno;
}
