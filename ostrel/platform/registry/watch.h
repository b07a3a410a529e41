#ifndef OSTREL_PLATFORM_REGISTRY_WATCH_H
#define OSTREL_PLATFORM_REGISTRY_WATCH_H

namespace ostrel_platform {

class Watch {
public:
    void End() {}
};

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_REGISTRY_WATCH_H
