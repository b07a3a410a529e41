// Any bytes as a name of the host and any text as a pattern: a name told as UTF-16 leads back to
// the same bytes, a pattern without '*' and '?' matches itself, and a path of any units is turned
// or refused.

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

#include "ostrel/platform/file.h"
#include "ostrel/platform/host_path.h"
#include "ostrel/platform/wildcard.h"

namespace {

void require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    // As a name: bytes but NUL and '/', not the two that stand for directories.
    std::string name(reinterpret_cast<const char *>(data), size);
    std::erase_if(name, [](char c) { return c == '\0' || c == '/'; });
    const std::unique_ptr<WCHAR[]> room(new WCHAR[name.size() + 1]);
    const std::size_t length = platform::told_name(name, room.get());
    require(length <= name.size());
    const std::u16string told(room.get(), length);
    require(platform::host_path((u"C:\\" + told).c_str()) == "/" + name);

    // As a text: a path, a name and a pattern.
    std::u16string text(size / 2, u'\0');
    std::memcpy(text.data(), data, text.size() * 2);
    if (const auto path = platform::host_path(text.c_str())) {
        require(path->find('\0') == path->npos);
    }
    if (text.size() < MAX_PATH && length < MAX_PATH) {
        platform::Wildcard(text).Matches(told);
        const bool plain = !platform::is_pattern(told) && !told.ends_with(u'.');
        require(!plain || told.empty() || platform::Wildcard(told).Matches(told));
        require(platform::Wildcard(u"*").Matches(told));
    }
    return 0;
}
