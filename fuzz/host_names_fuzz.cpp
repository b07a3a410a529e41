// Any bytes as a name of the host and any text as a pattern: a name told as UTF-16 leads back to
// the same bytes, a pattern without '*' and '?' matches itself, short texts match as a slow matcher
// says, "." and ".." in a path lead where a list of its names says, and a path of any units is
// turned or refused.

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/check.h"
#include "ostrel/platform/file.h"
#include "ostrel/platform/file/host_path.h"
#include "ostrel/platform/file/wildcard.h"

namespace {

bool slow_match(std::u16string_view pattern, std::u16string_view name) {
    if (pattern.empty()) {
        return name.empty();
    }
    const std::u16string_view rest = pattern.substr(1);
    const bool may_be_none =
        pattern[0] == u'*' || (pattern[0] == u'?' && (name.empty() || name[0] == u'.'));
    if (may_be_none && slow_match(rest, name)) {
        return true;
    }
    const bool wild = pattern[0] == u'*' || pattern[0] == u'?';
    return !name.empty() && (wild || pattern[0] == name[0]) &&
           slow_match(pattern[0] == u'*' ? pattern : rest, name.substr(1));
}

// The pattern without the dots at its end; "*." and ".*" at the end have a meaning of their own.
bool slow_wildcard(std::u16string_view pattern, std::u16string_view name) {
    if (pattern == u"*.") {
        return name == u"." || name == u".." || name.find(u'.') == name.npos;
    }
    while (pattern.ends_with(u'.')) {
        pattern.remove_suffix(1);
    }
    return slow_match(pattern, name) ||
           (pattern.ends_with(u".*") && slow_match(pattern.substr(0, pattern.size() - 2), name));
}

// A short text of few characters.
std::u16string short_text(const char16_t *characters, std::uint32_t bits, std::size_t length) {
    std::u16string text;
    for (; text.size() < length; bits /= 4) {
        text += characters[bits % 4];
    }
    return text;
}

constexpr bool is_separator(char16_t c) {
    return c == u'\\' || c == u'/';
}

// Resolves "." and ".." by a list of names; `root` is the host directory of the drive, if there is
// one. Without repeated separators.
std::string slow_path(const std::u16string &path, const char *root) {
    const bool is_relative = root == nullptr && (path.empty() || !is_separator(path[0]));
    std::vector<std::string> names(1);
    for (const char16_t c : path + u'/') {
        if (!is_separator(c)) {
            names.back() += static_cast<char>(c);
            continue;
        }
        const std::string name = names.back();
        names.pop_back();
        if (name == ".." && !names.empty() && names.back() != "..") {
            names.pop_back();
        } else if (!name.empty() && name != "." && (name != ".." || is_relative)) {
            names.push_back(name);
        }
        names.emplace_back();
    }
    names.pop_back();
    std::string host = is_relative ? "" : root != nullptr ? root + std::string("/") : "/";
    for (const std::string &name : names) {
        host += name + '/';
    }
    host += host.empty() ? "./" : "";
    if (!is_separator(path.empty() ? u'a' : path.back()) && (is_relative || !names.empty())) {
        host.pop_back();
    }
    return host;
}

// Checks what the dots of a short path without a drive, on a drive and behind "\\?\" do.
void check_dots(const std::u16string &text) {
    static const int drive = setenv("OSTREL_DRIVE_D", "/a/../of", 1);
    check(drive == 0);
    for (const char *const root : {static_cast<const char *>(nullptr), "/a/../of"}) {
        const std::u16string path = root != nullptr ? u"D:" + text : text;
        std::optional<std::string> host = ostrel_platform::host_path(path.c_str());
        if (path.size() < 2 || (is_separator(path[0]) && is_separator(path[1]))) {
            check(host.has_value() == (path.size() < 2));
            continue;
        }
        check(host.has_value());
        for (std::size_t at; (at = host->find("//")) != host->npos;) {
            host->erase(at, 1);
        }
        check(*host == slow_path(path.substr(root != nullptr ? 2 : 0), root));
        const bool is_root = root != nullptr ? *host == root + std::string("/") : *host == "/";
        check(ostrel_platform::is_root(path) == is_root);
    }
    const std::u16string names = u"\\" + text + u"\\";
    const bool is_plain = names.find(u'/') == names.npos && names.find(u"\\.\\") == names.npos &&
                          names.find(u"\\..\\") == names.npos;
    check(ostrel_platform::host_path((u"\\\\?\\D:\\" + text).c_str()).has_value() == is_plain);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    // As a name: bytes but NUL and '/', not the two that stand for directories.
    std::string name(reinterpret_cast<const char *>(data), size);
    std::erase_if(name, [](char c) { return c == '\0' || c == '/'; });
    const std::unique_ptr<WCHAR[]> room(new WCHAR[name.size() + 1]);
    const std::size_t length = ostrel_platform::name_from_host(name, room.get());
    check(length <= name.size());
    const std::u16string told(room.get(), length);
    const bool is_dots = name == "." || name == "..";
    check(ostrel_platform::host_path((u"C:\\" + told).c_str()) == (is_dots ? "/" : "/" + name));

    // As a text: a path, a name and a pattern.
    std::u16string text(size / 2, u'\0');
    std::memcpy(text.data(), data, text.size() * 2);
    if (const auto path = ostrel_platform::host_path(text.c_str())) {
        check(path->find('\0') == path->npos);
    }
    if (text.size() < MAX_PATH && length < MAX_PATH) {
        ostrel_platform::Wildcard(text).Matches(told);
        const bool plain = !ostrel_platform::is_pattern(told) && !told.ends_with(u'.');
        check(!plain || told.empty() || ostrel_platform::Wildcard(told).Matches(told));
        check(ostrel_platform::Wildcard(u"*").Matches(told));
    }
    if (size >= 6) {
        std::uint32_t bits = 0;
        std::memcpy(&bits, data, sizeof bits);
        const std::u16string pattern = short_text(u"a.*?", bits, data[4] % 8);
        const std::u16string other = short_text(u"ab.a", bits >> data[5] % 32, data[5] / 32);
        check_dots(short_text(u"a.\\/", bits, data[4] % 17));
        check(ostrel_platform::Wildcard(pattern).Matches(other) == slow_wildcard(pattern, other));
    }
    return 0;
}
