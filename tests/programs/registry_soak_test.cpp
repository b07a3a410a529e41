// The proofs of bench/soak, each for a moment.

#include <cstdlib>

#include "support/test.h"

namespace {

TEST(RegistrySoak, HoldsForAMoment) {
    for (const char *proof :
         {"kills 20", "power 20", "order 1", "pages 4", "model 2000", "turns 1000", "crowd 20"}) {
        EXPECT_EQ(std::system((std::string(OSTREL_SOAK " ") + proof).c_str()), 0) << proof;
    }
}

}  // namespace
