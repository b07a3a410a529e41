#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <latch>
#include <memory>
#include <set>
#include <thread>

#include "ostrel/platform/error.h"
#include "ostrel/platform/rpc_crypt.h"
#include "support/test.h"

namespace {

using Bytes = std::string;

Bytes new_uuid() {
    UUID uuid;
    EXPECT_EQ(UuidCreate(&uuid), RPC_S_OK);
    return Bytes(reinterpret_cast<const char *>(&uuid), sizeof uuid);
}

std::u16string text_of(const UUID &uuid) {
    RPC_WSTR text = nullptr;
    EXPECT_EQ(UuidToStringW(&uuid, &text), RPC_S_OK);
    const std::u16string copy = text;
    EXPECT_EQ(RpcStringFreeW(&text), RPC_S_OK);
    EXPECT_EQ(text, nullptr);
    return copy;
}

// Reads the text from a block of its size, so that an overrun is seen.
RPC_STATUS read(const std::u16string &text, UUID *uuid) {
    const std::unique_ptr<WCHAR[]> block(new WCHAR[text.size() + 1]);
    std::copy_n(text.c_str(), text.size() + 1, block.get());
    return UuidFromStringW(block.get(), uuid);
}

const std::u16string kText = u"01234567-89ab-cdef-fedc-ba9876543210";

TEST(Uuid, IsRandomButForVersionAndVariant) {
    std::set<WCHAR> seen[36];
    for (int i = 0; i < 1000; ++i) {
        UUID uuid;
        EXPECT_EQ(UuidCreate(&uuid), RPC_S_OK);
        const std::u16string text = text_of(uuid);
        for (std::size_t at = 0; at < 36; ++at) {
            seen[at].insert(text[at]);
        }
    }
    EXPECT_EQ(seen[14], std::set<WCHAR>{u'4'});
    EXPECT_EQ(seen[19], (std::set<WCHAR>{u'8', u'9', u'a', u'b'}));
    for (std::size_t at = 0; at < 36; ++at) {
        const std::size_t count = kText[at] == u'-' ? 1 : 16;
        EXPECT_TRUE(at == 14 || at == 19 || seen[at].size() == count) << at;
    }
    EXPECT_EQ(UuidCreate(nullptr), RPC_S_INVALID_ARG);
}

TEST(Uuid, IsUniqueInThreads) {
    constexpr int kThreads = 4;
    constexpr std::size_t kEach = 5000;
    std::vector<Bytes> drawn[kThreads];
    std::vector<std::thread> threads;
    std::latch start(kThreads);
    for (auto &own : drawn) {
        own.reserve(kEach);
        threads.emplace_back([&own, &start] {
            start.arrive_and_wait();
            while (own.size() < kEach) {
                own.push_back(new_uuid());
            }
        });
    }
    std::set<Bytes> all;
    for (int i = 0; i < kThreads; ++i) {
        threads[i].join();
        all.insert(drawn[i].begin(), drawn[i].end());
    }
    EXPECT_EQ(all.size(), kThreads * kEach);
}

void draw_to(int out) {
    for (int i = 0; i < 70; ++i) {  // more than a thread takes in advance
        const Bytes uuid = new_uuid();
        EXPECT_EQ(write(out, uuid.data(), uuid.size()), 16);
    }
}

// Draws before and after each fork, in this process and its descendants.
void draw_around_forks(int out, long (*fork_by)(), int depth) {
    draw_to(out);
    const auto child = depth == 0 ? -1 : static_cast<pid_t>(fork_by());
    if (child == 0) {
        alarm(60);
        draw_around_forks(out, fork_by, depth - 1);
        _exit(testing::Test::HasFailure() ? 1 : 0);
    }
    draw_to(out);
    int status = 0;
    EXPECT_EQ(depth == 0 ? -1 : waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

TEST(Uuid, IsUniqueAfterForks) {
    const std::tuple<const char *, long (*)()> kRows[] = {
        {"fork", [] { return long{fork()}; }},
        {"without handlers", [] { return long{_Fork()}; }},
        {"the host's call", [] { return syscall(SYS_clone, SIGCHLD, 0, 0, 0, 0); }},
    };
    for (const auto &[name, fork_by] : kRows) {
        SCOPED_TRACE(name);
        int ends[2];
        ASSERT_EQ(pipe(ends), 0);
        draw_around_forks(ends[1], fork_by, 3);
        close(ends[1]);
        std::multiset<Bytes> all;
        for (Bytes uuid(16, '\0'); ::read(ends[0], uuid.data(), 16) == 16;) {
            all.insert(uuid);
        }
        close(ends[0]);
        EXPECT_EQ(all.size(), 4 * 2 * 70u);
        EXPECT_EQ(std::set<Bytes>(all.begin(), all.end()).size(), all.size());
    }
}

TEST(Uuid, HasATextInTheOrderOfItsFields) {
    const UUID fields = {
        0x01234567, 0x89AB, 0xCDEF, {0xFE, 0xDC, 0xBA, 0x98, 0x76, 0x54, 0x32, 0x10}};
    EXPECT_EQ(text_of(fields), kText);
    UUID read_back;
    for (std::u16string text : {kText, std::u16string(u"01234567-89AB-cdeF-FEDC-BA9876543210")}) {
        std::memset(&read_back, 0, sizeof read_back);
        EXPECT_EQ(UuidFromStringW(text.data(), &read_back), RPC_S_OK);
        EXPECT_EQ(std::memcmp(&read_back, &fields, sizeof fields), 0) << PrintToString(text);
    }
    EXPECT_EQ(UuidFromStringW(nullptr, &read_back), RPC_S_OK);
    EXPECT_EQ(text_of(read_back), u"00000000-0000-0000-0000-000000000000");
}

TEST(Uuid, RefusesOtherTextsAndLeavesTheTarget) {
    std::vector<std::u16string> texts = {u"{" + kText + u"}", u" " + kText, kText + u" ",
                                         kText + u"0", kText + u"-"};
    for (std::size_t i = 0; i < kText.size(); ++i) {
        texts.push_back(kText.substr(0, i));
        for (const WCHAR wrong : {u'g', u'G', u'`', u'@', u'/', u':', u' ', u'-', u'\x7F', u'\x80',
                                  u'\u0130', u'\uFF10', u'\uFFFF', u'0'}) {
            const bool is_digit = kText[i] != u'-';
            if (wrong != (is_digit ? u'0' : u'-')) {
                texts.push_back(kText);
                texts.back()[i] = wrong;
            }
        }
    }
    UUID uuid = {7, 7, 7, {}};
    for (const std::u16string &text : texts) {
        EXPECT_EQ(read(text, &uuid), RPC_STATUS{RPC_S_INVALID_STRING_UUID}) << PrintToString(text);
    }
    EXPECT_EQ(text_of(uuid), u"00000007-0007-0007-0000-000000000000");
}

TEST(Uuid, ComparesAsUnsignedFieldsInOrder) {
    UUID nil = {};
    const struct {
        const char *name;
        UUID a, b;
        int order;
    } kRows[] = {
        {"equal", {1, 2, 3, {4}}, {1, 2, 3, {4}}, 0},
        {"Data1 by bytes", {0x100, 0, 0, {}}, {0xFF, 9, 9, {9}}, 1},
        {"Data1 by sign", {0x80000000, 0, 0, {}}, {1, 0, 0, {}}, 1},
        {"Data2", {1, 0xFF, 9, {9}}, {1, 0x100, 0, {}}, -1},
        {"Data3", {1, 1, 0x8000, {}}, {1, 1, 0xFF, {9}}, 1},
        {"Data4, first", {1, 1, 1, {0x80}}, {1, 1, 1, {0x7F, 9}}, 1},
        {"Data4, last",
         {1, 1, 1, {1, 1, 1, 1, 1, 1, 1, 1}},
         {1, 1, 1, {1, 1, 1, 1, 1, 1, 1, 2}},
         -1},
    };
    for (auto row : kRows) {
        RPC_STATUS status = 1;
        EXPECT_EQ(UuidCompare(&row.a, &row.b, &status), row.order) << row.name;
        EXPECT_EQ(status, RPC_S_OK);
        EXPECT_EQ(UuidCompare(&row.b, &row.a, nullptr), -row.order) << row.name;
        EXPECT_EQ(UuidCompare(&row.a, nullptr, &status), 1) << row.name;
    }
    EXPECT_EQ(UuidCompare(nullptr, &nil, nullptr), 0);
}

TEST(Uuid, CallsReturnTheirCodeAndLeaveTheLastError) {
    UUID uuid = {};
    RPC_WSTR text = nullptr;
    SetLastError(77);
    EXPECT_EQ(UuidFromStringW(kText.substr(1).data(), &uuid),
              RPC_STATUS{RPC_S_INVALID_STRING_UUID});
    EXPECT_EQ(UuidFromStringW(nullptr, nullptr), RPC_S_INVALID_ARG);
    EXPECT_EQ(UuidToStringW(nullptr, &text), RPC_S_INVALID_ARG);
    EXPECT_EQ(UuidToStringW(&uuid, nullptr), RPC_S_INVALID_ARG);
    EXPECT_EQ(RpcStringFreeW(nullptr), RPC_S_INVALID_ARG);
    EXPECT_EQ(RpcStringFreeW(&text), RPC_S_OK);
    EXPECT_EQ(GetLastError(), 77u);
}

}  // namespace
