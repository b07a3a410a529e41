#ifndef OSTREL_SERVICE_PROCESSUTILITY_H
#define OSTREL_SERVICE_PROCESSUTILITY_H

// CEnumProcess passes the processes of this machine to a callback.
//
//   struct Find : OS::CEnumProcess::CEnumProcessCallback {
//       bool OnProcess(DWORD processId, const WCHAR *processName) override {
//           id = wcscmp(processName, TEXT("agent")) == 0 ? processId : 0;
//           return id != 0;  // true ends the walk
//       }
//       DWORD id = 0;
//   } find;
//   OS::CEnumProcess().EnumProcess(find);
//
// The class has no data, so assignment has no effect.
//
// Threads: every call may run on any thread. The callback runs on the thread of the call.
// Errors: EnumProcess throws OS::CSystemException. What the callback throws passes through.
// Platform: off Windows the name is that of the file which the process executes, without ".exe"
// where the file has none (ostrel/platform/process.h).

#include "ostrel/core/api.h"
#include "ostrel/platform/types.h"

namespace OS {

class OSTREL_API CEnumProcess {
public:
    class OSTREL_API CEnumProcessCallback {
    public:
        // Takes one process. `processName` has up to 259 characters; what is longer is cut. The
        // text is valid during the call. Returns true to end the walk.
        virtual bool OnProcess(DWORD processId, const WCHAR *processName) = 0;

        virtual ~CEnumProcessCallback();  // behind the first virtual function, which stays that
    };

    CEnumProcess() noexcept = default;
    CEnumProcess(const CEnumProcess &) noexcept = default;
    CEnumProcess &operator=(const CEnumProcess & /*other*/) noexcept { return *this; }

    // Passes the processes to `callback`, in the order of the system's list. Of more than 1024
    // processes sees the first 1024. Leaves out a process that this user may not open, that has no
    // program (the system's own) or that has ended meanwhile. A process whose name cannot be read
    // is called UNKNOWN.
    //
    // Throws OS::CSystemException with the system's code when PSAPI.DLL or one of its functions
    // cannot be loaded, or when there is no list. Then `callback` was not called.
    void EnumProcess(CEnumProcessCallback &callback);
};

}  // namespace OS

#endif  // OSTREL_SERVICE_PROCESSUTILITY_H
