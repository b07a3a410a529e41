#ifndef OSTREL_CORE_TRACE_H
#define OSTREL_CORE_TRACE_H

// Internal. Macros that write a trace line and throw a system exception with the source position:
// the file as `.\name.cpp`, computed at compile time, and the line. A trace line also carries the
// module handle.

#include <cstddef>

#include "ostrel/core/exception.h"
#include "ostrel/core/module.h"
#include "ostrel/platform/types.h"
#include "wexlog/wexlog.h"

namespace OS::detail {

// The name of a source file in the form `.\name.cpp`.
template <std::size_t Size>
struct SourceFile {
    WCHAR name[Size + 2] = {TEXT('.'), TEXT('\\')};

    constexpr explicit SourceFile(const char (&path)[Size]) {
        std::size_t begin = 0;
        for (std::size_t i = 0; i < Size; ++i) {
            begin = path[i] == '/' || path[i] == '\\' ? i + 1 : begin;
        }
        for (std::size_t i = begin; i < Size; ++i) {
            name[2 + i - begin] = static_cast<unsigned char>(path[i]);
        }
    }
};

}  // namespace OS::detail

// The name of the source file being compiled, as a const WCHAR * to static text.
#define OSTREL_SOURCE_FILE                                                       \
    ([]() -> const WCHAR * {                                                     \
        static constexpr OS::detail::SourceFile<sizeof __FILE__> here(__FILE__); \
        return here.name;                                                        \
    }())

// OSTREL_TRACE(level, format, values...) writes a trace line; wexlog.h lists the levels.
#define OSTREL_TRACE(level, ...) \
    DBG::DebugLogEx(OS::module_handle(), level, OSTREL_SOURCE_FILE, __LINE__, __VA_ARGS__)

// Throws an OS::CSystemException with the code and the source position of the macro.
#define OSTREL_RAISE_SYSTEM(code) throw OS::CSystemException(code, OSTREL_SOURCE_FILE, __LINE__)

#endif  // OSTREL_CORE_TRACE_H
