#include <cstdlib>
#include <iostream>

#include "ostrel/core/convert.h"
#include "ostrel/time/tc_datetime_utility.h"
#include "ostrel/time/time_ex.h"
#include "tour.h"

namespace {

using OS::CTime;
using OS::CTimeEx;

void show(const char *title, const OS::x_wstring &text) {
    std::cout << "  " << title << ": " << OS::WCharToUTF8Char(text, nullptr) << '\n';
}

void show_now() {
    const CTime now = CTime::GetCurTime();
    show("now, for a database   ", now.GetDBTimeString());
    show("now, in the long form ", now.GetLongTimeString(nullptr));
    show("now, in the locale    ", now.GetLocaleDateTimeString());
    show("now, in UTC           ", CTime::GetCurGMTime().GetDBTimeString());
    std::cout << '\n';
}

void show_arithmetic() {
    const CTime read(TEXT("03/28/2026 23:30"), CTime::SPEC_MDY_HM);
    const CTime later = read + OS::CTimeSpan(0, 3, 0, 0);
    const CTime distance = CTime(2026, 12, 24, 18, 0, 0) - read;
    show("read from a text      ", read.GetDBTimeString());
    show("three hours later     ", later.GetDBTimeString());
    OS::x_wstring days;
    days.Format(TEXT("%d days, %d hours, %d minutes"), distance.GetDay(), distance.GetHour(),
                distance.GetMinute());
    show("to Christmas Eve      ", days);
    show("the same moment in UTC", CTime(later).ToGMTime().GetDBTimeString());
    std::cout << '\n';
}

// Shows the hour that occurs twice when daylight time ends.
void show_autumn_night() {
    SYSTEMTIME utc = {2026, 10, 0, 25, 0, 30, 0, 0};
    for (; utc.wHour < 3; ++utc.wHour) {
        bool daylight = false;
        const SYSTEMTIME clock = CTimeEx::FromUniversalTime(utc).GetLocalTime(&daylight);
        OS::x_wstring text;
        text.Format(TEXT("%02d:%02d UTC is %02d:%02d, %s time"), int{utc.wHour}, int{utc.wMinute},
                    int{clock.wHour}, int{clock.wMinute},
                    daylight ? TEXT("daylight") : TEXT("standard"));
        show("2026-10-25            ", text);
    }
    const SYSTEMTIME twice = {2026, 10, 0, 25, 2, 30, 0, 0};
    OS::x_wstring text;
    text.Format(TEXT("02:30 is read as %02d:30 UTC, the first of the two"),
                int{CTimeEx::FromLocalTime(twice).GetUniversalTime().wHour});
    show("from the local clock  ", text);
}

}  // namespace

void time_station() {
    setenv("TZ", "Europe/Berlin", 1);  // where daylight time ends that night
    show_now();
    show_arithmetic();
    show_autumn_night();
}
