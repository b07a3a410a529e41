#ifndef OSTREL_TIME_SYSTEM_FIELDS_H
#define OSTREL_TIME_SYSTEM_FIELDS_H

// Internal. Converts a tm to a SYSTEMTIME without checking the fields.

#include <ctime>

#include "ostrel/platform/types.h"
#include "ostrel/time/wrapping.h"

namespace OS::detail {

// Returns the low 16 bits of each field; the milliseconds are 0.
inline SYSTEMTIME system_fields(const std::tm &fields) {
    SYSTEMTIME time = {};
    time.wYear = static_cast<WORD>(wrapping_add(fields.tm_year, 1900));
    time.wMonth = static_cast<WORD>(wrapping_add(fields.tm_mon, 1));
    time.wDayOfWeek = static_cast<WORD>(fields.tm_wday);
    time.wDay = static_cast<WORD>(fields.tm_mday);
    time.wHour = static_cast<WORD>(fields.tm_hour);
    time.wMinute = static_cast<WORD>(fields.tm_min);
    time.wSecond = static_cast<WORD>(fields.tm_sec);
    return time;
}

}  // namespace OS::detail

#endif  // OSTREL_TIME_SYSTEM_FIELDS_H
