#include "ostrel/platform/error.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string_view>

namespace {

struct Message {
    DWORD code;
    std::u16string_view text;
};

// The system's error codes and texts (Microsoft, "System Error Codes"), rising by code.
constexpr Message kMessages[] = {
    {0, TEXT("The operation completed successfully.\r\n")},
    {1, TEXT("Incorrect function.\r\n")},
    {2, TEXT("The system cannot find the file specified.\r\n")},
    {3, TEXT("The system cannot find the path specified.\r\n")},
    {4, TEXT("The system cannot open the file.\r\n")},
    {5, TEXT("Access is denied.\r\n")},
    {6, TEXT("The handle is invalid.\r\n")},
    {8, TEXT("Not enough memory resources are available to process this command.\r\n")},
    {13, TEXT("The data is invalid.\r\n")},
    {14, TEXT("Not enough storage is available to complete this operation.\r\n")},
    {15, TEXT("The system cannot find the drive specified.\r\n")},
    {16, TEXT("The directory cannot be removed.\r\n")},
    {17, TEXT("The system cannot move the file to a different disk drive.\r\n")},
    {18, TEXT("There are no more files.\r\n")},
    {19, TEXT("The media is write protected.\r\n")},
    {21, TEXT("The device is not ready.\r\n")},
    {24, TEXT("The program issued a command but the command length is incorrect.\r\n")},
    {29, TEXT("The system cannot write to the specified device.\r\n")},
    {30, TEXT("The system cannot read from the specified device.\r\n")},
    {31, TEXT("A device attached to the system is not functioning.\r\n")},
    {32, TEXT("The process cannot access the file because it is being used by another ")
             TEXT("process.\r\n")},
    {33, TEXT("The process cannot access the file because another process has locked a ")
             TEXT("portion of the file.\r\n")},
    {38, TEXT("Reached the end of the file.\r\n")},
    {39, TEXT("The disk is full.\r\n")},
    {50, TEXT("The request is not supported.\r\n")},
    {53, TEXT("The network path was not found.\r\n")},
    {67, TEXT("The network name cannot be found.\r\n")},
    {80, TEXT("The file exists.\r\n")},
    {82, TEXT("The directory or file cannot be created.\r\n")},
    {87, TEXT("The parameter is incorrect.\r\n")},
    {109, TEXT("The pipe has been ended.\r\n")},
    {110, TEXT("The system cannot open the device or file specified.\r\n")},
    {111, TEXT("The file name is too long.\r\n")},
    {112, TEXT("There is not enough space on the disk.\r\n")},
    {120, TEXT("This function is not supported on this system.\r\n")},
    {121, TEXT("The semaphore timeout period has expired.\r\n")},
    {122, TEXT("The data area passed to a system call is too small.\r\n")},
    {123, TEXT("The filename, directory name, or volume label syntax is incorrect.\r\n")},
    {126, TEXT("The specified module could not be found.\r\n")},
    {127, TEXT("The specified procedure could not be found.\r\n")},
    {131, TEXT("An attempt was made to move the file pointer before the beginning of the ")
              TEXT("file.\r\n")},
    {145, TEXT("The directory is not empty.\r\n")},
    {161, TEXT("The specified path is invalid.\r\n")},
    {170, TEXT("The requested resource is in use.\r\n")},
    {182, TEXT("The operating system cannot run %1.\r\n")},
    {183, TEXT("Cannot create a file when that file already exists.\r\n")},
    {187, TEXT("The specified system semaphore name was not found.\r\n")},
    {193, TEXT("%1 is not a valid Win32 application.\r\n")},
    {206, TEXT("The filename or extension is too long.\r\n")},
    {230, TEXT("The pipe state is invalid.\r\n")},
    {231, TEXT("All pipe instances are busy.\r\n")},
    {232, TEXT("The pipe is being closed.\r\n")},
    {234, TEXT("More data is available.\r\n")},
    {258, TEXT("The wait operation timed out.\r\n")},
    {259, TEXT("No more data is available.\r\n")},
    {267, TEXT("The directory name is invalid.\r\n")},
    {288, TEXT("Attempt to release mutex not owned by caller.\r\n")},
    {298, TEXT("Too many posts were made to a semaphore.\r\n")},
    {299, TEXT("Only part of a ReadProcessMemory or WriteProcessMemory request was ")
              TEXT("completed.\r\n")},
    {487, TEXT("Attempt to access invalid address.\r\n")},
    {995, TEXT("The I/O operation has been aborted because of either a thread exit or an ")
              TEXT("application request.\r\n")},
    {996, TEXT("Overlapped I/O event is not in a signaled state.\r\n")},
    {997, TEXT("Overlapped I/O operation is in progress.\r\n")},
    {998, TEXT("Invalid access to memory location.\r\n")},
    {1004, TEXT("Invalid flags.\r\n")},
    {1009, TEXT("The configuration registry database is corrupt.\r\n")},
    {1010, TEXT("The configuration registry key is invalid.\r\n")},
    {1011, TEXT("The configuration registry key could not be opened.\r\n")},
    {1012, TEXT("The configuration registry key could not be read.\r\n")},
    {1013, TEXT("The configuration registry key could not be written.\r\n")},
    {1014, TEXT("One of the files in the registry database had to be recovered by use of a ")
               TEXT("log or alternate copy. The recovery was successful.\r\n")},
    {1015, TEXT("The registry is corrupted. The structure of one of the files containing ")
               TEXT("registry data is corrupted, or the system's memory image of the file is ")
                   TEXT("corrupted, or the file could not be recovered because the alternate copy ")
                       TEXT("or log was absent or corrupted.\r\n")},
    {1016, TEXT("An I/O operation initiated by the registry failed unrecoverably. The ")
               TEXT("registry could not read in, or write out, or flush, one of the files that ")
                   TEXT("contain the system's image of the registry.\r\n")},
    {1017, TEXT("The system has attempted to load or restore a file into the registry, but ")
               TEXT("the specified file is not in a registry file format.\r\n")},
    {1018, TEXT("Illegal operation attempted on a registry key that has been marked for ")
               TEXT("deletion.\r\n")},
    {1019, TEXT("System could not allocate the required space in a registry log.\r\n")},
    {1020, TEXT("Cannot create a symbolic link in a registry key that already has subkeys ")
               TEXT("or values.\r\n")},
    {1021, TEXT("Cannot create a stable subkey under a volatile parent key.\r\n")},
    {1051, TEXT("A stop control has been sent to a service that other running services are ")
               TEXT("dependent on.\r\n")},
    {1052, TEXT("The requested control is not valid for this service.\r\n")},
    {1053, TEXT("The service did not respond to the start or control request in a timely ")
               TEXT("fashion.\r\n")},
    {1054, TEXT("A thread could not be created for the service.\r\n")},
    {1055, TEXT("The service database is locked.\r\n")},
    {1056, TEXT("An instance of the service is already running.\r\n")},
    {1057, TEXT("The account name is invalid or does not exist, or the password is invalid ")
               TEXT("for the account name specified.\r\n")},
    {1058, TEXT("The service cannot be started, either because it is disabled or because it ")
               TEXT("has no enabled devices associated with it.\r\n")},
    {1059, TEXT("Circular service dependency was specified.\r\n")},
    {1060, TEXT("The specified service does not exist as an installed service.\r\n")},
    {1061, TEXT("The service cannot accept control messages at this time.\r\n")},
    {1062, TEXT("The service has not been started.\r\n")},
    {1063, TEXT("The service process could not connect to the service controller.\r\n")},
    {1064, TEXT("An exception occurred in the service when handling the control request.\r\n")},
    {1065, TEXT("The database specified does not exist.\r\n")},
    {1066, TEXT("The service has returned a service-specific error code.\r\n")},
    {1067, TEXT("The process terminated unexpectedly.\r\n")},
    {1068, TEXT("The dependency service or group failed to start.\r\n")},
    {1069, TEXT("The service did not start due to a logon failure.\r\n")},
    {1070, TEXT("After starting, the service hung in a start-pending state.\r\n")},
    {1071, TEXT("The specified service database lock is invalid.\r\n")},
    {1072, TEXT("The specified service has been marked for deletion.\r\n")},
    {1073, TEXT("The specified service already exists.\r\n")},
    {1075, TEXT("The dependency service does not exist or has been marked for deletion.\r\n")},
    {1077, TEXT("No attempts to start the service have been made since the last boot.\r\n")},
    {1078, TEXT("The name is already in use as either a service name or a service display ")
               TEXT("name.\r\n")},
    {1083, TEXT("The executable program that this service is configured to run in does not ")
               TEXT("implement the service.\r\n")},
    {1113, TEXT("No mapping for the Unicode character exists in the target multi-byte code ")
               TEXT("page.\r\n")},
    {1114, TEXT("A dynamic link library (DLL) initialization routine failed.\r\n")},
    {1115, TEXT("A system shutdown is in progress.\r\n")},
    {1117, TEXT("The request could not be performed because of an I/O device error.\r\n")},
    {1157, TEXT("One of the library files needed to run this application cannot be found.\r\n")},
    {1168, TEXT("Element not found.\r\n")},
    {1223, TEXT("The operation was canceled by the user.\r\n")},
    {1300, TEXT("Not all privileges or groups referenced are assigned to the caller.\r\n")},
    {1307, TEXT("This security ID may not be assigned as the owner of this object.\r\n")},
    {1314, TEXT("A required privilege is not held by the client.\r\n")},
    {1326, TEXT("The user name or password is incorrect.\r\n")},
    {1332, TEXT("No mapping between account names and security IDs was done.\r\n")},
    {1336, TEXT("The access control list (ACL) structure is invalid.\r\n")},
    {1337, TEXT("The security ID structure is invalid.\r\n")},
    {1338, TEXT("The security descriptor structure is invalid.\r\n")},
    {1400, TEXT("Invalid window handle.\r\n")},
    {1413, TEXT("Invalid index.\r\n")},
    {1450, TEXT("Insufficient system resources exist to complete the requested service.\r\n")},
    {1455, TEXT("The paging file is too small for this operation to complete.\r\n")},
    {1460, TEXT("This operation returned because the timeout period expired.\r\n")},
    {1705, TEXT("The string universal unique identifier (UUID) is invalid.\r\n")},
    {1722, TEXT("The RPC server is unavailable.\r\n")},
    {1753, TEXT("There are no more endpoints available from the endpoint mapper.\r\n")},
    {1784, TEXT("The supplied user buffer is not valid for the requested operation.\r\n")},
    {1812, TEXT("The specified image file did not contain a resource section.\r\n")},
    {1813, TEXT("The specified resource type cannot be found in the image file.\r\n")},
    {1814, TEXT("The specified resource name cannot be found in the image file.\r\n")},
    {1815, TEXT("The specified resource language ID cannot be found in the image file.\r\n")},
    {1816, TEXT("Not enough quota is available to process this command.\r\n")},
    {1824, TEXT("A UUID that is valid only on this computer has been allocated.\r\n")},
};

static_assert(std::is_sorted(std::begin(kMessages), std::end(kMessages),
                             [](const Message &a, const Message &b) { return a.code < b.code; }));

const Message *find_message(DWORD id) {
    constexpr DWORD kWin32Result = 0x80070000;  // an HRESULT that wraps an error code
    const DWORD code = (id & 0xFFFF0000) == kWin32Result ? id & 0xFFFF : id;
    const auto *const found = std::lower_bound(
        std::begin(kMessages), std::end(kMessages), code,
        [](const Message &message, DWORD wanted) { return message.code < wanted; });
    return found != std::end(kMessages) && found->code == code ? found : nullptr;
}

DWORD fail(DWORD code) {
    SetLastError(code);
    return 0;
}

thread_local DWORD t_lastError = ERROR_SUCCESS;

}  // namespace

