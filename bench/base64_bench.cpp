// Base64 of 1 MiB both ways. The text that is decoded is in lines of 60 characters, except for
// Boost, glib and OpenSSL's block call: they take it in one piece, without line ends. What has to
// be given memory gets it before; Ostrel, glib and Abseil allocate each result.

#include <absl/strings/escaping.h>
#include <benchmark/benchmark.h>
#include <glib.h>
#include <openssl/evp.h>

#include <boost/beast/core/detail/base64.hpp>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "ostrel/charset/transfer_coding.h"

namespace {

constexpr std::size_t kSize = 1 << 20;

const std::string &data() {
    static const std::string made = [] {
        std::mt19937 random(1);
        std::string bytes(kSize, '\0');
        for (char &c : bytes) {
            c = static_cast<char>(random());
        }
        return bytes;
    }();
    return made;
}

const std::string &lines() {
    static const std::string made = [] {
        unsigned length = 0;
        char *text = OS::charset::EncodeBase64(data().data(), kSize, &length);
        const std::string copy(text, length);
        std::free(text);
        return copy;
    }();
    return made;
}

const std::string &one_piece() {
    static const std::string made = absl::Base64Escape(data());
    return made;
}

const unsigned char *bytes_of(const std::string &text) {
    return reinterpret_cast<const unsigned char *>(text.data());
}

// Runs `code`, which gives the length of its result.
template <class Code>
void run(benchmark::State &state, std::size_t expected, Code code) {
    std::size_t length = 0;
    for (auto _ : state) {
        length = code();
    }
    if (length != expected) {
        state.SkipWithError("wrong result");
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(kSize));
}

void EncodeOstrel(benchmark::State &state) {
    run(state, lines().size(), [] {
        unsigned length = 0;
        char *text = OS::charset::EncodeBase64(data().data(), kSize, &length);
        benchmark::DoNotOptimize(text);
        std::free(text);
        return length;
    });
}
BENCHMARK(EncodeOstrel)->Unit(benchmark::kMicrosecond);

void EncodeGlib(benchmark::State &state) {
    run(state, one_piece().size(), [] {
        gchar *text = g_base64_encode(bytes_of(data()), kSize);
        benchmark::DoNotOptimize(text);
        g_free(text);
        return one_piece().size();
    });
}
BENCHMARK(EncodeGlib)->Unit(benchmark::kMicrosecond);

void EncodeOpenSsl(benchmark::State &state) {
    std::vector<unsigned char> text(2 * kSize);
    run(state, one_piece().size(), [&] {
        return static_cast<std::size_t>(
            EVP_EncodeBlock(text.data(), bytes_of(data()), static_cast<int>(kSize)));
    });
}
BENCHMARK(EncodeOpenSsl)->Unit(benchmark::kMicrosecond);

void EncodeBoost(benchmark::State &state) {
    std::vector<char> text(2 * kSize);
    run(state, one_piece().size(),
        [&] { return boost::beast::detail::base64::encode(text.data(), data().data(), kSize); });
}
BENCHMARK(EncodeBoost)->Unit(benchmark::kMicrosecond);

void EncodeAbseil(benchmark::State &state) {
    run(state, one_piece().size(), [] { return absl::Base64Escape(data()).size(); });
}
BENCHMARK(EncodeAbseil)->Unit(benchmark::kMicrosecond);

void DecodeOstrel(benchmark::State &state) {
    run(state, kSize, [] {
        unsigned length = 0;
        char *bytes = OS::charset::DecodeBase64(lines().data(),
                                                static_cast<unsigned>(lines().size()), &length);
        benchmark::DoNotOptimize(bytes);
        std::free(bytes);
        return length;
    });
}
BENCHMARK(DecodeOstrel)->Unit(benchmark::kMicrosecond);

void DecodeGlib(benchmark::State &state) {
    run(state, kSize, [] {
        gsize length = 0;
        guchar *bytes = g_base64_decode(one_piece().c_str(), &length);
        benchmark::DoNotOptimize(bytes);
        g_free(bytes);
        return length;
    });
}
BENCHMARK(DecodeGlib)->Unit(benchmark::kMicrosecond);

// The last group's padding counts as bytes here.
void DecodeOpenSslBlock(benchmark::State &state) {
    std::vector<unsigned char> bytes(2 * kSize);
    run(state, (kSize + 2) / 3 * 3, [&] {
        return static_cast<std::size_t>(EVP_DecodeBlock(bytes.data(), bytes_of(one_piece()),
                                                        static_cast<int>(one_piece().size())));
    });
}
BENCHMARK(DecodeOpenSslBlock)->Unit(benchmark::kMicrosecond);

void DecodeOpenSslLines(benchmark::State &state) {
    std::vector<unsigned char> bytes(2 * kSize);
    EVP_ENCODE_CTX *const context = EVP_ENCODE_CTX_new();
    run(state, kSize, [&] {
        int length = 0;
        int rest = 0;
        EVP_DecodeInit(context);
        EVP_DecodeUpdate(context, bytes.data(), &length, bytes_of(lines()),
                         static_cast<int>(lines().size()));
        EVP_DecodeFinal(context, bytes.data() + length, &rest);
        return static_cast<std::size_t>(length + rest);
    });
    EVP_ENCODE_CTX_free(context);
}
BENCHMARK(DecodeOpenSslLines)->Unit(benchmark::kMicrosecond);

void DecodeBoost(benchmark::State &state) {
    std::vector<char> bytes(2 * kSize);
    run(state, kSize, [&] {
        return boost::beast::detail::base64::decode(bytes.data(), one_piece().data(),
                                                    one_piece().size())
            .first;
    });
}
BENCHMARK(DecodeBoost)->Unit(benchmark::kMicrosecond);

void DecodeAbseil(benchmark::State &state) {
    run(state, kSize, [] {
        std::string bytes;
        absl::Base64Unescape(lines(), &bytes);
        return bytes.size();
    });
}
BENCHMARK(DecodeAbseil)->Unit(benchmark::kMicrosecond);

}  // namespace
