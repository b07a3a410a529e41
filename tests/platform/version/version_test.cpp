#include "ostrel/platform/version.h"

#include <sys/inotify.h>
#include <unistd.h>

#include <cstring>
#include <memory>

#include "support/file_calls.h"
#include "support/version_image.h"

namespace {

// The version block of a file in a buffer of just `capacity` bytes, the block's by default; empty
// when a call has failed.
std::string block_of(const WCHAR *path, DWORD capacity = 0) {
    DWORD ignored = 7;
    const DWORD size = GetFileVersionInfoSizeW(path, &ignored);
    EXPECT_EQ(ignored, 0u);
    capacity = capacity == 0 ? size : capacity;
    const std::unique_ptr<char[]> block(new char[capacity]);
    const bool is_read = GetFileVersionInfoW(path, 9, capacity, block.get()) != FALSE;
    EXPECT_EQ(is_read, size != 0 && capacity >= 40);
    return is_read ? std::string(block.get(), std::min(size, capacity)) : "";
}

// What VerQueryValueW finds: a length, and numbers, bytes as hexadecimal digits or a text by the
// path; or the code as "e1813".
std::string value_of(const std::string &block, const std::u16string &path) {
    const std::unique_ptr<char[]> copy(new char[block.size()]);  // an overrun is seen
    std::memcpy(copy.get(), block.data(), block.size());
    void *value = nullptr;
    unsigned length = 0;
    if (!VerQueryValueW(copy.get(), path.c_str(), &value, &length)) {
        EXPECT_EQ(value, nullptr);
        return "e" + std::to_string(GetLastError());
    }
    std::string text = std::to_string(length) + ":";
    if (path.find(u"ringfile") != path.npos || path.find(u"ringFile") != path.npos) {
        return text + fs::path(static_cast<const WCHAR *>(value)).string();
    }
    const std::string bytes(static_cast<const char *>(value), length);
    if (path.find_first_not_of(u'\\') == path.npos) {
        for (const std::size_t offset : {10, 8, 14, 12}) {
            std::uint16_t part;
            std::memcpy(&part, &bytes[offset], sizeof part);
            text += std::to_string(part) + ' ';
        }
        return text;
    }
    for (const char byte : bytes) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02x", static_cast<unsigned char>(byte));
        text += digits;
    }
    return text;
}

const std::u16string kName = u"\\StringFileInfo\\041104B0\\FileVersion";
const std::string kText = version_text(u"FileVersion", u"5.1");
const std::string kTexts = version_texts(u"041104B0", {kText});
const std::string kTranslation = version_translations({0x041104B0});
const std::string kBlock = version_block({kTexts, kTranslation});