DWORD GetLastError() noexcept {
    return t_lastError;
}

void SetLastError(DWORD code) noexcept {
    t_lastError = code;
}

DWORD FormatMessageW(DWORD flags, LPCVOID /*source*/, DWORD id, DWORD language, WCHAR *buffer,
                     DWORD size, std::va_list *args) {
    const bool allocate = (flags & FORMAT_MESSAGE_ALLOCATE_BUFFER) != 0;
    constexpr DWORD kOptions = FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_IGNORE_INSERTS;
    if (buffer == nullptr) {
        return fail(ERROR_INVALID_PARAMETER);
    }
    WCHAR *const none = nullptr;
    if (allocate) {
        std::memcpy(buffer, &none, sizeof none);
    }
    if ((flags & ~kOptions) != FORMAT_MESSAGE_FROM_SYSTEM || args != nullptr) {
        return fail(ERROR_INVALID_PARAMETER);
    }
    if (language != 0 && language != 0x400 && language != 0x409) {
        return fail(ERROR_RESOURCE_LANG_NOT_FOUND);
    }
    const Message *const message = find_message(id);
    if (message == nullptr) {
        return fail(ERROR_MR_MID_NOT_FOUND);
    }
    const std::u16string_view text = message->text;
    const bool has_insert = text.find(u'%') != std::u16string_view::npos;
    if (has_insert && (flags & FORMAT_MESSAGE_IGNORE_INSERTS) == 0) {
        return fail(ERROR_INVALID_PARAMETER);
    }

    WCHAR *target = buffer;
    if (allocate) {
        const std::size_t count = std::max<std::size_t>(text.size() + 1, size);
        target = static_cast<WCHAR *>(std::malloc(count * sizeof(WCHAR)));
        if (target == nullptr) {
            return fail(ERROR_NOT_ENOUGH_MEMORY);
        }
        std::memcpy(buffer, &target, sizeof target);
    } else if (size <= text.size()) {
        return fail(ERROR_INSUFFICIENT_BUFFER);
    }
    text.copy(target, text.size());
    target[text.size()] = 0;
    return static_cast<DWORD>(text.size());
}

HLOCAL LocalFree(HLOCAL block) noexcept {
    std::free(block);
    return nullptr;
}
