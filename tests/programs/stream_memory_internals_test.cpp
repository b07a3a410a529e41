// Streams when memory is short.

#include <cerrno>

#include "ostrel/platform/stream.h"
#include "support/failing_memory.h"
#include "support/temp_dir.h"
#include "support/test.h"

namespace {

TEST(StreamMemory, AFailedOpenLeavesTheFile) {
    const TempDir dir;
    dir.Write("file", "x\n");
    for (const WCHAR *mode : {TEXT("r"), TEXT("w")}) {
        for (int left = 0, error = ENOMEM; error != 0; ++left) {
            EXPECT_EQ(fs::file_size("file"), 2u) << left;
            failing_memory::fail_after(left);
            std::FILE *const file = _wfopen(TEXT("file"), mode);
            failing_memory::fail_after(-1);
            error = file == nullptr ? errno : std::fclose(file);
            EXPECT_TRUE(error == 0 || error == ENOMEM) << left;
        }
    }
    EXPECT_EQ(fs::file_size("file"), 0u);
}

}  // namespace
