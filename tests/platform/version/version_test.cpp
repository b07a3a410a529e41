#include "ostrel/platform/version.h"

#include "support/file_calls.h"
#include "support/text.h"
#include "support/version_image.h"

namespace {

// The version block of a file in a buffer of just `capacity` bytes, the block's by default; empty
// when a call has failed.
std::string block_of(const WCHAR *path, DWORD capacity = 0) {
    DWORD ignored = 7;
    const DWORD size = GetFileVersionInfoSizeW(path, &ignored);
    EXPECT_EQ(ignored, 0u);
    std::vector<char> block(capacity == 0 ? std::max(size, 40u) : capacity);
    const bool is_read =
        GetFileVersionInfoW(path, 9, static_cast<DWORD>(block.size()), block.data()) != FALSE;
    EXPECT_EQ(is_read, size != 0 && block.size() >= 40);
    return is_read ? std::string(block.data(), std::min<std::size_t>(size, block.size())) : "";
}

// What VerQueryValueW finds: a length, and the file version or a text by the path; or the code as
// "e1813".
std::string value_of(const std::string &block, const std::u16string &path) {
    const std::vector<char> copy(block.begin(), block.end());  // an overrun is seen
    void *value = nullptr;
    unsigned length = 0;
    if (!VerQueryValueW(copy.data(), path.c_str(), &value, &length)) {
        EXPECT_EQ(value, nullptr);
        return "e" + std::to_string(GetLastError());
    }
    if (path != u"\\") {
        return std::to_string(length) + ':' + fs::path(static_cast<const WCHAR *>(value)).string();
    }
    const auto *const numbers = static_cast<const VS_FIXEDFILEINFO *>(value);
    return formatted("%u:%u %u", length, numbers->dwFileVersionMS, numbers->dwFileVersionLS);
}

const std::u16string kName = u"\\StringFileInfo\\041104B0\\FileVersion";
const std::string kText = version_text(u"FileVersion", u"5.1");
const std::string kTexts = version_texts(u"041104B0", {kText});
const std::string kTranslation = version_translations({0x041104B0});
const std::string kBlock = version_block({kTexts, kTranslation});

TEST(Version, ReadsBlocksAsFilesHaveThem) {
    const TempDir dir;
    std::string bytes_counted = kText;
    patch(&bytes_counted, 2, 8, 2);
    const std::string no_nul = version_node(u"FileVersion", 1, utf16(u"5.1x"), 4);
    std::string odd_node = version_node(u"A", 1, "", 5) + 'x';
    patch(&odd_node, 0, odd_node.size(), 2);
    std::string lying_tables = kTexts;
    patch(&lying_tables, 0, 0xFFFF, 2);
    const auto texts = [](const std::vector<std::string> &children) {
        return pe_version(version_block({kTranslation, version_texts(u"041104b0", children)}));
    };
    const std::string numbers = "52:327681 170394706 ", all = numbers + "4:5.1";
    const std::tuple<const char *, std::string, std::string> cases[] = {
        {"64 bits", pe_version(kBlock), all},
        {"32 bits", pe_version(kBlock, 32), all},
        {"a note", elf_image({{"GNU", "id"}, {"Ostrel", kBlock}}), all},
        {"a note of 32 bits", elf_image({{"GNU", "id"}, {"Ostrel", kBlock}}, 32), all},
        {"a length in bytes", texts({version_text(u"A", u"1"), bytes_counted}), all},
        {"no NUL", texts({no_nul, version_text(u"B", u"b")}), numbers + "5:5.1x"},
        {"no NUL at the end", texts({no_nul}), numbers + "5:5.1x"},
        {"a node of odd length", texts({odd_node, kText}), all},
        {"a long table", pe_version(version_block({kTranslation, lying_tables})), all},
        {"no numbers", pe_version(version_block({kTexts}, "")), "e11 4:5.1"},
    };
    for (const auto &[name, image, expected] : cases) {
        dir.Write("module", image);
        const std::string block = block_of(u"module");
        ASSERT_FALSE(block.empty()) << name << GetLastError();
        EXPECT_EQ(value_of(block, u"\\") + ' ' + value_of(block, kName), expected) << name;
    }
}

TEST(Version, TakesOneOfSeveralLanguages) {
    const TempDir dir;
    PeBlocks blocks;
    for (const DWORD language : {0x407u, 0x411u, 0x809u, 0x409u, 0x7Fu, 0u}) {
        blocks[language] = version_block({}, version_numbers(language, 0));
        dir.Write("module", pe_version(blocks));
        const DWORD taken = language == 0x411 ? 0x407 : language;  // the first of other languages
        EXPECT_EQ(block_of(u"module"), blocks[taken]);
    }
}

TEST(Version, FindsValuesByTheirPaths) {
    const std::string block = version_block(
        {version_texts(u"041104B0", {version_text(u"Name", u"value"), version_text(u"Empty", u""),
                                     version_node(u"None", 1, "", 0)})});
    std::string found;
    for (const WCHAR *const name : {u"Name", u"NAME", u"Empty", u"None", u"Nam", u"Name\\x"}) {
        found += value_of(block, std::u16string(u"stringfileinfo\\041104b0\\") + name) + ' ';
    }
    EXPECT_EQ(found, "6:value 6:value 1: 0: e1813 e1813 ");
    EXPECT_EQ(value_of(block, u"\\None\\x"), "e1813");
    EXPECT_EQ(value_of(std::string("\0\0", 2), u"\\"), "e11");
    EXPECT_EQ(value_of(std::string("\7\0\0\0\0\0A", 7), u"\\"), "e11");
}

TEST(Version, DamageHasACode) {
    constexpr std::size_t kOptional = kPeHeader + 24;
    constexpr std::size_t kTypes = kPeResources, kNames = kTypes + 24, kLanguages = kNames + 24;
    constexpr std::size_t kData = kLanguages + 24, kContent = kData + 16;
    constexpr std::size_t kSegment = 64, kNote = 64 + 56;
    ElfNotes many(5000);
    many.emplace_back("Ostrel", kBlock);
    const std::string pe = pe_version(kBlock), elf = elf_image({{"Ostrel", kBlock}});
    const std::tuple<const char *, std::string, std::size_t, std::uint64_t, std::size_t, DWORD>
        cases[] = {
            {"no signature", pe, kPeHeader, 'N', 1, 193},
            {"resources outside the sections", pe, kOptional + 128, 0x70000000, 4, 11},
            {"another type", pe, kTypes + 16, 15, 4, 1813},
            {"another name", pe, kNames + 16, 2, 4, 1814},
            {"no language", pe, kLanguages + 14, 0, 2, 1815},
            {"a language that is a table", pe, kLanguages + 20, 0x80000000, 4, 11},
            {"data of 4 GB", pe, kData + 4, 0xFFFFFFFF, 4, 11},
            {"data shorter than the block", pe, kData + 4, 60, 4, 11},
            {"a root of another name", pe, kContent + 6, 'W', 1, 11},
            {"big-endian order", elf, 5, 2, 1, 1812},
            {"segments far away", elf, 32, 0xFFFFFFFFFFFFFFC0, 8, 11},
            {"a segment of half a note", elf, kSegment + 32, 30, 8, 11},
            {"another note", elf, kNote + 12, 'X', 1, 1812},
            {"a name of 4 GB", elf, kNote, 0xFFFFFFFF, 4, 11},
            {"a block of 4 GB", elf, kNote + 4, 0xFFFFFFFF, 4, 11},
            {"5000 notes", elf_image(many), 24, 0, 1, 1812},
        };
    const TempDir dir;
    for (auto [name, image, offset, value, size, code] : cases) {
        patch(&image, offset, value, size);
        dir.Write("module", image);
        EXPECT_EQ(block_of(u"module"), "") << name;
        EXPECT_EQ(GetLastError(), code) << name;
    }
}

TEST(Version, AFileOrABlockThatIsCutAnywhereHasACode) {
    const TempDir dir;
    for (std::string image : {pe_version(kBlock), elf_image({{"Ostrel", kBlock}})}) {
        dir.Write("module", image);
        for (std::size_t size = image.find_last_not_of('\0') + 1; size-- > 0;) {
            fs::resize_file("module", size);
            ASSERT_EQ(GetFileVersionInfoSizeW(u"module", nullptr), 0u) << size;
            ASSERT_EQ(GetLastError(), size < 4 ? ERROR_BAD_EXE_FORMAT : ERROR_BAD_FORMAT);
        }
    }
    dir.Write("module", pe_version(kBlock));
    EXPECT_EQ(block_of(u"module", 39), "");
    EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
    for (DWORD capacity = 40; capacity <= kBlock.size(); ++capacity) {
        const std::string found = value_of(block_of(u"module", capacity), kName);
        EXPECT_TRUE(found == "4:5.1" || found == "e1813" || found == "e11") << found;
    }
}

TEST(Version, FindsAFileByTheNamesOfAModuleOrSaysWhyNot) {
    const Planted dir("empty= text=MZ... folder/");
    dir.Write("filter.so", pe_version(kBlock));
    EXPECT_EQ(block_of(u"filter.dll"), kBlock);
    ASSERT_EQ(mkfifo("fifo", 0600), 0);
    const std::pair<const WCHAR *, DWORD> cases[] = {
        {u"", 87},     {u"none", 2},      {u"none\\none", 3},       {u"folder", 5},
        {u"fifo", 5},  {u"/dev/zero", 5}, {u"empty", 193},          {u"text", 11},
        {nullptr, 87}, {u"empty\\x", 3},  {u"/proc/self/exe", 1812}};
    for (const auto &[path, code] : cases) {
        EXPECT_EQ(block_of(path), "");
        EXPECT_EQ(GetLastError(), code) << PrintToString(path);
    }
}

}  // namespace
