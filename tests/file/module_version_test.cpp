#include "support/file_calls.h"
#include "support/text.h"
#include "support/version_image.h"

#include "ostrel/file/Std_Utils_File.h"

namespace {

using NS_FileUtils::getModuleVersion;

// "major.minor.build|text", with "7.7.7" and "-" for what a form does not tell.
std::string version_of(const WCHAR *path) {
    DWORD major = 7, minor = 7, build = 7;
    WCHAR text[100] = TEXT("-");
    const int has_numbers = getModuleVersion(path, major, minor, build);
    EXPECT_EQ(has_numbers, major == 7 ? 0 : 1);
    const int has_text = getModuleVersion(path, text);
    EXPECT_EQ(has_text, *text == u'-' ? 0 : 1);
    return formatted("%d.%d.%d|", major, minor, build) + fs::path(text).string();
}

TEST(ModuleVersion, IsThatOfTheNumbersAndOfTheFirstTranslation) {
    const auto texts = [](std::u16string_view digits, std::u16string text) {
        return version_texts(digits, {version_text(u"FileVersion", std::move(text))});
    };
    const std::string japanese = texts(u"041104b0", u"5, 1, \u65E5"),
                      english = texts(u"040904E4", u"5.1 e");
    const std::tuple<std::string, std::string> cases[] = {
        {version_block({japanese, version_translations({0x041104B0, 0x040904E4})}),
         "5.1.2600|5, 1, \u65E5"},
        {version_block({version_translations({0x040704B0}), english}), "5.1.2600|5.1 e"},
        {version_block({version_translations({0x040704B0, 0x041104B0}), japanese}), "5.1.2600|-"},
        {version_block(
             {english, version_node(u"VarFileInfo", 1, "", 0,
                                    {version_node(u"Translation", 0, number(0x409, 2), 2)})}),
         "5.1.2600|-"},
        {version_block({english, version_translations({1})}, ""), "7.7.7|5.1 e"}};
    const TempDir dir;
    for (const auto &[block, version] : cases) {
        dir.Write("module.dll", pe_version(block));
        EXPECT_EQ(version_of(TEXT("module.dll")), version);
    }
    EXPECT_EQ(version_of(TEXT("none")), "7.7.7|-");
    EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
}

TEST(ModuleVersion, IsThatOfOurOwnModules) {
    EXPECT_EQ(version_of(fs::path(OSTREL_VERSIONED_MODULE).u16string().c_str()),
              "5.1.2600|5.1 (\u65E5\u672C \U0001F600) [x; \"y\"");
}

}  // namespace
