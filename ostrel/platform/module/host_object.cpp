#include "ostrel/platform/module/host_object.h"

#include <dlfcn.h>
#include <link.h>

#include <algorithm>
#include <cerrno>
#include <clocale>
#include <cstring>
#include <string_view>

#include "ostrel/platform/base/errno_code.h"
#include "ostrel/platform/error.h"
#include "ostrel/platform/module/find_module.h"

namespace ostrel_platform {
namespace {

constinit thread_local char t_message[kLoaderMessageSize] = {};

// Returns the code of a text of the loader. The loader gives no number, but its texts end with the
// host's text of the errno where there is one.
DWORD code_of_message(std::string_view text) noexcept {
    constexpr int kErrnoLimit = 134;
    for (int error = 1; error < kErrnoLimit; ++error) {
        const char *const end = strerrordesc_np(error);
        if (end != nullptr && text.ends_with(end)) {
            return code_of_module_path(error);
        }
    }
    const auto has = [text](std::string_view part) { return text.find(part) != text.npos; };
    if (has("undefined symbol") || has(": version `")) {
        return ERROR_PROC_NOT_FOUND;
    }
    // Short of memory, the loader also leaves out the object's name and the errno.
    return has("cannot allocate") || has("out of memory") || !has(": ") ? ERROR_NOT_ENOUGH_MEMORY
                                                                        : ERROR_BAD_EXE_FORMAT;
}

// Keeps the loader's last text, untranslated whatever locale the program has set. Returns the code
// of the whole text, also where only a part is kept.
DWORD keep_message() noexcept {
    static const locale_t plain = newlocale(LC_ALL_MASK, "C", nullptr);
    const locale_t before = plain != nullptr ? uselocale(plain) : nullptr;
    const char *const text = dlerror();
    const std::string_view whole = text != nullptr ? text : "";
    const DWORD code = code_of_message(whole);
    t_message[whole.copy(t_message, sizeof t_message - 1)] = '\0';
    if (before != nullptr) {
        uselocale(before);
    }
    return code;
}

}  // namespace

void CloseHostObject::operator()(void *object) const noexcept {
    dlclose(object);
}

DWORD open_host_object(const char *name, int mode, HostObject *object) noexcept {
    object->reset(dlopen(name, mode));
    if (*object) {
        return ERROR_SUCCESS;
    }
    return keep_message();
}

HostObject find_host_object(const char *name) noexcept {
    HostObject object(dlopen(name, RTLD_LAZY | RTLD_NOLOAD));
    if (!object) {
        dlerror();
    }
    return object;
}

void *load_address_of(const HostObject &object) noexcept {
    link_map *map = nullptr;
    Dl_info info;
    const bool known = dlinfo(object.get(), RTLD_DI_LINKMAP, &map) == 0 && map->l_ld != nullptr &&
                       dladdr(map->l_ld, &info) != 0;
    return known ? info.dli_fbase : nullptr;
}

const char *kept_loader_message() noexcept {
    return t_message;
}

void forget_loader_message() noexcept {
    t_message[0] = '\0';
}

bool is_missing_by_loader(const std::string &name) noexcept {
    std::string_view text = t_message;
    if (!text.starts_with(name)) {
        return false;
    }
    text.remove_prefix(name.size());
    return text == ": cannot open shared object file: No such file or directory";
}

}  // namespace ostrel_platform
