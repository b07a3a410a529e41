#ifndef OSTREL_TIME_TIME_EX_H
#define OSTREL_TIME_TIME_EX_H

// A moment in UTC, to the millisecond, that knows its way to the local clock and back.
//
//   SYSTEMTIME clock;
//   bool daylight;
//   OS::CTimeEx::Now().GetLocalTime(clock, daylight);
//
// The local zone is the one that GetTimeZoneInformation tells (ostrel/platform/timezone.h): the
// rule of this year, for the times of all years. In a zone that had other rules, or another offset,
// in the past, the local clock of a time then is what the present rule makes of it, and
// FromLocalTime undoes just that. For local time as it was, take CTime or the runtime's
// _localtime64.
//
// The zone is asked for at each conversion: a change takes effect with the next one. Nothing is
// raised: what fails gives the empty time, all of whose fields are 0.
//
// A tm holds the same fields; its tm_isdst is written, not read, its tm_yday neither.
//
// Threads: objects of their own on each thread.

#include <ctime>
#include <memory>

#include "ostrel/core/api.h"
#include "ostrel/platform/types.h"

namespace OS {

class OSTREL_API CTimeEx {
public:
    CTimeEx();  // the empty time
    CTimeEx(const CTimeEx &other);
    CTimeEx &operator=(const CTimeEx &other);
    ~CTimeEx();

    static CTimeEx Now();

    // The fields as they stand, without any test.
    static CTimeEx FromUniversalTime(const SYSTEMTIME &time);
    static CTimeEx FromUniversalTime(const std::tm &time);

    // The moment of a local clock: of a clock that comes twice at the end of daylight time the
    // first, in daylight time; of one that is skipped, or that is no time, the empty time. The
    // weekday is not looked at; that of the result is right.
    static CTimeEx FromLocalTime(const SYSTEMTIME &time);
    static CTimeEx FromLocalTime(const std::tm &time);

    SYSTEMTIME GetUniversalTime() const;
    void GetUniversalTime(SYSTEMTIME &time) const;
    void GetUniversalTime(std::tm &time) const;  // tm_isdst 0

    // The local clock, and whether the daylight bias made it, not the standard one. When the
    // conversion fails, the empty time and false.
    void GetLocalTime(SYSTEMTIME &time, bool &daylight) const;
    SYSTEMTIME GetLocalTime(bool *daylight) const;  // null: no flag is wanted
    void GetLocalTime(std::tm &time) const;         // tm_isdst 1 or 0

private:
    class CTimeExImp;

    std::unique_ptr<CTimeExImp> m_imp;
};

}  // namespace OS

#endif  // OSTREL_TIME_TIME_EX_H
