#include <sys/syscall.h>
#include <unistd.h>

#include <cstring>
#include <set>

#include "ostrel/platform/error.h"
#include "ostrel/platform/rpc_crypt.h"
#include "support/child.h"
#include "support/signals.h"

namespace {

std::string new_uuid() {
    std::string bytes(sizeof(UUID), '\0');
    EXPECT_EQ(UuidCreate(reinterpret_cast<UUID *>(bytes.data())), RPC_S_OK);
    return bytes;
}

std::u16string text_of(const UUID &uuid) {
    RPC_WSTR text = nullptr;
    EXPECT_EQ(UuidToStringW(&uuid, &text), RPC_S_OK);
    const std::u16string copy = text;
    EXPECT_EQ(RpcStringFreeW(&text), RPC_S_OK);
    EXPECT_EQ(text, nullptr);
    return copy;
}

const std::u16string kText = u"01234567-89ab-cdef-fedc-ba9876543210";

TEST(Uuid, IsUniqueInThreads) {
    std::set<std::string> drawn[4];
    on_threads(4, [&drawn](std::size_t thread) {
        for (int i = 0; i < 5000; ++i) {
            const std::string uuid = new_uuid();
            EXPECT_TRUE((uuid[7] & 0xF0) == 0x40 && (uuid[8] & 0xC0) == 0x80);  // version, variant
            drawn[thread].insert(uuid);
        }
    });
    std::set<std::string> all;
    for (const auto &own : drawn) {
        all.insert(own.begin(), own.end());
    }
    EXPECT_EQ(all.size(), 4 * 5000u);
}

TEST(Uuid, IsUniqueAfterAForkWithoutHandlers) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    new_uuid();  // and random bytes for more
    const long child = syscall(SYS_clone, SIGCHLD, 0, 0, 0, 0);
    const std::string own = new_uuid();
    if (child == 0) {
        _exit(write(ends[1], own.data(), 16) == 16 ? 0 : 1);
    }
    EXPECT_TRUE(has_succeeded(static_cast<pid_t>(child)));
    std::string others(16, '\0');
    EXPECT_EQ(read(ends[0], others.data(), 16), 16);
    EXPECT_NE(others, own);
    close(ends[0]);
    close(ends[1]);
}

TEST(Uuid, HasATextInTheOrderOfItsFields) {
    const UUID fields = {
        0x01234567, 0x89AB, 0xCDEF, {0xFE, 0xDC, 0xBA, 0x98, 0x76, 0x54, 0x32, 0x10}};
    EXPECT_EQ(text_of(fields), kText);
    UUID uuid = {};
    WCHAR upper[] = u"01234567-89AB-cdeF-FEDC-BA9876543210";
    EXPECT_EQ(UuidFromStringW(upper, &uuid), RPC_S_OK);
    EXPECT_EQ(std::memcmp(&uuid, &fields, sizeof fields), 0);

    std::vector<std::u16string> wrong_texts = {u"{" + kText + u"}", kText + u" "};
    for (std::size_t i = 0; i < kText.size(); ++i) {
        wrong_texts.push_back(kText.substr(0, i));
        for (const WCHAR wrong :
             {u'g', u'G', u'`', u'@', u':', u'\x80', u'\uFF10', kText[i] == u'-' ? u'0' : u'-'}) {
            wrong_texts.push_back(kText);
            wrong_texts.back()[i] = wrong;
        }
    }
    for (const std::u16string &text : wrong_texts) {
        std::vector<WCHAR> copy(&text[0], &text[text.size()] + 1);  // an overrun is seen
        EXPECT_EQ(UuidFromStringW(copy.data(), &uuid), RPC_STATUS{RPC_S_INVALID_STRING_UUID})
            << PrintToString(text);
    }
    EXPECT_EQ(text_of(uuid), kText);
    EXPECT_EQ(UuidFromStringW(nullptr, &uuid), RPC_S_OK);
    EXPECT_EQ(text_of(uuid), u"00000000-0000-0000-0000-000000000000");
    EXPECT_EQ(UuidCreate(nullptr), RPC_S_INVALID_ARG);
}

TEST(Uuid, ComparesAsUnsignedFieldsInOrder) {
    UUID sorted[] = {{0, 0, 0, {}},
                     {1, 0xFF, 9, {9}},
                     {1, 0x100, 0xFF, {9}},
                     {1, 0x100, 0x8000, {0x7F, 9}},
                     {1, 0x100, 0x8000, {0x80, 0, 0, 0, 0, 0, 0, 1}},
                     {0xFF, 9, 9, {9}},
                     {0x100, 0, 0, {}},
                     {0x80000000, 0, 0, {}}};
    for (UUID &a : sorted) {
        for (UUID &b : sorted) {
            RPC_STATUS status = 1;
            EXPECT_EQ(UuidCompare(&a, &b, &status), &a < &b ? -1 : &a > &b)
                << status << PrintToString(text_of(a)) << PrintToString(text_of(b));
            EXPECT_EQ(status, RPC_S_OK);
        }
    }
}

}  // namespace
