// What the version calls read, and files that change or fail meanwhile: the host's call is defined
// here.

#include <sys/syscall.h>
#include <unistd.h>

#include <functional>

#include "ostrel/platform/version.h"
#include "support/file_calls.h"
#include "support/version_image.h"

namespace {

std::set<off_t> g_pages;                       // that were read
std::function<ssize_t(int)> g_at_read;         // may fail a read: returns 0 to go on
std::size_t g_longest = std::size_t{1} << 20;  // bytes of a read

}  // namespace

extern "C" ssize_t pread(int file, void *bytes, std::size_t count, off_t offset) {
    if (g_at_read) {
        const ssize_t result = g_at_read(file);
        if (result != 0) {
            return result;
        }
    }
    const ssize_t stored = syscall(SYS_pread64, file, bytes, std::min(count, g_longest), offset);
    for (off_t page = offset / 4096; page * 4096 < offset + stored; ++page) {
        g_pages.insert(page);
    }
    return stored;
}

namespace {

const std::string kBlock = version_block(
    {version_texts(u"041104B0", {version_text(u"FileVersion", std::u16string(4000, u'5'))})});

DWORD read_version(const WCHAR *path) {
    char block[0xFFFF];
    g_pages.clear();
    return error_of(GetFileVersionInfoW(path, 0, sizeof block, block));
}

TEST(VersionReads, CostOfALargeFileIsThatOfTheBlock) {
    const TempDir dir;
    const auto pages_of_block = kBlock.size() / 4096 + 2;
    for (const std::string &image :
         {pe_version(kBlock), elf_image({{"GNU", "id"}, {"Ostrel", kBlock}})}) {
        dir.Write("module", image);
        fs::resize_file("module", std::uintmax_t{2} << 30);
        EXPECT_EQ(read_version(u"module"), 0u);
        EXPECT_LE(g_pages.size(), pages_of_block + 2);
    }
    // A resource of 1 GB is read as far as its block goes.
    std::string image = pe_version(kBlock);
    constexpr std::size_t kSection = kPeHeader + 24 + 240 + 40;
    patch(&image, kSection + 16, 0x7FFFFFFF, 4);
    patch(&image, kPeResources + 3 * 24 + 4, 0x40000000, 4);
    dir.Write("module", image);
    EXPECT_EQ(read_version(u"module"), 0u);
    EXPECT_LE(g_pages.size(), pages_of_block + 2);
}

TEST(VersionReads, EntriesInManySectionsCostNoMore) {
    const TempDir dir;
    constexpr std::size_t kSections = 1000, kOptional = kPeHeader + 24;
    std::string image = pe_image(64, number(0, 14) + number(2 * kSections, 2));
    patch(&image, kPeHeader + 6, kSections, 2);
    patch(&image, kPeHeader + 20, image.size() - kOptional, 2);
    for (std::size_t i = kSections; i-- > 0;) {  // the header of the table, or two empty entries
        image += number(0, 12) + number(kPeResourceAddress + 16 * i, 4) + number(16, 4) +
                 number(kPeResources + (i == 0 ? 0 : 16), 4) + number(0, 16);
    }
    dir.Write("module", image);
    int reads = 0;
    g_at_read = [&reads](int) { return ++reads, 0; };
    EXPECT_EQ(read_version(u"module"), ERROR_BAD_FORMAT);
    g_at_read = nullptr;
    EXPECT_LT(reads, 20);
}

TEST(VersionReads, GoOnAfterInterruptionsAndShortReads) {
    const TempDir dir;
    dir.Write("module", pe_version(kBlock));
    g_longest = 100;
    g_at_read = [interrupted = false](int) mutable {
        interrupted = !interrupted;
        errno = EINTR;
        return interrupted ? -1 : 0;
    };
    EXPECT_EQ(read_version(u"module"), 0u);
    g_at_read = nullptr;
    g_longest = std::size_t{1} << 20;
}

TEST(VersionReads, OfAFileThatIsCutOrFailsMeanwhileHaveACode) {
    const TempDir dir;
    for (int failing = 0;; ++failing) {
        for (const bool is_cut : {true, false}) {
            dir.Write("module", pe_version(kBlock));
            int calls = 0;
            bool is_done = false;
            g_at_read = [&](int) -> ssize_t {
                if (calls++ != failing) {
                    return 0;
                }
                is_done = true;
                errno = EIO;
                return is_cut ? truncate("module", 3) : -1;
            };
            const DWORD code = read_version(u"module");
            g_at_read = nullptr;
            if (!is_done) {
                EXPECT_EQ(code, 0u);
                EXPECT_EQ(failing, 3);  // pages
                return;
            }
            EXPECT_EQ(code, !is_cut        ? ERROR_IO_DEVICE
                            : failing == 0 ? ERROR_BAD_EXE_FORMAT
                                           : ERROR_BAD_FORMAT);
        }
    }
}

}  // namespace
