#ifndef FUZZ_CHECK_H
#define FUZZ_CHECK_H

#include <cstdlib>

// What must hold for every input; the fuzzer reports the one for which it does not.
inline void check(bool holds) {
    if (!holds) {
        std::abort();
    }
}

#endif  // FUZZ_CHECK_H
