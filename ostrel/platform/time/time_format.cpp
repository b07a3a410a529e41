#include <algorithm>
#include <cerrno>
#include <clocale>
#include <cstring>
#include <iterator>

#include "ostrel/platform/time.h"
#include "ostrel/platform/time/calendar.h"
#include "ostrel/platform/time/time_locale.h"
#include "ostrel/platform/timezone.h"

namespace ostrel_platform {

constexpr TimeForms kTimeFormsC = {
    {u"Sunday", u"Monday", u"Tuesday", u"Wednesday", u"Thursday", u"Friday", u"Saturday"},
    {u"Sun", u"Mon", u"Tue", u"Wed", u"Thu", u"Fri", u"Sat"},
    {u"January", u"February", u"March", u"April", u"May", u"June", u"July", u"August", u"September",
     u"October", u"November", u"December"},
    {u"Jan", u"Feb", u"Mar", u"Apr", u"May", u"Jun", u"Jul", u"Aug", u"Sep", u"Oct", u"Nov",
     u"Dec"},
    {u"AM", u"PM"},
    u"%m/%d/%y",
    u"%A, %B %d, %Y",
    u"%H:%M:%S",
    u"%I:%M:%S %p",
    u"%a %b %e %H:%M:%S %Y",
    u"%A, %B %d, %Y %H:%M:%S",
};

namespace {

constexpr int kLastYear = 9999;

// Returns the forms of the process's LC_TIME. Recognises the C locale, in which most processes run,
// without a lookup among the other locales.
const TimeForms &process_forms() {
    const char *const locale = std::setlocale(LC_TIME, nullptr);
    const TimeForms *const forms =
        locale == nullptr || std::strcmp(locale, "C") == 0 ? nullptr : time_forms_of(locale);
    return forms != nullptr ? *forms : kTimeFormsC;
}

constexpr int days_of_year(int year) {
    return 365 + is_leap_year(year);
}

struct IsoWeek {
    int year;
    int week;
};

// Returns the ISO 8601 week of a day. A week begins on Monday and belongs to the year that contains
// its Thursday.
constexpr IsoWeek iso_week(int year, int day_of_year, int weekday) {
    // The Thursday of the week as a day of the year, from 0.
    const int thursday = day_of_year - (weekday + 6) % 7 + 3;
    if (thursday < 0) {
        return {year - 1, (thursday + days_of_year(year - 1)) / 7 + 1};
    }
    const int days = days_of_year(year);
    return thursday >= days ? IsoWeek{year + 1, (thursday - days) / 7 + 1}
                            : IsoWeek{year, thursday / 7 + 1};
}

class TimeWriter {
public:
    TimeWriter(const TimeForms *forms, const std::tm &time, int last_year, WCHAR *text,
               std::size_t capacity)
        : m_forms(forms), m_time(time), m_lastYear(last_year), m_next(text), m_left(capacity - 1) {}

    // Writes the time by `format`. With `short_numbers` omits the leading zeros and blanks of every
    // number except g and G. Returns 0, or the first error: EINVAL or ERANGE.
    int Write(std::u16string_view format, bool short_numbers) {
        const WCHAR *at = format.data();
        const WCHAR *const end = at + format.size();
        while (at != end) {
            if (*at != u'%') {
                Put(*at++);
                continue;
            }
            ++at;
            const bool alternate = at != end && *at == u'#';
            at += alternate;
            at += at != end && (*at == u'E' || *at == u'O');
            if (at == end) {
                return EINVAL;
            }
            WriteDirective(*at++, alternate, alternate || short_numbers);
            if (m_error != 0) {
                return m_error;
            }
        }
        return m_error;
    }

    WCHAR *End() const { return m_next; }

private:
    const TimeForms &Forms() {
        if (m_forms == nullptr) {
            m_forms = &process_forms();
        }
        return *m_forms;
    }

    void Fail(int error) {
        if (m_error == 0) {
            m_error = error;
        }
    }

    void Put(WCHAR character) {
        if (m_left == 0) {
            Fail(ERANGE);
            return;
        }
        --m_left;
        *m_next++ = character;
    }

    void Put(std::u16string_view text) {
        if (text.size() > m_left) {
            Fail(ERANGE);
            return;
        }
        m_left -= text.size();
        m_next = std::copy(text.begin(), text.end(), m_next);
    }

    // Writes a number that is not negative, padded on the left with `fill` to `digits` characters.
    void Number(int number, int digits, WCHAR fill = u'0') {
        WCHAR reversed[12];
        int count = 0;
        do {
            reversed[count++] = static_cast<WCHAR>(u'0' + number % 10);
            number /= 10;
        } while (number != 0);
        while (count < digits) {
            reversed[count++] = fill;
        }
        while (count > 0) {
            Put(reversed[--count]);
        }
    }

    // Returns `value`. Outside the range fails with EINVAL and returns `first`; what is written
    // then is discarded.
    int Field(int value, int first, int last) {
        if (value < first || value > last) {
            Fail(EINVAL);
            return first;
        }
        return value;
    }
    int Year() { return Field(m_time.tm_year, -1900, m_lastYear - 1900) + 1900; }
    int Month() { return Field(m_time.tm_mon, 0, 11); }
    int Day() { return Field(m_time.tm_mday, 1, 31); }
    int Hour() { return Field(m_time.tm_hour, 0, 23); }
    int Minute() { return Field(m_time.tm_min, 0, 59); }
    int Second() { return Field(m_time.tm_sec, 0, 60); }
    int Weekday() { return Field(m_time.tm_wday, 0, 6); }
    int DayOfYear() { return Field(m_time.tm_yday, 0, 365); }

