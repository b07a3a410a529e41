#include "ostrel/platform/service.h"

#include "ostrel/platform/base/handle_table.h"

BOOL CloseServiceHandle(SC_HANDLE handle) noexcept {
    return ostrel_platform::close_handle(ostrel_platform::HandleKind::kService, handle);
}
