// The public headers in ordinary use, without a warning under C++17 and C++20.

#include <cstdio>
#include <map>
#include <set>
#include <string>
#include <unordered_map>

#include "ostrel/ostrel.h"
#include "wexlog/wexlog.h"

namespace {

// Every mix of strings, literals and pointers, const and not, on both sides.
template <class String, class Char, std::size_t Size>
bool mixes(const Char (&literal)[Size], Char *pointer) {
    String text(literal);
    const String fixed(pointer);
    const Char *const fixed_pointer = fixed;
    const std::basic_string<Char> standard(literal);
    bool good = text == fixed && fixed == text && text == literal && literal == fixed &&
                text == pointer && pointer == fixed && fixed == fixed_pointer &&
                fixed_pointer == text && text == standard && standard == fixed;
    good = good && text <= literal && fixed >= pointer && !(text < fixed) && !(literal > text) &&
           text != nullptr && nullptr != fixed;
    const String twice = text + fixed;
    good = good && twice == literal + fixed && twice == fixed + pointer &&
           twice == pointer + text && twice == String(literal) + text &&
           twice == standard + fixed && twice == text + standard &&
           text + Char('x') != Char('x') + fixed + nullptr;
    // An integer is an offset, NULL is none.
    const Char *const offsets[] = {text + 3, 3 + text, fixed + (fixed.size() - 1)};
    for (const Char *const offset : offsets) {
        good = good && *offset == Char('t');
    }
    const String copy = fixed + NULL;
    static_assert(std::is_same_v<decltype(text + 3), const Char *>);
    static_assert(std::is_same_v<decltype(text + Char('x')), String>);
    good = good && copy == fixed && fixed + nullptr == copy;
    text += fixed;
    text += literal;
    text += pointer;
    text += Char('!');
    good = good && text[0] == fixed[0L] && text[text.size() - 1] == Char('!');
    text = standard;
    text = pointer;
    text = fixed;
    text = nullptr;
    return good && text.IsEmpty();
}

}  // namespace

int main() {
    WCHAR wide[] = TEXT("text");
    char narrow[] = "text";
    bool good = mixes<OS::x_wstring>(TEXT("text"), wide) && mixes<OS::x_astring>("text", narrow);

    const std::unordered_map<OS::x_astring, int> hashed{{"a", 1}};
    std::map<OS::x_wstring, int> map{{TEXT("a"), 1}};
    std::set<OS::x_wstring, OS::XWSTRICMP> set{TEXT("b"), TEXT("A")};
    good = good && hashed.count("a") == 1 && map.count(TEXT("a")) == 1 && *set.begin() == TEXT("b");

    const CHandle handle;
    void *const held = handle;
    CFindHandle search;
    void *const found = search;
    int lines = 0;
    const DBG::SinkId sink = DBG::AddSink([&lines](const DBG::Line &) { ++lines; });
    try {
        const CIDMapping mapping(TEXT("no\\such\\file.txt"));
        good = false;
    } catch (const OS::CException &failure) {
        good = good && failure.GetErrorCode() == 2 && lines > 0;
    }
    DBG::RemoveSink(sink);
    good = good && held == nullptr && found == INVALID_HANDLE_VALUE;

#ifdef CONSUMER_VERSION  // by CMake alone
    WCHAR version[100] = {};
    good = good && NS_FileUtils::getModuleVersion(TEXT(CONSUMER_VERSION), version) == 1 &&
           OS::x_wstring(version) == TEXT("1.2.3");
#endif

    std::puts(good ? "0 failures" : "fails");
    return good ? 0 : 1;
}
