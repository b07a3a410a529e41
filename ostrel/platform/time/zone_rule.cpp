#include "ostrel/platform/time/zone_rule.h"

#include <algorithm>
#include <utility>

#include "ostrel/platform/base/ascii.h"
#include "ostrel/platform/time/calendar.h"

namespace ostrel_platform {
namespace {

constexpr int kDaysBefore[] = {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334, 365};

constexpr int kMaxHoursOfOffset = 24;
constexpr int kMaxHoursOfTime = 167;

// Reads the parts of a rule. After the first error Failed returns true, and what is read is
// meaningless but within its limits.
class RuleParser {
public:
    explicit RuleParser(std::string_view text) : m_text(text) {}

    bool AtEnd() const { return m_text.empty(); }
    bool Failed() const { return m_failed; }

    bool StandsAt(char c) const { return !m_text.empty() && m_text.front() == c; }

    bool Skip(char c) {
        const bool found = StandsAt(c);
        m_text.remove_prefix(found);
        return found;
    }

    void Require(char c) { m_failed = !Skip(c) || m_failed; }

    // Reads a name of three or more letters, or of three or more letters, digits and signs between
    // < and >.
    std::string Name() {
        const bool quoted = Skip('<');
        std::size_t length = 0;
        while (length < m_text.size() && IsOfName(m_text[length], quoted)) {
            ++length;
        }
        std::string name(m_text.substr(0, length));
        m_text.remove_prefix(length);
        if (quoted) {
            Require('>');
        }
        m_failed = m_failed || length < 3;
        return name;
    }

    int Number(int least, int most) {
        int number = 0;
        std::size_t digits = 0;
        for (; digits < m_text.size() && digits < 4 && is_digit(m_text[digits]); ++digits) {
            number = number * 10 + (m_text[digits] - '0');
        }
        m_text.remove_prefix(digits);
        m_failed = m_failed || digits == 0 || number < least || number > most;
        return m_failed ? least : number;
    }

    // Reads [+-]hh[:mm[:ss]]. Returns seconds.
    std::int64_t Time(int most_hours) {
        const bool negative = Skip('-');
        if (!negative) {
            Skip('+');
        }
        std::int64_t seconds = std::int64_t{Number(0, most_hours)} * 3600;
        if (Skip(':')) {
            seconds += std::int64_t{Number(0, 59)} * 60;
            if (Skip(':')) {
                seconds += Number(0, 59);
            }
        }
        return negative ? -seconds : seconds;
    }

    // Reads Mm.n.d, Jn or n, with an optional time behind a slash.
    RuleDate Date() {
        RuleDate date;
        if (Skip('M')) {
            date.form = RuleDate::Form::kWeekday;
            date.month = Number(1, 12);
            Require('.');
            date.day = Number(1, 5);
            Require('.');
            date.weekday = Number(0, 6);
        } else if (Skip('J')) {
            date.form = RuleDate::Form::kDayOfPlainYear;
            date.day = Number(1, 365);
        } else {
            date.day = Number(0, 365);
        }
        if (Skip('/')) {
            date.seconds = Time(kMaxHoursOfTime);
        }
        return date;
    }

private:
    static bool IsOfName(char c, bool quoted) {
        return is_letter(c) || (quoted && (is_digit(c) || c == '+' || c == '-'));
    }

