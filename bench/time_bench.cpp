// Calendar times in the zone Europe/Berlin. Each job runs over a thousand moments of 1990 to 2030
// in random order. Boost.Date_Time and POCO's DateTime know no zone: where they build, compare and
// add they do so in UTC.

#include <absl/time/civil_time.h>
#include <absl/time/time.h>
#include <benchmark/benchmark.h>

#include <Poco/DateTimeFormatter.h>
#include <Poco/LocalDateTime.h>
#include <Poco/Timespan.h>
#include <QDateTime>
#include <boost/date_time/c_local_time_adjustor.hpp>
#include <boost/date_time/posix_time/posix_time.hpp>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <random>
#include <string>
#include <vector>

#include "ostrel/time/tc_datetime_utility.h"
#include "ostrel/time/time_ex.h"

namespace {

namespace posix_time = boost::posix_time;

constexpr int kMoments = 1000;

struct Moment {
    std::int64_t time;
    std::tm local;
    std::tm utc;
};

const std::vector<Moment> &moments() {
    static const std::vector<Moment> made = [] {
        setenv("TZ", "Europe/Berlin", 1);
        tzset();
        std::mt19937 random(1);
        std::vector<Moment> all(kMoments);
        for (Moment &moment : all) {
            moment.time = 631152000 + static_cast<std::int64_t>(random() % 1262304000);
            localtime_r(&moment.time, &moment.local);
            gmtime_r(&moment.time, &moment.utc);
        }
        return all;
    }();
    return made;
}

absl::TimeZone abseil_zone() {
    absl::TimeZone zone;
    absl::LoadTimeZone("Europe/Berlin", &zone);
    return zone;
}

absl::CivilSecond civil(const std::tm &t) {
    return absl::CivilSecond(t.tm_year + 1900, t.tm_mon + 1, t.tm_mday, t.tm_hour, t.tm_min,
                             t.tm_sec);
}

OS::CTime ostrel_time(const std::tm &t) {
    return {t.tm_year + 1900, t.tm_mon + 1, t.tm_mday, t.tm_hour, t.tm_min, t.tm_sec};
}

QDateTime qt_time(const std::tm &t) {
    return {QDate(t.tm_year + 1900, t.tm_mon + 1, t.tm_mday), QTime(t.tm_hour, t.tm_min, t.tm_sec)};
}

posix_time::ptime boost_time(const std::tm &t) {
    return {boost::gregorian::date(static_cast<unsigned short>(t.tm_year + 1900),
                                   static_cast<unsigned short>(t.tm_mon + 1),
                                   static_cast<unsigned short>(t.tm_mday)),
            posix_time::time_duration(t.tm_hour, t.tm_min, t.tm_sec)};
}

Poco::DateTime poco_time(const std::tm &t) {
    return {t.tm_year + 1900, t.tm_mon + 1, t.tm_mday, t.tm_hour, t.tm_min, t.tm_sec};
}

// Runs `job` on each moment and the one behind it; what is reported is the time for one.
template <class Job>
void run(benchmark::State &state, Job job) {
    const std::vector<Moment> &all = moments();
    std::size_t at = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(job(all[at], all[(at + 1) % kMoments]));
        at = (at + 1) % kMoments;
    }
}

void BuildAndCompare_Ostrel(benchmark::State &state) {
    run(state, [](const Moment &a, const Moment &b) {
        return ostrel_time(a.local) < ostrel_time(b.local);
    });
}
void BuildAndCompare_Glibc(benchmark::State &state) {
    run(state, [](const Moment &a, const Moment &b) {
        std::tm left = a.local;
        std::tm right = b.local;
        left.tm_isdst = right.tm_isdst = -1;
        return std::mktime(&left) < std::mktime(&right);
    });
}
void BuildAndCompare_Abseil(benchmark::State &state) {
    const absl::TimeZone zone = abseil_zone();
    run(state, [&](const Moment &a, const Moment &b) {
        return absl::FromCivil(civil(a.local), zone) < absl::FromCivil(civil(b.local), zone);
    });
}
void BuildAndCompare_Boost(benchmark::State &state) {
    run(state,
        [](const Moment &a, const Moment &b) { return boost_time(a.local) < boost_time(b.local); });
}
void BuildAndCompare_Qt(benchmark::State &state) {
    run(state,
        [](const Moment &a, const Moment &b) { return qt_time(a.local) < qt_time(b.local); });
}
void BuildAndCompare_Poco(benchmark::State &state) {
    run(state,
        [](const Moment &a, const Moment &b) { return poco_time(a.local) < poco_time(b.local); });
}

