// Any text as the text of a UUID: it is read if and only if it has the one form, and a UUID that is
// read has that text in lower case.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>

#include "fuzz/check.h"
#include "ostrel/platform/rpc_crypt.h"

namespace {

bool has_form(const std::u16string &text) {
    const std::u16string form = u"00000000-0000-0000-0000-000000000000";
    bool same = text.size() == form.size();
    for (std::size_t i = 0; same && i < form.size(); ++i) {
        const bool is_digit =
            text[i] < 0x80 && std::strchr("0123456789abcdefABCDEF", text[i]) != nullptr;
        same = form[i] == u'-' ? text[i] == u'-' : is_digit;
    }
    return same;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    // Bytes, and pairs of bytes as units.
    for (const std::size_t width : {std::size_t{1}, std::size_t{2}}) {
        const std::size_t length = size / width;
        const std::unique_ptr<WCHAR[]> block(new WCHAR[length + 1]());
        for (std::size_t i = 0; i < length; ++i) {
            std::memcpy(&block[i], data + i * width, width);
        }
        std::u16string text = block.get();
        UUID uuid = {};
        const bool is_read = UuidFromStringW(block.get(), &uuid) == RPC_S_OK;
        check(is_read == has_form(text));
        RPC_WSTR written = nullptr;
        check(UuidToStringW(&uuid, &written) == RPC_S_OK);
        for (WCHAR &c : text) {
            c |= c >= u'A' && c <= u'F' ? 0x20 : 0;
        }
        check(!is_read || text == written);
        check(has_form(written));
        check(RpcStringFreeW(&written) == RPC_S_OK && written == nullptr);
    }
    return 0;
}
