// Any bytes as a name of the host and any text as a pattern: a name told as UTF-16 leads back to
// the same bytes, a pattern without '*' and '?' matches itself, short texts match as a slow matcher
// says, and a path of any units is turned or refused.

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

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

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    // As a name: bytes but NUL and '/', not the two that stand for directories.
    std::string name(reinterpret_cast<const char *>(data), size);
    std::erase_if(name, [](char c) { return c == '\0' || c == '/'; });
    const std::unique_ptr<WCHAR[]> room(new WCHAR[name.size() + 1]);
    const std::size_t length = ostrel_platform::name_from_host(name, room.get());
    check(length <= name.size());
    const std::u16string told(room.get(), length);
    check(ostrel_platform::host_path((u"C:\\" + told).c_str()) == "/" + name);

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
        check(ostrel_platform::Wildcard(pattern).Matches(other) == slow_wildcard(pattern, other));
    }
    return 0;
}
