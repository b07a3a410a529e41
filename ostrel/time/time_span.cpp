#include "ostrel/time/tc_datetime_utility.h"
#include "ostrel/time/wrapping.h"

namespace OS {

using detail::wrapping_add;
using detail::wrapping_multiply;
using detail::wrapping_subtract;

CTimeSpan::CTimeSpan(LONG days, int hours, int minutes, int seconds) noexcept {
    const LONG total_hours = wrapping_add(wrapping_multiply(days, LONG{24}), LONG{hours});
    const LONG total_minutes =
        wrapping_add(wrapping_multiply(total_hours, LONG{60}), LONG{minutes});
    m_seconds = wrapping_add(wrapping_multiply(total_minutes, LONG{60}), LONG{seconds});
}

LONG CTimeSpan::GetDays() const noexcept {
    return static_cast<LONG>(m_seconds / 86400);
}

LONG CTimeSpan::GetTotalHours() const noexcept {
    return static_cast<LONG>(m_seconds / 3600);
}

int CTimeSpan::GetHours() const noexcept {
    return wrapping_subtract(GetTotalHours(), wrapping_multiply(GetDays(), LONG{24}));
}

LONG CTimeSpan::GetTotalMinutes() const noexcept {
    return static_cast<LONG>(m_seconds / 60);
}

int CTimeSpan::GetMinutes() const noexcept {
    return wrapping_subtract(GetTotalMinutes(), wrapping_multiply(GetTotalHours(), LONG{60}));
}

LONG CTimeSpan::GetTotalSeconds() const noexcept {
    return static_cast<LONG>(m_seconds);
}

int CTimeSpan::GetSeconds() const noexcept {
    return wrapping_subtract(GetTotalSeconds(), wrapping_multiply(GetTotalMinutes(), LONG{60}));
}

CTimeSpan CTimeSpan::operator+(CTimeSpan span) const noexcept {
    return wrapping_add(m_seconds, span.m_seconds);
}

CTimeSpan CTimeSpan::operator-(CTimeSpan span) const noexcept {
    return wrapping_subtract(m_seconds, span.m_seconds);
}

const CTimeSpan &CTimeSpan::operator+=(CTimeSpan span) noexcept {
    return *this = *this + span;
}

const CTimeSpan &CTimeSpan::operator-=(CTimeSpan span) noexcept {
    return *this = *this - span;
}

}  // namespace OS
