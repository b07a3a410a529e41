// The public headers in ordinary use, without a warning under C++17 and C++20.

#include <cstdio>
#include <map>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "ostrel/ostrel.h"
#include "wexlog/wexlog.h"

namespace {

int g_failures = 0;

void check(bool holds, const char *what) {
    if (!holds) {
        std::printf("fails: %s\n", what);
        ++g_failures;
    }
}

#define CHECK(condition) check(condition, #condition)

// Every mix of strings, literals and pointers, const and not, on both sides.
template <class String, class Char, std::size_t Size>
void compare(const Char (&literal)[Size], Char *pointer) {
    String text(literal);
    const String fixed(literal);
    const Char *const fixed_pointer = pointer;
    const std::basic_string<Char> standard(literal);
    CHECK(text == fixed && fixed == text && text == text && fixed == fixed);
    CHECK(text == literal && fixed == literal && literal == text && literal == fixed);
    CHECK(text == pointer && fixed == pointer && pointer == text && pointer == fixed);
    CHECK(text == fixed_pointer && fixed == fixed_pointer && fixed_pointer == fixed);
    CHECK(text == standard && standard == fixed);
    CHECK(!(text != fixed || text != literal || literal != text || pointer != fixed));
    CHECK(text != nullptr && nullptr != fixed && !(text == nullptr));
    CHECK(text <= literal && fixed >= pointer && !(text < fixed) && !(literal > text));
    CHECK(String(literal) == fixed && fixed == String(pointer));
}

template <class String, class Char, std::size_t Size>
void join(const Char (&literal)[Size], Char *pointer) {
    String text(literal);
    const String fixed(literal);
    const String twice = text + fixed;
    CHECK(twice == fixed + text && twice == text + literal && twice == literal + fixed);
    CHECK(twice == fixed + pointer && twice == pointer + text && twice == String(literal) + text);
    CHECK(text + nullptr == fixed &&
          (text + fixed + literal + pointer).GetLength() == 4 * Size - 4);
    CHECK(text + Char('x') != Char('x') + text || Size == 1);
    CHECK(std::basic_string<Char>(literal) + fixed == text + std::basic_string<Char>(literal));
    text += fixed;
    text += literal;
    text += pointer;
    text += Char('!');
    CHECK(text[0] == literal[0] && fixed[0L] == text[0u] && text[text.size() - 1] == Char('!'));
    const Char *const converted = fixed;
    CHECK(converted == fixed.c_str());
    text = std::basic_string<Char>(literal);
    const std::basic_string<Char> base(literal);
    text = base;
    text = text.append(literal);
    text = pointer;
    text = literal;
    text = fixed;
    text = nullptr;
    CHECK(text.IsEmpty());
}

bool catches() {
    try {
        CIDMapping(TEXT("no\\such\\file.txt")).GetID(1);
    } catch (const OS::CException &failure) {
        return failure.GetErrorCode() == 2;
    }
    return false;
}

}  // namespace

int main() {
    WCHAR wide[] = TEXT("text");
    char narrow[] = "text";
    compare<OS::x_wstring>(TEXT("text"), wide);
    compare<OS::x_astring>("text", narrow);
    join<OS::x_wstring>(TEXT("text"), wide);
    join<OS::x_astring>("text", narrow);

    const std::unordered_map<OS::x_astring, int> hashed{{"a", 1}};
    CHECK(hashed.count("a") == 1);
    std::map<OS::x_wstring, int> map{{TEXT("a"), 1}};
    std::set<OS::x_wstring, OS::XWSTRICMP> set{TEXT("b"), TEXT("A")};
    std::vector<OS::x_astring> vector{"a", "b"};
    vector.push_back(vector.front() + "c");
    CHECK(map.count(TEXT("a")) == 1 && *set.begin() == TEXT("b") && vector.back() == "ac");

    const CHandle handle;
    void *const held = handle;
    CFindHandle search;
    void *const found = search;
    CHECK(held == nullptr && found == INVALID_HANDLE_VALUE);

    int lines = 0;
    const DBG::SinkId sink = DBG::AddSink([&lines](const DBG::Line &) { ++lines; });
    CHECK(catches());
    DBG::RemoveSink(sink);
    CHECK(lines > 0);

    std::printf("%d failures\n", g_failures);
    return g_failures == 0 ? 0 : 1;
}
