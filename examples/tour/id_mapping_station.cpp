#include <cstdio>

#include "ostrel/config/cm_IdMapping.h"
#include "ostrel/core/exception.h"
#include "ostrel/core/x_string.h"
#include "tour.h"

namespace {

// Returns the text in the system code page, for the terminal.
OS::x_astring narrow(const WCHAR *text) {
    OS::x_astring bytes;
    bytes.Format("%S", text);
    return bytes;
}

void ask(const CIDMapping &mapping, int id) {
    const WCHAR *const name = mapping.GetID(id);
    std::printf("    GetID(%d)  ->  %s\n", id, name != nullptr ? narrow(name).c_str() : "null");
}

void ask(const CIDMapping &mapping, const WCHAR *name) {
    std::printf("    GetID(\"%s\")  ->  %d\n", narrow(name).c_str(), mapping.GetID(name));
}

}  // namespace

void id_mapping_station() {
    std::printf("config\\cfg_IdMapping.txt, loaded by the first call of CIDMapping::Instance():\n");
    const CIDMapping &mapping = *CIDMapping::Instance();
    ask(mapping, 7);
    ask(mapping, 3003);
    ask(mapping, -1);
    ask(mapping, TEXT("MAILBOX_FULL"));

    std::printf("\nA later line replaces an earlier one, by number and by name separately:\n");
    ask(mapping, 1001);
    ask(mapping, TEXT("DISK_FULL"));
    ask(mapping, TEXT("DISK_EXHAUSTED"));

    std::printf("\nNot found (names are case-sensitive, comments are ignored):\n");
    ask(mapping, 4711);
    ask(mapping, TEXT("mailbox_full"));
    ask(mapping, TEXT("MODEM_BUSY"));

    std::printf("\nA file from Windows, with CR LF and names beyond ASCII:\n");
    const CIDMapping windows(TEXT("config\\cfg_IdMapping_windows.txt"));
    ask(windows, 101);
    ask(windows, 202);
    ask(windows, TEXT("\u9EC4\u8272"));

    std::printf("\nA file that does not exist:\n");
    try {
        const CIDMapping missing(TEXT("config\\no_such_file.txt"));
    } catch (const OS::CSystemException &failure) {
        OS::x_wstring text = failure.GetErrorMsg();
        text.FindAndReplaceAll(TEXT("\r\n"), TEXT(""));
        std::printf("    CSystemException %d: %s\n", failure.GetErrorCode(), narrow(text).c_str());
    }
}