    IsoWeek Iso() { return iso_week(Year(), DayOfYear(), Weekday()); }
    // Near the first and the last day of the range, the year of the week may be out of range.
    int IsoYear() { return Field(Iso().year, 0, m_lastYear); }

    // Returns the week of the year. Weeks begin on the weekday `first`; the days before the first
    // such weekday are in week 0.
    int Week(int first) { return (DayOfYear() + 7 - (Weekday() + 7 - first) % 7) / 7; }

    void WriteDirective(WCHAR directive, bool alternate, bool short_numbers) {
        if (!WriteNumber(directive, short_numbers) && !WriteName(directive) &&
            !WriteForm(directive, alternate, short_numbers)) {
            Fail(EINVAL);
        }
    }

    // This function and the next two return false when the directive is not of their kind.
    bool WriteNumber(WCHAR directive, bool short_numbers) {
        const int two = short_numbers ? 1 : 2;
        const int three = short_numbers ? 1 : 3;
        const int four = short_numbers ? 1 : 4;
        switch (directive) {
            case u'C':
                return Number(Year() / 100, two), true;
            case u'd':
                return Number(Day(), two), true;
            case u'e':
                return Number(Day(), two, u' '), true;
            case u'g':
                return Number(IsoYear() % 100, 2), true;
            case u'G':
                return Number(IsoYear(), 4), true;
            case u'H':
                return Number(Hour(), two), true;
            case u'I':
                return Number((Hour() + 11) % 12 + 1, two), true;
            case u'j':
                return Number(DayOfYear() + 1, three), true;
            case u'm':
                return Number(Month() + 1, two), true;
            case u'M':
                return Number(Minute(), two), true;
            case u'S':
                return Number(Second(), two), true;
            case u'u':
                return Number((Weekday() + 6) % 7 + 1, 1), true;
            case u'U':
                return Number(Week(0), two), true;
            case u'V':
                return Number(Iso().week, two), true;
            case u'w':
                return Number(Weekday(), 1), true;
            case u'W':
                return Number(Week(1), two), true;
            case u'y':
                return Number(Year() % 100, two), true;
            case u'Y':
                return Number(Year(), four), true;
            default:
                return false;
        }
    }

    bool WriteName(WCHAR directive) {
        switch (directive) {
            case u'a':
                return Put(Forms().short_weekdays[Weekday()]), true;
            case u'A':
                return Put(Forms().weekdays[Weekday()]), true;
            case u'b':
            case u'h':
                return Put(Forms().short_months[Month()]), true;
            case u'B':
                return Put(Forms().months[Month()]), true;
            case u'n':
                return Put(u'\n'), true;
            case u'p':
                return Put(Forms().halves[Hour() / 12]), true;
            case u't':
                return Put(u'\t'), true;
            case u'z':
            case u'Z':
                return WriteZone(directive == u'Z'), true;
            case u'%':
                return Put(u'%'), true;
            default:
                return false;
        }
    }

    bool WriteForm(WCHAR directive, bool alternate, bool short_numbers) {
        switch (directive) {
            case u'c':
                return Write(alternate ? Forms().long_date_time : Forms().date_time, false), true;
            case u'D':
                return Write(u"%m/%d/%y", short_numbers), true;
            case u'F':
                return Write(u"%Y-%m-%d", short_numbers), true;
            case u'r':
                return Write(Forms().half_day_time, short_numbers), true;
            case u'R':
                return Write(u"%H:%M", short_numbers), true;
            case u'T':
                return Write(u"%H:%M:%S", short_numbers), true;
            case u'x':
                return Write(alternate ? Forms().long_date : Forms().date, false), true;
            case u'X':
                return Write(Forms().time, false), true;
            default:
                return false;
        }
    }

    void WriteZone(bool name) {
        TIME_ZONE_INFORMATION zone;
        GetTimeZoneInformation(&zone);
        const bool daylight = m_time.tm_isdst > 0 && zone.DaylightDate.wMonth != 0;
        if (name) {
            Put(daylight ? zone.DaylightName : zone.StandardName);
            return;
        }
        const int minutes = -zone.Bias - (daylight ? zone.DaylightBias : zone.StandardBias);
        Put(minutes < 0 ? u'-' : u'+');
        const int distance = minutes < 0 ? -minutes : minutes;
        Number(distance / 60, 2);
        Number(distance % 60, 2);
    }

    const TimeForms *m_forms;
    const std::tm &m_time;
    const int m_lastYear;
    WCHAR *m_next;
    std::size_t m_left;  // without the NUL
    int m_error = 0;
};

}  // namespace

std::size_t write_time(const TimeForms *forms, std::u16string_view format, const std::tm &time,
                       int last_year, WCHAR *text, std::size_t capacity, int *error) noexcept {
    TimeWriter writer(forms, time, last_year, text, capacity);
    const int fault = writer.Write(format, false);
    if (fault != 0) {
        *error = fault;
        *text = 0;
        return 0;
    }
    *writer.End() = 0;
    return static_cast<std::size_t>(writer.End() - text);
}

}  // namespace ostrel_platform

std::size_t wcsftime(WCHAR *text, std::size_t capacity, const WCHAR *format,
                     const std::tm *time) noexcept {
    if (text == nullptr || capacity == 0) {
        errno = EINVAL;
        return 0;
    }
    if (format == nullptr || time == nullptr) {
        errno = EINVAL;
        *text = 0;
        return 0;
    }
    // A missing zone or locale file sets errno but is no failure, so a success restores errno.
    int error = errno;
    const std::size_t length = ostrel_platform::write_time(
        nullptr, format, *time, ostrel_platform::kLastYear, text, capacity, &error);
    errno = error;
    return length;
}
