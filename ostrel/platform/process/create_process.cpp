// CreateProcessW, GetExitCodeProcess and TerminateProcess.

#include <unistd.h>

#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "ostrel/platform/base/call_result.h"
#include "ostrel/platform/base/environment.h"
#include "ostrel/platform/base/errno_code.h"
#include "ostrel/platform/base/host_descriptor.h"
#include "ostrel/platform/file/host_path.h"
#include "ostrel/platform/file/open_file.h"
#include "ostrel/platform/handle.h"
#include "ostrel/platform/process.h"
#include "ostrel/platform/process/children.h"
#include "ostrel/platform/process/find_program.h"
#include "ostrel/platform/process/process_object.h"
#include "ostrel/platform/process/spawn.h"
#include "ostrel/platform/sync.h"
#include "ostrel/platform/text/charset.h"

namespace ostrel_platform {
namespace {

constexpr std::size_t kMaxLine = 32767;

// The texts of an argument or environment vector, as the host wants them.
std::vector<char *> pointers_to(std::vector<std::string> &texts) {
    std::vector<char *> pointers;
    pointers.reserve(texts.size() + 1);
    for (std::string &text : texts) {
        pointers.push_back(text.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

std::vector<std::string> texts_of_block(const void *block, bool is_wide) {
    std::vector<std::string> texts;
    if (is_wide) {
        for (std::u16string_view text = static_cast<const WCHAR *>(block); !text.empty();
             text = text.data() + text.size() + 1) {
            texts.push_back(to_narrow(text));
        }
    } else {
        for (std::string_view text = static_cast<const char *>(block); !text.empty();
             text = text.data() + text.size() + 1) {
            texts.emplace_back(text);
        }
    }
    return texts;
}

// The environment of a new process: that of a block, or for null that of this process.
class Environment {
public:
    Environment(const void *block, DWORD flags) {
        if (block != nullptr) {
            m_texts = texts_of_block(block, (flags & CREATE_UNICODE_ENVIRONMENT) != 0);
            m_pointers = pointers_to(m_texts);
        }
    }

    char *const *Get() const { return m_pointers.empty() ? load_environment() : m_pointers.data(); }

private:
    std::vector<std::string> m_texts;
    std::vector<char *> m_pointers;
};

DWORD check_arguments(const WCHAR *application, const WCHAR *line, DWORD flags) {
    constexpr DWORD kFlags =
        CREATE_UNICODE_ENVIRONMENT | CREATE_NEW_PROCESS_GROUP | CREATE_NO_WINDOW | DETACHED_PROCESS;
    if ((flags & CREATE_SUSPENDED) != 0) {
        return ERROR_NOT_SUPPORTED;
    }
    const WCHAR *const name = application != nullptr ? application : line;
    if (name == nullptr || *name == 0 || (flags & ~kFlags) != 0) {
        return ERROR_INVALID_PARAMETER;
    }
    const bool fits = line == nullptr || std::u16string_view(line).size() <= kMaxLine;
    return fits ? ERROR_SUCCESS : ERROR_FILENAME_EXCED_RANGE;
}

// The files of the standard handles, kept open.
struct StandardFiles {
    std::shared_ptr<HandleObject> files[3];

    DWORD Find(const STARTUPINFOW &startup, int (&descriptors)[3]) {
        const HANDLE handles[] = {startup.hStdInput, startup.hStdOutput, startup.hStdError};
        for (int i = 0; i < 3; ++i) {
            if (handles[i] == nullptr || handles[i] == INVALID_HANDLE_VALUE) {
                continue;
            }
            files[i] = HandleTable::Instance().Find(HandleKind::kObject,
                                                    reinterpret_cast<std::uintptr_t>(handles[i]));
            const auto *const file = dynamic_cast<const OpenFile *>(files[i].get());
            if (file == nullptr) {
                return ERROR_INVALID_HANDLE;
            }
            descriptors[i] = file->Get();
        }
        return ERROR_SUCCESS;
    }
};

// Opens the current directory of a new process, unless `path` is null.
DWORD open_directory(const WCHAR *path, HostDescriptor *directory) {
    if (path == nullptr) {
        return ERROR_SUCCESS;
    }
    const auto host = file_path(path);
    if (host) {
        *directory = open_host(host->c_str(), O_PATH | O_DIRECTORY);
    }
    if (!*directory || faccessat(directory->Get(), ".", X_OK, AT_EACCESS) != 0) {
        return ERROR_DIRECTORY;
    }
    return ERROR_SUCCESS;
}

DWORD code_of_execution(int error) {
    switch (error) {
        case ENOEXEC:
        case ELIBBAD:
        case EINVAL:
            return ERROR_BAD_EXE_FORMAT;
        case E2BIG:
            return ERROR_FILENAME_EXCED_RANGE;
        case EAGAIN:
            return ERROR_NO_SYSTEM_RESOURCES;
        default:
            return code_of_errno(error);
    }
}

// A handle that is closed unless it is released.
class OpenedHandle {
public:
    OpenedHandle(const std::shared_ptr<HostProcess> &process, DWORD access)
        : m_handle(open_handle(std::make_shared<Process>(process, access))) {}
    ~OpenedHandle() {
        if (m_handle != nullptr) {
            CloseHandle(m_handle);
        }
    }
    OpenedHandle &operator=(OpenedHandle &&) = delete;  // nor copied

    HANDLE Release() noexcept { return std::exchange(m_handle, nullptr); }

private:
    HANDLE m_handle;
};

// Starts the process of a request, and stores its handles.
DWORD start(const SpawnRequest &request, PROCESS_INFORMATION *information) {
    if (const DWORD code = prepare_children()) {
        return code;
    }
    // All that needs memory comes before the process.
    auto process = std::make_shared<HostProcess>();
    ChildEntry entry = {process};
    OpenedHandle handle(process, PROCESS_ALL_ACCESS);
    OpenedHandle thread(process, 0);
    pid_t id = 0;
    HostDescriptor descriptor;
    if (const int error = spawn(request, &id, &descriptor)) {
        return code_of_execution(error);
    }
    HostProcess::Begin(process, id, std::move(descriptor));
    add_child(std::move(entry));
    *information = {handle.Release(), thread.Release(), static_cast<DWORD>(id),
                    static_cast<DWORD>(id)};
    return ERROR_SUCCESS;
}

}  // namespace
}  // namespace ostrel_platform

BOOL CreateProcessW(const WCHAR *application, WCHAR *line, SECURITY_ATTRIBUTES * /*security*/,
                    SECURITY_ATTRIBUTES * /*thread_security*/, BOOL inherit, DWORD flags,
                    LPVOID environment, const WCHAR *directory, STARTUPINFOW *startup,
                    PROCESS_INFORMATION *information) noexcept {
    using namespace ostrel_platform;
    return call_result([&]() -> DWORD {
        if (startup == nullptr || information == nullptr) {
            return ERROR_INVALID_PARAMETER;
        }
        if (const DWORD code = check_arguments(application, line, flags)) {
            return code;
        }
        SpawnRequest request = {};
        StandardFiles standard;
        if ((startup->dwFlags & STARTF_USESTDHANDLES) != 0) {
            const DWORD code = inherit != FALSE ? standard.Find(*startup, request.standard)
                                                : DWORD{ERROR_INVALID_PARAMETER};
            if (code != ERROR_SUCCESS) {
                return code;
            }
        }
        Program program;
        HostDescriptor host_directory;
        if (const DWORD code = find_program(application, line, &program)) {
            return code;
        }
        if (const DWORD code = open_directory(directory, &host_directory)) {
            return code;
        }
        Environment variables(environment, flags);
        const std::vector<char *> arguments = pointers_to(program.arguments);
        request.program = program.path.c_str();
        request.arguments = arguments.data();
        request.environment = variables.Get();
        request.directory = host_directory.Get();
        request.keeps_descriptors = inherit != FALSE;
        request.leads_group = (flags & CREATE_NEW_PROCESS_GROUP) != 0;
        return start(request, information);
    });
}

BOOL GetExitCodeProcess(HANDLE process, DWORD *code) noexcept {
    using namespace ostrel_platform;
    return call_result([=]() -> DWORD {
        std::shared_ptr<Process> object;
        if (const DWORD failure = find_process(process, 0, &object)) {
            return failure;
        }
        if (!object->Allows(PROCESS_QUERY_INFORMATION) &&
            !object->Allows(PROCESS_QUERY_LIMITED_INFORMATION)) {
            return ERROR_ACCESS_DENIED;
        }
        return code != nullptr ? object->Host().ReadExitCode(code) : DWORD{ERROR_NOACCESS};
    });
}

BOOL TerminateProcess(HANDLE process, DWORD code) noexcept {
    using namespace ostrel_platform;
    return call_result([=]() -> DWORD {
        std::shared_ptr<Process> object;
        if (const DWORD failure = find_process(process, PROCESS_TERMINATE, &object)) {
            return failure;
        }
        if (object->Host().Id() == getpid()) {
            _exit(static_cast<int>(code & 0xFF));
        }
        return object->Host().Terminate(code);
    });
}