void AddSpan_Ostrel(benchmark::State &state) {
    run(state, [](const Moment &a, const Moment &) {
        return (ostrel_time(a.local) + OS::CTimeSpan(36 * 3600)).GetHour();
    });
}
void AddSpan_Glibc(benchmark::State &state) {
    run(state, [](const Moment &a, const Moment &) {
        std::tm fields = a.local;
        fields.tm_isdst = -1;
        const std::time_t time = std::mktime(&fields) + 36 * 3600;
        return localtime_r(&time, &fields)->tm_hour;
    });
}
void AddSpan_Abseil(benchmark::State &state) {
    const absl::TimeZone zone = abseil_zone();
    run(state, [&](const Moment &a, const Moment &) {
        return absl::ToCivilSecond(absl::FromCivil(civil(a.local), zone) + absl::Hours(36), zone)
            .hour();
    });
}
void AddSpan_Boost(benchmark::State &state) {
    run(state, [](const Moment &a, const Moment &) {
        return (boost_time(a.local) + posix_time::hours(36)).time_of_day().hours();
    });
}
void AddSpan_Qt(benchmark::State &state) {
    run(state, [](const Moment &a, const Moment &) {
        return qt_time(a.local).addSecs(36 * 3600).time().hour();
    });
}
void AddSpan_Poco(benchmark::State &state) {
    run(state, [](const Moment &a, const Moment &) {
        return (poco_time(a.local) + Poco::Timespan(1, 12, 0, 0, 0)).hour();
    });
}

void UtcToLocalAndBack_Ostrel(benchmark::State &state) {
    run(state, [](const Moment &a, const Moment &) { return OS::CTime(a.time).GetTime(); });
}
void UtcToLocalAndBack_Glibc(benchmark::State &state) {
    run(state, [](const Moment &a, const Moment &) {
        std::tm fields;
        localtime_r(&a.time, &fields);
        return std::mktime(&fields);
    });
}
void UtcToLocalAndBack_Abseil(benchmark::State &state) {
    const absl::TimeZone zone = abseil_zone();
    run(state, [&](const Moment &a, const Moment &) {
        return absl::ToUnixSeconds(
            absl::FromCivil(absl::ToCivilSecond(absl::FromUnixSeconds(a.time), zone), zone));
    });
}
void UtcToLocal_Boost(benchmark::State &state) {  // it has no way back
    run(state, [](const Moment &a, const Moment &) {
        return boost::date_time::c_local_adjustor<posix_time::ptime>::utc_to_local(
                   boost_time(a.utc))
            .time_of_day()
            .hours();
    });
}
void UtcToLocalAndBack_Qt(benchmark::State &state) {
    run(state, [](const Moment &a, const Moment &) {
        const QDateTime local = QDateTime::fromSecsSinceEpoch(a.time);
        return QDateTime(local.date(), local.time()).toSecsSinceEpoch();
    });
}
void UtcToLocalAndBack_Poco(benchmark::State &state) {
    run(state, [](const Moment &a, const Moment &) {
        return Poco::LocalDateTime(Poco::DateTime(Poco::Timestamp::fromEpochTime(a.time)))
            .timestamp()
            .epochTime();
    });
}