TEST(Version, ReadsBlocksAsFilesHaveThem) {
    const TempDir dir;
    std::string bytes_counted = version_text(u"FileVersion", u"5.1");
    patch(&bytes_counted, 2, 8, 2);
    const std::string no_nul = version_node(u"FileVersion", 1, utf16(u"5.1x"), 4);
    const std::string odd_no_nul = version_node(u"FileVersion", 1, utf16(u"5.1"), 3);
    std::string odd_node = version_node(u"A", 1, "", 5) + 'x';
    patch(&odd_node, 0, odd_node.size(), 2);
    std::string lying_tables = version_texts(u"041104B0", {kText});
    patch(&lying_tables, 0, 0xFFFF, 2);
    const struct {
        const char *name;
        std::string image;
        std::string numbers, translation, text;
    } cases[] = {
        {"64 bits", pe_version(kBlock), "52:5 1 2600 1106 ", "4:1104b004", "4:5.1"},
        {"32 bits", pe_version(kBlock, 32), "52:5 1 2600 1106 ", "4:1104b004", "4:5.1"},
        {"translation first, lower-case digits",
         pe_version(version_block({version_translations({0x041104B0, 0x040904E4}),
                                   version_texts(u"041104b0", {kText})})),
         "52:5 1 2600 1106 ", "8:1104b0040904e404", "4:5.1"},
        {"no translation", pe_version(version_block({kTexts})), "52:5 1 2600 1106 ", "e1813",
         "4:5.1"},
        {"no texts", pe_version(version_block({kTranslation})), "52:5 1 2600 1106 ", "4:1104b004",
         "e1813"},
        {"no numbers", pe_version(version_block({kTexts, kTranslation}, "")), "e11", "4:1104b004",
         "4:5.1"},
        {"other numbers", pe_version(version_block({}, std::string(52, '\1'))), "e11", "e1813",
         "e1813"},
        {"lengths of texts in bytes",
         pe_version(version_block({version_texts(u"041104B0", {bytes_counted}), kTranslation})),
         "52:5 1 2600 1106 ", "4:1104b004", "4:5.1"},
        {"texts of odd and even lengths",
         pe_version(version_block(
             {version_texts(u"041104B0", {version_text(u"A", u"1"), version_text(u"AB", u""),
                                          version_node(u"ABC", 1, "", 0), kText}),
              kTranslation})),
         "52:5 1 2600 1106 ", "4:1104b004", "4:5.1"},
        {"a text without NUL between others",
         pe_version(version_block(
             {version_texts(u"041104B0", {no_nul, version_text(u"B", u"b")}), kTranslation})),
         "52:5 1 2600 1106 ", "4:1104b004", "5:5.1x"},
        {"a text without NUL at the end",
         pe_version(version_block({kTranslation, version_texts(u"041104B0", {no_nul})})),
         "52:5 1 2600 1106 ", "4:1104b004", "5:5.1x"},
        {"an odd text without NUL at the end",
         pe_version(version_block({kTranslation, version_texts(u"041104B0", {odd_no_nul})})),
         "52:5 1 2600 1106 ", "4:1104b004", "4:5.1"},
        {"a text that ends before it begins, at an odd offset",
         pe_version(version_block({version_texts(u"041104B0", {odd_node, kText}), kTranslation})),
         "52:5 1 2600 1106 ", "4:1104b004", "4:5.1"},
        {"a table that is longer than the block",
         pe_version(version_block({kTranslation, lying_tables})), "52:5 1 2600 1106 ", "4:1104b004",
         "4:5.1"},
        {"a note", elf_image({{"GNU", "id"}, {"Ostrel", kBlock}}), "52:5 1 2600 1106 ",
         "4:1104b004", "4:5.1"},
        {"a note of 32 bits", elf_image({{"GNU", "id"}, {"Ostrel", kBlock}}, 32),
         "52:5 1 2600 1106 ", "4:1104b004", "4:5.1"},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(row.name);
        dir.Write("module", row.image);
        const std::string block = block_of(u"module");
        ASSERT_FALSE(block.empty()) << GetLastError();
        EXPECT_EQ(value_of(block, u"\\"), row.numbers);
        EXPECT_EQ(value_of(block, u"\\VarFileInfo\\Translation"), row.translation);
        EXPECT_EQ(value_of(block, kName), row.text);
    }
}

TEST(Version, TakesOneOfSeveralLanguages) {
    const TempDir dir;
    const std::pair<std::vector<DWORD>, DWORD> cases[] = {{{0x411, 0x809, 0x409, 0x7F, 0}, 0},
                                                          {{0x411, 0x809, 0x409, 0x7F}, 0x7F},
                                                          {{0x411, 0x809, 0x409}, 0x409},
                                                          {{0x407, 0x809}, 0x809},
                                                          {{0x411, 0x407}, 0x407},
                                                          {{0x411}, 0x411}};
    for (const auto &[languages, taken] : cases) {
        PeLanguages blocks;
        for (const DWORD language : languages) {
            blocks[language] = version_block({}, version_numbers(language, 0));
        }
        const PeResources resources = {{3, {{1, {{0, "icon"}}}}}, {16, {{1, blocks}}}};
        dir.Write("module", pe_image(64, pe_resources(resources)));
        EXPECT_EQ(value_of(block_of(u"module"), u"\\"), "52:0 " + std::to_string(taken) + " 0 0 ");
    }
}

TEST(Version, FindsValuesByTheirPaths) {
    const TempDir dir;
    dir.Write(
        "module",
        pe_version(version_block(
            {version_texts(u"041104B0",
                           {version_text(u"Name", u"value"), version_text(u"Empty", u""),
                            version_node(u"None", 1, "", 0), version_text(u"Name", u"second")}),
             version_translations({1}),
             version_node(u"Other", 0, "ab", 2, {version_node(u"x", 0, "c", 1)})})));
    const std::string block = block_of(u"module");
    const std::pair<std::u16string, std::string> cases[] = {
        {u"\\", "52:5 1 2600 1106 "},
        {u"", "52:5 1 2600 1106 "},
        {u"\\StringFileInfo\\041104B0\\Name", "6:value"},
        {u"stringfileinfo\\041104b0\\NAME", "6:value"},
        {u"\\StringFileInfo\\041104B0\\Empty", "1:"},
        {u"\\StringFileInfo\\041104B0\\None", "0:"},
        {u"\\StringFileInfo\\041104B0", "0:"},
        {u"\\StringFileInfo", "0:"},
        {u"\\StringFileInfo\\041104B0\\Nam", "e1813"},
        {u"\\StringFileInfo\\041104B0\\Name\\x", "e1813"},
        {u"\\StringFileInfo\\0411", "e1813"},
        {u"\\None\\x", "e1813"},
        {u"\\Other", "2:6162"},
        {u"\\Other\\x", "1:63"}};
    for (const auto &[path, value] : cases) {
        EXPECT_EQ(value_of(block, path), value) << fs::path(path);
    }
    void *value = nullptr;
    unsigned length = 0;
    for (const BOOL result : {VerQueryValueW(nullptr, u"\\", &value, &length),
                              VerQueryValueW(block.data(), nullptr, &value, &length),
                              VerQueryValueW(block.data(), u"\\", nullptr, &length),
                              VerQueryValueW(block.data(), u"\\", &value, nullptr)}) {
        EXPECT_EQ(error_of(result), ERROR_INVALID_PARAMETER);
    }
    for (const char *const none : {"\0\0", "\2\0", "\7\0\0\0\0\0A"}) {
        EXPECT_FALSE(VerQueryValueW(none, u"\\", &value, &length));
        EXPECT_EQ(GetLastError(), ERROR_BAD_FORMAT);
    }
}

