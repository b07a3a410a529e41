#include "support/file_calls.h"
#include "support/text.h"
#include "support/version_image.h"

#include "ostrel/file/Std_Utils_File.h"

namespace {

using NS_FileUtils::getModuleVersion;

// "major.minor.build|text", with "-" for what a form does not tell.
std::string version_of(const WCHAR *path) {
    DWORD major = 77, minor = 78, build = 79;
    WCHAR text[100] = TEXT("untouched");
    const int has_numbers = getModuleVersion(path, major, minor, build);
    const int has_text = getModuleVersion(path, text);
    EXPECT_TRUE(has_numbers == 1 ||
                (has_numbers == 0 && major == 77 && minor == 78 && build == 79));
    EXPECT_TRUE(has_text == 1 || (has_text == 0 && std::u16string_view(text) == u"untouched"));
    const std::string numbers =
        std::to_string(major) + '.' + std::to_string(minor) + '.' + std::to_string(build);
    return (has_numbers == 1 ? numbers : "-") + '|' +
           (has_text == 1 ? fs::path(text).string() : "-");
}

TEST(ModuleVersion, IsThatOfTheNumbersAndOfTheFirstTranslation) {
    const auto texts = [](std::u16string_view digits, std::u16string text) {
        return version_texts(digits, {version_text(u"FileVersion", std::move(text))});
    };
    const std::string japanese = texts(u"041104B0", u"5, 1, \u65E5"),
                      english = texts(u"040904E4", u"5.1 e");
    const std::string both =
        version_node(u"StringFileInfo", 1, "", 0,
                     {version_node(u"040904e4", 1, "", 0, {version_text(u"FileVersion", u"e")}),
                      version_node(u"041104b0", 1, "", 0, {version_text(u"FileVersion", u"j")})});
    const struct {
        const char *name;
        std::vector<std::string> children;
        std::string version;
    } cases[] = {
        {"its text", {japanese, version_translations({0x041104B0})}, "5.1.2600|5, 1, \u65E5"},
        {"the first of two", {version_translations({0x041104B0, 0x040904E4}), both}, "5.1.2600|j"},
        {"its text is missing", {version_translations({0x040704B0}), english}, "5.1.2600|5.1 e"},
        {"the second is not looked at",
         {version_translations({0x040704B0, 0x041104B0}), japanese},
         "5.1.2600|-"},
        {"no translation", {english}, "5.1.2600|-"},
        {"half a translation",
         {english, version_node(u"VarFileInfo", 1, "", 0,
                                {version_node(u"Translation", 0, number(0x409, 2), 2)})},
         "5.1.2600|-"},
        {"neutral", {version_translations({0x04B0}), texts(u"000004b0", u"n")}, "5.1.2600|n"},
        {"invariant", {version_translations({0x007F04B0}), texts(u"007f04b0", u"i")}, "5.1.2600|i"},
        {"without a value",
         {version_translations({0x040904B0}),
          version_texts(u"040904B0", {version_node(u"FileVersion", 1, "", 0)})},
         "5.1.2600|"},
        {"nothing", {}, "5.1.2600|-"}};
    const TempDir dir;
    for (const auto &row : cases) {
        SCOPED_TRACE(row.name);
        dir.Write("module.dll", pe_version(version_block(row.children)));
        EXPECT_EQ(version_of(TEXT("module.dll")), row.version);
    }
    dir.Write("module.dll", pe_version(version_block({english, version_translations({1})}, "")));
    EXPECT_EQ(version_of(TEXT("module.dll")), "-|5.1 e");
    dir.Write("module.dll", "no module");
    EXPECT_EQ(version_of(TEXT("module.dll")), "-|-");
    EXPECT_EQ(GetLastError(), ERROR_BAD_EXE_FORMAT);
    EXPECT_EQ(version_of(TEXT("none")), "-|-");
    EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
}

TEST(ModuleVersion, IsThatOfOurOwnModules) {
    EXPECT_EQ(version_of(fs::path(OSTREL_VERSIONED_MODULE).u16string().c_str()),
              "5.1.2600|5.1 (\u65E5\u672C \U0001F600) [x; \"y\"");
}

}  // namespace
