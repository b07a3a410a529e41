// What the version calls read, and files that change or fail meanwhile: the host's call is defined
// here.

#include <sys/syscall.h>
#include <unistd.h>

#include <functional>

#include "ostrel/platform/version.h"
#include "support/file_calls.h"
#include "support/version_image.h"

namespace {

std::set<off_t> g_pages;          // that were read
std::function<long()> g_at_read;  // may fail a read: returns 0 to go on

}  // namespace

extern "C" ssize_t pread(int file, void *bytes, std::size_t count, off_t offset) {
    if (const ssize_t result = g_at_read ? g_at_read() : 0) {
        return result;
    }
    const ssize_t stored =
        syscall(SYS_pread64, file, bytes, std::min<std::size_t>(count, 1000), offset);
    for (off_t page = offset / 4096; page * 4096 < offset + stored; ++page) {
        g_pages.insert(page);
    }
    return stored;
}

namespace {

const std::string kBlock = version_block(
    {version_texts(u"041104B0", {version_text(u"FileVersion", std::u16string(4000, u'5'))})});

DWORD read_version() {
    char block[0xFFFF];
    return error_of(GetFileVersionInfoW(u"module", 0, sizeof block, block));
}

TEST(VersionReads, CostOfALargeFileIsThatOfTheBlock) {
    const TempDir dir;
    std::string image = pe_version(kBlock);
    patch(&image, kPeHeader + 24 + 240 + 40 + 16, 0x7FFFFFFF, 4);  // the section
    patch(&image, kPeResources + 3 * 24 + 4, 0x40000000, 4);       // the resource
    for (const std::string &content : {image, elf_image({{"GNU", "id"}, {"Ostrel", kBlock}})}) {
        dir.Write("module", content);
        fs::resize_file("module", std::uintmax_t{2} << 30);
        g_pages.clear();
        EXPECT_EQ(read_version(), 0u);
        EXPECT_LE(g_pages.size(), kBlock.size() / 4096 + 4);
    }
}

TEST(VersionReads, EntriesInManySectionsCostNoMore) {
    const TempDir dir;
    constexpr std::size_t kSections = 1000;
    std::string image = pe_version(kBlock).substr(0, kPeResources) +
                        padded(number(0, 14) + number(2 * kSections, 2), 0x200);
    patch(&image, kPeHeader + 6, kSections, 2);
    patch(&image, kPeHeader + 20, image.size() - kPeHeader - 24, 2);
    for (std::size_t i = kSections; i-- > 0;) {  // the header of the table, or two empty entries
        image += number(0, 12) + number(kPeResourceAddress + 16 * i, 4) + number(16, 4) +
                 number(kPeResources + (i == 0 ? 0 : 16), 4) + number(0, 16);
    }
    dir.Write("module", image);
    int reads = 0;
    g_at_read = [&reads] { return ++reads, 0; };
    EXPECT_EQ(read_version(), ERROR_BAD_FORMAT);
    g_at_read = nullptr;
    EXPECT_LT(reads, 100);
}

TEST(VersionReads, OfAFileThatIsCutOrFailsMeanwhileHaveACode) {
    const TempDir dir;
    for (int failing = 0; failing < 3; ++failing) {  // pages
        for (const bool is_cut : {true, false}) {
            dir.Write("module", pe_version(kBlock));
            g_at_read = [=, calls = 0]() mutable -> long {
                errno = EIO;
                return calls++ != failing ? 0 : is_cut ? truncate("module", 3) : -1;
            };
            EXPECT_EQ(read_version(), !is_cut        ? ERROR_IO_DEVICE
                                      : failing == 0 ? ERROR_BAD_EXE_FORMAT
                                                     : ERROR_BAD_FORMAT);
        }
    }
    dir.Write("module", pe_version(kBlock));
    g_at_read = [is_interrupted = false]() mutable {
        errno = EINTR;
        is_interrupted = !is_interrupted;
        return is_interrupted ? -1 : 0;
    };
    EXPECT_EQ(read_version(), 0u);
}

}  // namespace
