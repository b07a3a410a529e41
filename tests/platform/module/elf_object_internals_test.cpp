#include "ostrel/platform/module/elf_object.h"

#include <sys/mman.h>

#include "ostrel/platform/error.h"
#include "support/file_tree.h"
#include "support/test.h"

namespace {

using namespace ostrel_platform;

// An open file in memory with this content.
HostDescriptor file_of(const std::string &bytes) {
    HostDescriptor file(memfd_create("object", MFD_CLOEXEC));
    EXPECT_EQ(write_all(file.Get(), bytes.data(), bytes.size()), 0);
    return file;
}

DWORD read_bytes(const std::string &bytes, std::vector<std::string> *needed) {
    return read_object(file_of(bytes).Get(), bytes.size(), needed);
}

TEST(ElfObject, NamesWhatItNeeds) {
    const std::string bytes = content_of(OSTREL_TEST_MODULES "sample_module.so");
    std::vector<std::string> needed;
    EXPECT_EQ(read_bytes(bytes, &needed), 0u);
    EXPECT_NE(std::find(needed.begin(), needed.end(), "needed_library.so"), needed.end());
    EXPECT_EQ(read_object(file_of(bytes.substr(0, 4096)).Get(), bytes.size(), &needed),
              ERROR_SUCCESS);  // a file that has become shorter since
    EXPECT_EQ(read_bytes(bytes.substr(0, bytes.size() / 8), &needed), ERROR_BAD_EXE_FORMAT);
    EXPECT_EQ(read_bytes(bytes.substr(0, 20), &needed), ERROR_BAD_EXE_FORMAT);
}

TEST(ElfObject, OutlivesDamage) {
    std::string bytes = content_of(OSTREL_TEST_MODULES "sample_module.so");
    const HostDescriptor file = file_of(bytes);
    int refused = 0;
    for (off_t at = 0; at < 1024; ++at) {
        for (const char value : {'\xFF', '\x00', '\x7F'}) {
            std::vector<std::string> needed;
            EXPECT_EQ(pwrite(file.Get(), &value, 1, at), 1);
            refused += read_object(file.Get(), bytes.size(), &needed) != 0 ? 1 : 0;
        }
        EXPECT_EQ(pwrite(file.Get(), &bytes[static_cast<std::size_t>(at)], 1, at), 1);
    }
    EXPECT_GT(refused, 20);
}

}  // namespace
