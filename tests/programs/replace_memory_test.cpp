// FindAndReplaceAll without memory: all is replaced, or the text is as it was.

#include <gtest/gtest.h>

#include "ostrel/core/x_string.h"
#include "support/failing_memory.h"

namespace {

TEST(ReplaceMemory, LeavesTheTextWholeWhicheverAllocationFails) {
    const std::string search = std::string(10, 'a') + 'b' + std::string(9, 'a');
    const std::string tail(40'000, 'a');  // resembles what is searched all along
    for (const char *const replacement : {"x", "longer than what it stands for, and on the heap"}) {
        int failed = 0;
        for (bool done = false; !done; ++failed) {
            OS::x_astring text(search + tail + search);
            const OS::x_astring sought(search), other(replacement), before(text);
            failing_memory::fail_after(failed);
            try {
                text.FindAndReplaceAll(sought, other);
                done = !failing_memory::has_failed();
                failing_memory::fail_after(-1);
                EXPECT_TRUE(text ==
                            replacement + tail.substr(9) + std::string(9, 'a') + replacement)
                    << failed;
            } catch (const std::bad_alloc &) {
                EXPECT_TRUE(text == before) << failed;
            }
        }
        EXPECT_GT(failed, 1);
    }
}

}  // namespace