void DbText_Ostrel(benchmark::State &state) {
    run(state,
        [](const Moment &a, const Moment &) { return ostrel_time(a.local).GetDBTimeString(); });
}
void DbText_Glibc(benchmark::State &state) {
    run(state, [](const Moment &a, const Moment &) {
        char text[32];
        return std::string(text, std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &a.local));
    });
}
void DbText_Abseil(benchmark::State &state) {
    const absl::TimeZone zone = abseil_zone();
    run(state, [&](const Moment &a, const Moment &) {
        return absl::FormatTime("%Y-%m-%d %H:%M:%S", absl::FromUnixSeconds(a.time), zone);
    });
}
void DbText_Boost(benchmark::State &state) {
    run(state, [](const Moment &a, const Moment &) {
        return posix_time::to_iso_extended_string(boost_time(a.local));
    });
}
void DbText_Qt(benchmark::State &state) {
    run(state, [](const Moment &a, const Moment &) {
        return qt_time(a.local).toString(QStringLiteral("yyyy-MM-dd HH:mm:ss"));
    });
}
void DbText_Poco(benchmark::State &state) {
    run(state, [](const Moment &a, const Moment &) {
        return Poco::DateTimeFormatter::format(poco_time(a.local), "%Y-%m-%d %H:%M:%S");
    });
}

// A local clock to UTC fields with milliseconds.
void FromLocalClock_Ostrel(benchmark::State &state) {
    run(state, [](const Moment &a, const Moment &) {
        return OS::CTimeEx::FromLocalTime(a.local).GetUniversalTime().wHour;
    });
}
void FromLocalClock_Glibc(benchmark::State &state) {
    run(state, [](const Moment &a, const Moment &) {
        std::tm fields = a.local;
        fields.tm_isdst = -1;
        const std::time_t time = std::mktime(&fields);
        return gmtime_r(&time, &fields)->tm_hour;
    });
}
void FromLocalClock_Abseil(benchmark::State &state) {
    const absl::TimeZone zone = abseil_zone();
    run(state, [&](const Moment &a, const Moment &) {
        return absl::ToCivilSecond(absl::FromCivil(civil(a.local), zone), absl::UTCTimeZone())
            .hour();
    });
}
void FromLocalClock_Qt(benchmark::State &state) {
    run(state,
        [](const Moment &a, const Moment &) { return qt_time(a.local).toUTC().time().hour(); });
}
void FromLocalClock_Poco(benchmark::State &state) {
    run(state, [](const Moment &a, const Moment &) {
        const std::tm &t = a.local;
        return Poco::LocalDateTime(t.tm_year + 1900, t.tm_mon + 1, t.tm_mday, t.tm_hour, t.tm_min,
                                   t.tm_sec)
            .utc()
            .hour();
    });
}

BENCHMARK(BuildAndCompare_Ostrel);
BENCHMARK(BuildAndCompare_Glibc);
BENCHMARK(BuildAndCompare_Abseil);
BENCHMARK(BuildAndCompare_Boost);
BENCHMARK(BuildAndCompare_Qt);
BENCHMARK(BuildAndCompare_Poco);
BENCHMARK(AddSpan_Ostrel);
BENCHMARK(AddSpan_Glibc);
BENCHMARK(AddSpan_Abseil);
BENCHMARK(AddSpan_Boost);
BENCHMARK(AddSpan_Qt);
BENCHMARK(AddSpan_Poco);
BENCHMARK(UtcToLocalAndBack_Ostrel);
BENCHMARK(UtcToLocalAndBack_Glibc);
BENCHMARK(UtcToLocalAndBack_Abseil);
BENCHMARK(UtcToLocal_Boost);
BENCHMARK(UtcToLocalAndBack_Qt);
BENCHMARK(UtcToLocalAndBack_Poco);
BENCHMARK(DbText_Ostrel);
BENCHMARK(DbText_Glibc);
BENCHMARK(DbText_Abseil);
BENCHMARK(DbText_Boost);
BENCHMARK(DbText_Qt);
BENCHMARK(DbText_Poco);
BENCHMARK(FromLocalClock_Ostrel);
BENCHMARK(FromLocalClock_Glibc);
BENCHMARK(FromLocalClock_Abseil);
BENCHMARK(FromLocalClock_Qt);
BENCHMARK(FromLocalClock_Poco);

}  // namespace
