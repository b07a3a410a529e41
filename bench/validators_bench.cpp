// VerifyEMailAddress beside the engines that a program would otherwise use. Each of them compiles
// its pattern at every call, as ours does, and checks the same 1,000 addresses; the numbers of an
// address in brackets are left to the pattern. The engines of bytes get UTF-8.

#include <benchmark/benchmark.h>

#define PCRE2_CODE_UNIT_WIDTH 16
#include <pcre2.h>
#include <re2/re2.h>

#include <boost/regex.hpp>
#include <cstddef>
#include <random>
#include <regex>
#include <string>
#include <vector>

#include "ostrel/regex/validators.h"

namespace {

#define LABEL "[a-zA-Z0-9-]+"
#define OCTET "[0-9]{1,3}"
#define ADDRESS                                        \
    "(\"[^\"]*\"|[._a-zA-Z0-9]+)@(" LABEL "|(?:" LABEL \
    "\\.)+([a-zA-Z]{2,3})|"                            \
    "\\[" OCTET "\\." OCTET "\\." OCTET "\\." OCTET "\\])"

struct Addresses {
    std::vector<std::u16string> wide;
    std::vector<std::string> narrow;
};

const Addresses &addresses() {
    static const Addresses made = [] {
        constexpr const char *kLocal[] = {
            "j.smith", "mary_jones42", "info", "\"J. Smith\"", "very.long.name.of.a.person", "a-b",
            ""};
        constexpr const char *kDomain[] = {"example.com", "mail.example.co.uk", "localhost",
                                           "[10.0.0.1]",  "example.info",       "[1.2.3]",
                                           "host..org",   "a-1.b-2.example.de"};
        std::mt19937 random(1);
        Addresses result;
        for (int i = 0; i < 1000; ++i) {
            std::string text = kLocal[random() % std::size(kLocal)];
            text += random() % 16 == 0 ? "" : "@";
            text += kDomain[random() % std::size(kDomain)];
            result.wide.emplace_back(text.begin(), text.end());
            result.narrow.push_back(std::move(text));
        }
        return result;
    }();
    return made;
}

// Checks the addresses over and over; a time is that of all 1,000.
template <class Text, class Check>
void check_all(benchmark::State &state, const std::vector<Text> &texts, Check check) {
    std::size_t accepted = 0;
    for (auto _ : state) {
        accepted = 0;
        for (const Text &text : texts) {
            accepted += check(text) ? 1U : 0U;
        }
    }
    state.counters["accepted"] = static_cast<double>(accepted);
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(texts.size()));
}

void BM_Ostrel(benchmark::State &state) {
    check_all(state, addresses().wide,
              [](const std::u16string &text) { return VerifyEMailAddress(text.c_str()); });
}
BENCHMARK(BM_Ostrel);

void pcre2(benchmark::State &state, bool jit) {
    static constexpr char16_t kPattern[] = u"^(?:" ADDRESS ")$";
    check_all(state, addresses().wide, [jit](const std::u16string &text) {
        int error = 0;
        PCRE2_SIZE offset = 0;
        pcre2_code *code =
            pcre2_compile(reinterpret_cast<PCRE2_SPTR>(kPattern), PCRE2_ZERO_TERMINATED,
                          PCRE2_DOLLAR_ENDONLY, &error, &offset, nullptr);
        if (jit) {
            pcre2_jit_compile(code, PCRE2_JIT_COMPLETE);
        }
        pcre2_match_data *data = pcre2_match_data_create_from_pattern(code, nullptr);
        const int result = pcre2_match(code, reinterpret_cast<PCRE2_SPTR>(text.data()), text.size(),
                                       0, 0, data, nullptr);
        pcre2_match_data_free(data);
        pcre2_code_free(code);
        return result > 0;
    });
}

void BM_Pcre2(benchmark::State &state) {
    pcre2(state, false);
}
BENCHMARK(BM_Pcre2);

void BM_Pcre2Jit(benchmark::State &state) {
    pcre2(state, true);
}
BENCHMARK(BM_Pcre2Jit);

void BM_Re2(benchmark::State &state) {
    check_all(state, addresses().narrow,
              [](const std::string &text) { return RE2::FullMatch(text, RE2(ADDRESS)); });
}
BENCHMARK(BM_Re2);

void BM_BoostRegex(benchmark::State &state) {
    check_all(state, addresses().narrow, [](const std::string &text) {
        return boost::regex_match(text, boost::regex(ADDRESS));
    });
}
BENCHMARK(BM_BoostRegex);

void BM_StdRegex(benchmark::State &state) {
    check_all(state, addresses().narrow,
              [](const std::string &text) { return std::regex_match(text, std::regex(ADDRESS)); });
}
BENCHMARK(BM_StdRegex);

void BM_CheckPathFormat(benchmark::State &state) {
    const std::u16string path = u"C:\\Program Files\\Service.Data\\logs\\2019-04\\";
    for (auto _ : state) {
        benchmark::DoNotOptimize(CheckPathFormat(path.data(), path.size()));
    }
}
BENCHMARK(BM_CheckPathFormat);

// Addresses of a growing number of characters: time for each character stays the same.
void check_growing(benchmark::State &state, const std::u16string &prefix,
                   const std::u16string &repeated, const std::u16string &suffix) {
    std::u16string text = prefix;
    while (text.size() < static_cast<std::size_t>(state.range(0))) {
        text += repeated;
    }
    text += suffix;
    for (auto _ : state) {
        benchmark::DoNotOptimize(VerifyEMailAddress(text.c_str()));
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
}

void BM_LongLocalPart(benchmark::State &state) {
    check_growing(state, u"", u"a", u"@b");
}
BENCHMARK(BM_LongLocalPart)->RangeMultiplier(16)->Range(1 << 8, 1 << 20);

void BM_LongLabel(benchmark::State &state) {
    check_growing(state, u"a@", u"b", u"!");
}
BENCHMARK(BM_LongLabel)->RangeMultiplier(16)->Range(1 << 8, 1 << 20);

void BM_ManyLabels(benchmark::State &state) {
    check_growing(state, u"a@", u"b.", u"info");
}
BENCHMARK(BM_ManyLabels)->RangeMultiplier(16)->Range(1 << 8, 1 << 20);

void BM_LongQuotedPart(benchmark::State &state) {
    check_growing(state, u"\"", u"a ", u"\"@b");
}
BENCHMARK(BM_LongQuotedPart)->RangeMultiplier(16)->Range(1 << 8, 1 << 20);

void BM_OpenQuote(benchmark::State &state) {
    check_growing(state, u"\"", u"a", u"");
}
BENCHMARK(BM_OpenQuote)->RangeMultiplier(16)->Range(1 << 8, 1 << 20);

}  // namespace
