// The code of LoadLibraryW for each text of the host's loader: dlerror is defined here.

#include "ostrel/platform/error.h"
#include "ostrel/platform/module.h"
#include "support/test.h"

namespace {

const char *g_text;

}  // namespace

extern "C" char *dlerror() noexcept {
    return const_cast<char *>(g_text);
}

namespace {

TEST(LoaderTextsReplaced, HaveTheirCodes) {
    const std::pair<const char *, DWORD> cases[] = {
        {"x: cannot open shared object file: No such file or directory", ERROR_MOD_NOT_FOUND},
        {"x: cannot open shared object file: Permission denied", ERROR_ACCESS_DENIED},
        {"x: undefined symbol: y", ERROR_PROC_NOT_FOUND},
        {"x: version `V' not found (required by y)", ERROR_PROC_NOT_FOUND},
        {"x: file too short", ERROR_BAD_EXE_FORMAT},
        {"x: cannot allocate memory for program header", ERROR_NOT_ENOUGH_MEMORY},
        {"x: out of memory", ERROR_NOT_ENOUGH_MEMORY},
        {"cannot open shared object file", ERROR_NOT_ENOUGH_MEMORY},  // from a lack of memory
        {nullptr, ERROR_NOT_ENOUGH_MEMORY},
    };
    for (const auto &[text, code] : cases) {
        g_text = text;
        EXPECT_EQ(LoadLibraryW(u"a_module_that_is_nowhere.so"), nullptr);
        EXPECT_EQ(GetLastError(), code) << (text != nullptr ? text : "null");
    }
}

}  // namespace