// A change to an image.
struct Damage {
    const char *name;
    std::size_t offset;
    std::uint64_t value;
    std::size_t size;
    DWORD code;
};

TEST(Version, DamageHasACode) {
    constexpr std::size_t kTree = kPeResources, kOptional = kPeHeader + 24;
    constexpr std::size_t kNames = kTree + 24, kLanguages = kNames + 24, kData = kLanguages + 24;
    constexpr std::size_t kContent = kData + 16, kSection = kOptional + 240 + 40;
    const Damage cases[] = {
        {"nothing", 0, 'M', 1, 0},
        {"no magic", 0, 'X', 1, 193},
        {"a header far away", 0x3C, 0xFFFFFFFF, 4, 11},
        {"no signature", kPeHeader, 'N', 1, 193},
        {"another optional header", kOptional, 0x107, 2, 193},
        {"an optional header without directories", kPeHeader + 20, 112, 2, 1812},
        {"two directories", kOptional + 108, 2, 4, 1812},
        {"no resources", kOptional + 128, 0, 4, 1812},
        {"resources outside the sections", kOptional + 128, 0x70000000, 4, 11},
        {"no sections", kPeHeader + 6, 0, 2, 11},
        {"a section without bytes", kSection + 16, 0, 4, 11},
        {"a section that is cut", kSection + 16, 100, 4, 11},
        {"a section behind the file", kSection + 20, 0x7FFFFFFF, 4, 11},
        {"no entries", kTree + 14, 0, 2, 1813},
        {"another type", kTree + 16, 15, 4, 1813},
        {"a type with a name", kTree + 16, 0x80000010, 4, 1813},
        {"data as the type", kTree + 20, 24, 4, 11},
        {"a type that is its own table", kTree + 20, 0x80000000, 4, 1814},
        {"a table far away", kTree + 20, 0xFFFFFFFF, 4, 11},
        {"another name", kNames + 16, 2, 4, 1814},
        {"no language", kLanguages + 14, 0, 2, 1815},
        {"65535 languages", kLanguages + 14, 0xFFFF, 2, 11},
        {"named languages", kLanguages + 12, 0xFFFF, 2, 11},
        {"a language that is a table", kLanguages + 20, 0x80000000, 4, 11},
        {"data outside the sections", kData, 0x2000, 4, 11},
        {"data of 4 GB", kData + 4, 0xFFFFFFFF, 4, 11},
        {"data shorter than the block", kData + 4, 60, 4, 11},
        {"a block longer than the data", kContent, 0xFFFF, 2, 11},
        {"a block without a root", kContent, 8, 2, 11},
        {"a root of another name", kContent + 6, 'W', 1, 11},
    };
    const TempDir dir;
    for (const Damage &row : cases) {
        SCOPED_TRACE(row.name);
        std::string image = pe_version(kBlock);
        ASSERT_EQ(number(static_cast<unsigned char>(image[kContent + 6]), 1), "V");
        patch(&image, row.offset, row.value, row.size);
        dir.Write("module", image);
        SetLastError(0);
        EXPECT_EQ(block_of(u"module").empty(), row.code != 0);
        EXPECT_EQ(GetLastError(), row.code);
    }
}

