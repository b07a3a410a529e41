#include <map>

#include "support/file_calls.h"

namespace {

// Sets variables; null removes one.
void set(const std::map<std::string, const char *> &values) {
    for (const auto &[name, value] : values) {
        value != nullptr ? setenv(name.c_str(), value, 1) : unsetenv(name.c_str());
    }
}

TEST(TemporaryNames, ComeFromTheFirstFolderThereIs) {
    const std::string longest = '/' + std::string(255, 'd'), too_long = longest + 'd';
    using Value = const char *;
    const std::tuple<Value, Value, Value, Value, std::u16string> cases[] = {
        {"D:\\one", "/two", nullptr, nullptr, u"D:\\one\\"},
        {nullptr, "/two/", "/three", nullptr, u"C:\\two\\"},
        {"", nullptr, "rel/x", "/four", u"rel/x\\"},
        {nullptr, nullptr, nullptr, "/four/\xFF", u"C:\\four\\\xDCFF\\"},
        {longest.c_str(), nullptr, nullptr, nullptr, u"C:\\" + std::u16string(255, u'd') + u"\\"},
        {too_long.c_str(), nullptr, nullptr, nullptr, u"C:\\tmp\\"}};
    for (const auto &[tmp, temp, profile, tmpdir, folder] : cases) {
        SCOPED_TRACE(PrintToString(folder));
        set({{"TMP", tmp}, {"TEMP", temp}, {"USERPROFILE", profile}, {"TMPDIR", tmpdir}});
        WCHAR buffer[MAX_PATH] = u"untouched";
        const auto length = static_cast<DWORD>(folder.size());
        EXPECT_EQ(GetTempPathW(length, buffer), length + 1);
        EXPECT_EQ(buffer, std::u16string(u"untouched"));
        EXPECT_EQ(GetTempPathW(length + 1, buffer), length);
        EXPECT_EQ(buffer, folder);
    }
    set({{"TMP", nullptr}});
}

TEST(TemporaryNames, AreFreeAndInTheRightFolder) {
    const Planted dir("tmp/ own/");
    const std::string tmp = dir.Path() / "tmp";
    const std::u16string too_long(250, u'p');
    const std::tuple<const char *, const WCHAR *, const WCHAR *, std::u16string, int> cases[] = {
        {tmp.c_str(), u"own", u"p", platform_path(tmp) + u"\\p", 0},
        {"/none", u"own", nullptr, u"own\\", 0},
        {nullptr, u"none", u"p", u".\\p", 0},
        {"/none", nullptr, u"p", u".\\p", 0},
        {"/none", u"none", u"p", u"", ENOENT},
        {nullptr, nullptr, too_long.c_str(), u"", ENAMETOOLONG}};
    std::set<std::u16string> numbers;
    for (const auto &[variable, directory, prefix, begin, error] : cases) {
        SCOPED_TRACE(PrintToString(std::tuple(variable, directory, prefix)));
        set({{"TMP", variable}});
        WCHAR *const name = _wtempnam(directory, prefix);
        EXPECT_EQ(name != nullptr ? 0 : errno, error);
        const std::u16string text = name != nullptr ? name : u"";
        std::free(name);
        EXPECT_EQ(text.substr(0, begin.size()), begin);
        EXPECT_TRUE(error != 0 || numbers.insert(text.substr(begin.size())).second);
    }
    set({{"TMP", nullptr}});
}

}  // namespace
