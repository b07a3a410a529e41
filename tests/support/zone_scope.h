#ifndef TESTS_SUPPORT_ZONE_SCOPE_H
#define TESTS_SUPPORT_ZONE_SCOPE_H

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>

#include "ostrel/platform/time.h"

inline std::string text(const SYSTEMTIME &of) {
    char buffer[80];
    std::snprintf(buffer, sizeof buffer, "%u-%02u-%02u (%u) %02u:%02u:%02u.%03u", of.wYear,
                  of.wMonth, of.wDay, of.wDayOfWeek, of.wHour, of.wMinute, of.wSecond,
                  of.wMilliseconds);
    return buffer;
}

// The local zone for the length of a scope, the layer's and the host's.
class ZoneScope {
public:
    explicit ZoneScope(const std::string &zone) {
        setenv("TZ", zone.c_str(), 1);
        tzset();
    }
    ~ZoneScope() {
        unsetenv("TZ");
        tzset();
    }
    ZoneScope &operator=(ZoneScope &&) = delete;  // nor copied
};

#endif  // TESTS_SUPPORT_ZONE_SCOPE_H
