#ifndef OSTREL_TIME_TIME_EX_H
#define OSTREL_TIME_TIME_EX_H

// CTimeEx holds a moment in UTC, to the millisecond, and converts it to local time and back.
//
//   SYSTEMTIME clock;
//   bool daylight;
//   OS::CTimeEx::Now().GetLocalTime(clock, daylight);
//
// Conversions apply the rule that GetTimeZoneInformation returns (ostrel/platform/timezone.h): the
// local zone's rule of the current year, for times of all years. In a zone that had other rules or
// another offset in the past, the local time of an earlier date is that of the present rule.
// FromLocalTime is the inverse of the same conversion. For the local time that applied at the date,
// use CTime or the runtime's _localtime64. Each conversion reads the zone anew, so a change of the
// zone takes effect with the next conversion.
//
// The functions that take a tm read neither tm_isdst nor tm_yday. The functions that store a tm set
// tm_isdst and leave tm_yday as it is.
//
// Ownership: a copy shares nothing with its source.
// Threads: use an object on one thread at a time.
// Errors: a conversion that fails gives the empty time: a SYSTEMTIME whose fields are all 0, or a
// tm with a tm_year of -1900, a tm_mon of -1 and 0 in the other fields. Constructors and the static
// functions throw std::bad_alloc when memory is short. Nothing else throws.

#include <ctime>
#include <memory>

#include "ostrel/core/api.h"
#include "ostrel/platform/types.h"

namespace OS {

class OSTREL_API CTimeEx {
public:
    CTimeEx();  // makes the empty time
    CTimeEx(const CTimeEx &other);
    CTimeEx &operator=(const CTimeEx &other);
    ~CTimeEx();

    // Returns the current time.
    static CTimeEx Now();

    // Return a time with the fields of `time`, a time in UTC. Check nothing. From a tm the
    // milliseconds are 0, and each field is cut to its low 16 bits.
    static CTimeEx FromUniversalTime(const SYSTEMTIME &time);
    static CTimeEx FromUniversalTime(const std::tm &time);

    // Return the moment at which the local clock shows `time`. When the clock shows `time` twice,
    // at the end of daylight time, return the first moment, which is in daylight time. Ignore the
    // weekday of `time`; the result has the true weekday. On failure, when the clock skips `time`
    // or `time` is not a valid date and time of the years 1601 to 30827, return the empty time.
    static CTimeEx FromLocalTime(const SYSTEMTIME &time);
    static CTimeEx FromLocalTime(const std::tm &time);

    // Return or store the fields in UTC, as they are.
    SYSTEMTIME GetUniversalTime() const;
    void GetUniversalTime(SYSTEMTIME &time) const;
    void GetUniversalTime(std::tm &time) const;  // tm_isdst 0

    // Return or store the local time, and set `daylight` to true when daylight time applies. On
    // failure, when the fields in UTC or the local time are not a valid date and time of the years
    // 1601 to 30827, give the empty time and false.
    void GetLocalTime(SYSTEMTIME &time, bool &daylight) const;
    SYSTEMTIME GetLocalTime(bool *daylight) const;  // `daylight` may be null
    void GetLocalTime(std::tm &time) const;         // tm_isdst 1 or 0

private:
    class CTimeExImp;

    std::unique_ptr<CTimeExImp> m_imp;
};

}  // namespace OS

#endif  // OSTREL_TIME_TIME_EX_H
