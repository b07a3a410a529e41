#include <iostream>
#include <set>
#include <vector>

#include "ostrel/core/convert.h"
#include "ostrel/text/string_utils.h"
#include "ostrel/text/token_list.h"
#include "tour.h"

namespace {

// Returns the text in UTF-8, for the terminal.
OS::x_astring utf8(const OS::x_wstring &text) {
    return OS::WCharToUTF8Char(text, nullptr);
}

template <class Words>
void show_words(const char *title, const Words &words) {
    std::cout << "  " << title << ':';
    for (const OS::x_wstring &word : words) {
        std::cout << " [" << utf8(word) << ']';
    }
    std::cout << '\n';
}

void show_lists() {
    const OS::x_wstring text(TEXT("Berlin, Tokyo;;berlin, Oslo"));
    std::vector<OS::x_wstring> words;
    std::set<OS::x_wstring, OS::XWSTRICMP> set;
    SplitStringToTokensW(&words, text, TEXT(",; "));
    SplitStringToTokensW(&set, text, TEXT(",; "));
    std::cout << "  " << utf8(text) << '\n';
    show_words("as a vector", words);
    show_words("as a set that ignores case", set);
    OS::x_wstring line;
    CombineTokensToStringW(set, &line, TEXT(" | "));
    std::cout << "  combined: " << utf8(line) << "\n\n";
}

void show_escapes() {
    OS::x_wstring markup(TEXT("if (a < b && it's \"new\")"));
    OS::x_wstring literal(markup);
    std::cout << "  plain:    " << utf8(markup) << '\n';
    std::cout << "  mark-up:  " << utf8(markup.EscapeSpecialCharacters()) << '\n';
    std::cout << "  literal:  " << utf8(literal.EscapeSpecialCharactersForCString()) << '\n';
    std::cout << "  100%25%20safe decoded: "
              << utf8(NS_StringUtils::convertFromEscapeChar(TEXT("100%25%20safe"))) << "\n\n";
}

void show_profile() {
    const WCHAR *const file = TEXT("config\\report.ini");
    const auto value = [file](const WCHAR *key) {
        return NS_StringUtils::getPrivateProfileString(TEXT("report"), key, TEXT("none"), file);
    };
    std::vector<OS::x_wstring> recipients;
    NS_StringUtils::splitWords(TEXT(';'), value(TEXT("Recipients")), recipients,
                               NS_StringUtils::SCharAdapter());
    std::cout << "  config\\report.ini, section Report\n";
    std::cout << "  Title: [" << utf8(value(TEXT("title"))) << "]\n";
    show_words("Recipients", recipients);
    std::cout << "  Retries: "
              << NS_StringUtils::getPrivateProfileInt(TEXT("Report"), TEXT("Retries"), 3, file)
              << "\n  Colour: " << utf8(value(TEXT("Colour"))) << "\n";
    std::cout << "  joined: "
              << utf8(NS_StringUtils::concatPath(TEXT("C:\\reports\\"), TEXT("\\2026.txt")))
              << '\n';
}

}  // namespace

void text_station() {
    show_lists();
    show_escapes();
    show_profile();
}
