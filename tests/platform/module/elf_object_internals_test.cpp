#include "ostrel/platform/module/elf_object.h"

#include <sys/mman.h>

#include "ostrel/platform/error.h"
#include "support/file_tree.h"
#include "support/test.h"

namespace {

using namespace ostrel_platform;

TEST(ElfObject, NamesWhatItNeedsAndOutlivesDamage) {
    const std::string bytes = content_of(OSTREL_TEST_MODULES "sample_module.so");
    const HostDescriptor file(memfd_create("object", MFD_CLOEXEC));
    ASSERT_EQ(write_all(file.Get(), bytes.data(), bytes.size()), 0);
    std::vector<std::string> needed;
    EXPECT_EQ(read_object(file.Get(), bytes.size(), &needed), 0u);
    EXPECT_NE(std::find(needed.begin(), needed.end(), "needed_library.so"), needed.end());
    for (const std::size_t size : {bytes.size() / 8, std::size_t{20}}) {
        EXPECT_EQ(read_object(file.Get(), size, &needed), ERROR_BAD_EXE_FORMAT);
    }
    int refused = 0;
    for (off_t at = 0; at < 1024; ++at) {
        for (const char value : {'\xFF', '\x00', '\x7F'}) {
            EXPECT_EQ(pwrite(file.Get(), &value, 1, at), 1);
            refused += read_object(file.Get(), bytes.size(), &needed) != 0 ? 1 : 0;
        }
        EXPECT_EQ(pwrite(file.Get(), &bytes[static_cast<std::size_t>(at)], 1, at), 1);
    }
    EXPECT_GT(refused, 20);
    EXPECT_EQ(ftruncate(file.Get(), 4096), 0);  // a file that has become shorter since
    EXPECT_EQ(read_object(file.Get(), bytes.size(), &needed), 0u);
}

}  // namespace
