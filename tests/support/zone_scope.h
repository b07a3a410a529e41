#ifndef TESTS_SUPPORT_ZONE_SCOPE_H
#define TESTS_SUPPORT_ZONE_SCOPE_H

#include <cstdlib>
#include <ctime>
#include <string>

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
