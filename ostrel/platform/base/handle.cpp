#include "ostrel/platform/handle.h"

#include "ostrel/platform/base/handle_table.h"

BOOL CloseHandle(HANDLE handle) noexcept {
    return ostrel_platform::close_handle(ostrel_platform::HandleKind::kObject, handle);
}
