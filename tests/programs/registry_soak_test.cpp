// The proofs of tests/soak, each for a moment.

#include <cstdlib>

#include "support/test.h"

namespace {

TEST(RegistrySoak, HoldsForAMoment) {
    for (const char *proof :
         {"kills 40", "power 40", "order 2", "pages 2", "model 3000", "turns 1500", "crowd 20"}) {
        EXPECT_EQ(std::system((std::string(OSTREL_SOAK " ") + proof).c_str()), 0) << proof;
    }
}

}  // namespace
