#ifndef OSTREL_CORE_TRACE_H
#define OSTREL_CORE_TRACE_H

// Internal. How the library writes a trace line and raises a system exception: with the module, and
// with the source position in the form `.\name.cpp`, worked out when the file is compiled.

#include <cstddef>

#include "ostrel/core/exception.h"
#include "ostrel/core/module.h"
#include "ostrel/platform/types.h"
#include "wexlog/wexlog.h"

namespace OS::detail {

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

// The source file that is compiled, as a const WCHAR *.
#define OSTREL_SOURCE_FILE                                                       \
    ([]() -> const WCHAR * {                                                     \
        static constexpr OS::detail::SourceFile<sizeof __FILE__> here(__FILE__); \
        return here.name;                                                        \
    }())

// OSTREL_TRACE(level, format, values...): the levels are those of wexlog.h.
#define OSTREL_TRACE(level, ...) \
    DBG::DebugLogEx(OS::module_handle(), level, OSTREL_SOURCE_FILE, __LINE__, __VA_ARGS__)

// Raises an OS::CSystemException with this code and the position of the raise.
#define OSTREL_RAISE_SYSTEM(code) throw OS::CSystemException(code, OSTREL_SOURCE_FILE, __LINE__)

#endif  // OSTREL_CORE_TRACE_H