TEST(Version, DamageOfAnElfFileHasACode) {
    constexpr std::size_t kSegment = 64, kNote = 64 + 56;
    const Damage cases[] = {
        {"nothing", 0, 0x7F, 1, 0},
        {"big-endian order", 5, 2, 1, 1812},
        {"an object file", 16, 1, 2, 1812},
        {"no segments", 56, 0, 2, 1812},
        {"segments far away", 32, 0xFFFFFFFFFFFFFFC0, 8, 11},
        {"another segment", kSegment, 1, 4, 1812},
        {"a segment behind the file", kSegment + 8, 0x7FFFFFFFFFFFFFFF, 8, 11},
        {"an empty segment", kSegment + 32, 0, 8, 1812},
        {"a segment of half a note", kSegment + 32, 30, 8, 11},
        {"another name", kNote + 12, 'X', 1, 1812},
        {"another type", kNote + 8, 2, 4, 1812},
        {"a name of 4 GB", kNote, 0xFFFFFFFF, 4, 11},
        {"a block of 4 GB", kNote + 4, 0xFFFFFFFF, 4, 11},
        {"a block longer than the note", kNote + 20, 0xFFFF, 2, 11},
    };
    const TempDir dir;
    for (const Damage &row : cases) {
        SCOPED_TRACE(row.name);
        std::string image = elf_image({{"Ostrel", kBlock}});
        patch(&image, row.offset, row.value, row.size);
        dir.Write("module", image);
        SetLastError(0);
        EXPECT_EQ(block_of(u"module").empty(), row.code != 0);
        EXPECT_EQ(GetLastError(), row.code);
    }
    ElfNotes many(5000);
    many.emplace_back("Ostrel", kBlock);
    dir.Write("module", elf_image(many));
    EXPECT_EQ(block_of(u"module"), "");
    EXPECT_EQ(GetLastError(), ERROR_RESOURCE_DATA_NOT_FOUND);
}

TEST(Version, AFileThatIsCutAnywhereHasACode) {
    const TempDir dir;
    for (std::string image : {pe_version(kBlock), elf_image({{"Ostrel", kBlock}})}) {
        while (image.back() == '\0') {
            image.pop_back();
        }
        dir.Write("module", image);
        for (std::size_t size = image.size(); size-- > 0;) {
            fs::resize_file("module", size);
            ASSERT_EQ(GetFileVersionInfoSizeW(u"module", nullptr), 0u) << size;
            const bool is_none = size < 4;
            ASSERT_EQ(GetLastError(), is_none ? ERROR_BAD_EXE_FORMAT : ERROR_BAD_FORMAT);
        }
    }
}

TEST(Version, AShortBufferHoldsTheBeginning) {
    const TempDir dir;
    dir.Write("module", pe_version(kBlock));
    std::string found;
    for (DWORD capacity = 1; capacity <= kBlock.size() + 1; ++capacity) {
        const std::string block = block_of(u"module", capacity);
        if (capacity < 40) {
            EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
            continue;
        }
        const std::string values = value_of(block, u"\\") + value_of(block, kName);
        found += values != "52:5 1 2600 1106 4:5.1" && values != "e11e1813" &&
                         values != "52:5 1 2600 1106 e1813" && values != "52:5 1 2600 1106 e11"
                     ? values + '\n'
                     : "";
    }
    EXPECT_EQ(found, "");
    EXPECT_EQ(block_of(u"module", 10'000), kBlock);
}

TEST(Version, FindsAModuleByItsNames) {
    const TempDir dir;
    dir.Write("filter.so", pe_version(kBlock));
    dir.Write("d/other", pe_version(kBlock));
    for (const WCHAR *name :
         {u"filter.so", u"filter.dll", u"filter", u".\\filter.dll", u"d\\other"}) {
        EXPECT_EQ(block_of(name), kBlock) << fs::path(name);
    }
}

TEST(Version, SaysWhyAFileIsNotRead) {
    const Planted dir("empty= text=MZ... folder/");
    ASSERT_EQ(mkfifo("fifo", 0600), 0);
    const int opens = inotify_init1(IN_NONBLOCK);
    ASSERT_GE(inotify_add_watch(opens, "fifo", IN_OPEN), 0);
    const std::pair<const WCHAR *, DWORD> cases[] = {
        {nullptr, 87},     {u"", 87},      {u"none", 2},     {u"none\\none", 3},
        {u"W:\\x.dll", 3}, {u"folder", 5}, {u"fifo", 5},     {u"/dev/zero", 5},
        {u"empty", 193},   {u"text", 11},  {u"empty\\x", 3}, {u"/proc/self/exe", 1812}};
    for (const auto &[path, code] : cases) {
        SCOPED_TRACE(PrintToString(path));
        EXPECT_EQ(block_of(path), "");
        EXPECT_EQ(GetLastError(), code);
    }
    char event[100];
    EXPECT_EQ(read(opens, event, sizeof event), -1);  // a writer would have noticed
    close(opens);
    EXPECT_EQ(error_of(GetFileVersionInfoW(u"none", 0, 100, nullptr)), ERROR_INVALID_PARAMETER);
}

}  // namespace