    std::string_view m_text;
    bool m_failed = false;
};

void swap_negative_dst(ZoneRule *rule) {
    std::swap(rule->standard, rule->daylight);
    std::swap(rule->standard_name, rule->daylight_name);
    std::swap(rule->standard_begins, rule->daylight_begins);
}

}  // namespace

RuleYear::RuleYear(std::int64_t number)
    : first_day(days_from_civil(number, 1, 1)), is_leap(is_leap_year(number)) {}

std::int64_t RuleDate::InYear(const RuleYear &year) const {
    const bool leap_day_before = year.is_leap && month > 2;
    std::int64_t days = year.first_day;
    switch (form) {
        case Form::kWeekday: {
            days += kDaysBefore[month - 1] + leap_day_before;
            const int to_weekday = (weekday + 7 - weekday_of(days)) % 7;
            const int length = kDaysBefore[month] - kDaysBefore[month - 1];
            const int in_month = to_weekday + 7 * (day - 1);
            days += in_month < length + (year.is_leap && month == 2) ? in_month : in_month - 7;
            break;
        }
        case Form::kDayOfMonth:
            days += kDaysBefore[month - 1] + leap_day_before + day - 1;
            break;
        case Form::kDayOfYear:
            days += day;
            break;
        case Form::kDayOfPlainYear:
            days += day - 1 + (day >= 60 && year.is_leap);
            break;
    }
    return days * kSecondsOfDay + seconds;
}

std::int64_t ZoneRule::DaylightBegins(const RuleYear &year) const {
    return daylight_begins.InYear(year) - standard;
}

std::int64_t ZoneRule::StandardBegins(const RuleYear &year) const {
    return standard_begins.InYear(year) - daylight;
}

// Divides a year into three parts: its first days and its last days, where changes of the
// neighbouring years can lie too, and the days between. The interval ends where its part ends.
ZoneInterval ZoneRule::At(std::int64_t time) const {
    if (!has_daylight) {
        return {kTimeBegin, kTimeEnd, standard, standard, standard_name.c_str(), false};
    }
    constexpr int kFirstDays = 10;
    constexpr int kLastDays = 355;
    const std::int64_t today = floor_quotient(time + standard, kSecondsOfDay);
    const CivilDay date = civil_from_days(today);
    const bool at_edge = date.day_of_year < kFirstDays || date.day_of_year >= kLastDays;
    std::int64_t before = kTimeBegin;
    std::int64_t behind = kTimeEnd;
    bool now = false;
    bool next = false;
    const auto consider = [&](std::int64_t change, bool to_daylight) {
        if (change <= time && change >= before) {
            before = change;
            now = to_daylight;
        } else if (change > time && change < behind) {
            behind = change;
            next = to_daylight;
        }
    };
    const auto consider_both = [&](const RuleYear &year) {
        consider(StandardBegins(year), false);
        consider(DaylightBegins(year), true);  // last, so that it wins when both are at once
    };
    const RuleYear this_year(today - date.day_of_year, is_leap_year(date.year));
    if (!at_edge) {
        consider_both(this_year);
    } else {
        consider_both(RuleYear(date.year - 1));
        consider_both(this_year);
        consider_both(RuleYear(date.year + 1));
    }
    if (before == kTimeBegin) {
        now = !next;
    }
    const auto part = [&](int day) {
        return (this_year.first_day + day) * kSecondsOfDay - standard;
    };
    const int first = !at_edge ? kFirstDays : date.day_of_year < kFirstDays ? 0 : kLastDays;
    const int last = !at_edge                        ? kLastDays
                     : date.day_of_year < kFirstDays ? kFirstDays
                                                     : 365 + this_year.is_leap;
    return {std::max(before, part(first)),
            std::min(behind, part(last)),
            now ? daylight : standard,
            standard,
            (now ? daylight_name : standard_name).c_str(),
            now};
}

std::optional<ZoneRule> parse_zone_rule(std::string_view text) {
    RuleParser parser(text);
    ZoneRule rule;
    rule.standard_name = parser.Name();
    rule.standard = -parser.Time(kMaxHoursOfOffset);
    rule.daylight = rule.standard;
    rule.has_daylight = !parser.AtEnd();
    if (rule.has_daylight && !parser.Failed()) {
        rule.daylight_name = parser.Name();
        rule.daylight = rule.standard + 3600;
        if (!parser.AtEnd() && !parser.StandsAt(',')) {
            rule.daylight = -parser.Time(kMaxHoursOfOffset);
        }
        RuleParser united_states(",M3.2.0,M11.1.0");
        RuleParser &from = parser.AtEnd() ? united_states : parser;
        from.Require(',');
        rule.daylight_begins = from.Date();
        from.Require(',');
        rule.standard_begins = from.Date();
    }
    if (parser.Failed() || !parser.AtEnd()) {
        return std::nullopt;
    }
    if (rule.has_daylight && rule.daylight < rule.standard) {
        swap_negative_dst(&rule);
    }
    return rule;
}

}  // namespace ostrel_platform
