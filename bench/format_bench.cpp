// One line of "%s %d %.2f %04x" into a string that is used again and again.

#include <absl/strings/str_format.h>
#include <benchmark/benchmark.h>
#include <fmt/printf.h>

#include <Poco/Format.h>
#include <QString>
#include <cstdio>
#include <cwchar>
#include <string>

#include "ostrel/core/x_string.h"

namespace {

constexpr char kName[] = "connection";
constexpr WCHAR kWideName[] = TEXT("connection");
int g_number = 4711;
double g_value = 1234.5678;
int g_hex = 0x2A;

void NarrowOstrel(benchmark::State &state) {
    OS::x_astring text;
    for (auto _ : state) {
        text.Format("%s %d %.2f %04x", kName, g_number, g_value, g_hex);
        benchmark::DoNotOptimize(text);
    }
}

void NarrowSnprintf(benchmark::State &state) {
    std::string text;
    for (auto _ : state) {
        char buffer[256];
        std::snprintf(buffer, sizeof buffer, "%s %d %.2f %04x", kName, g_number, g_value,
                      static_cast<unsigned>(g_hex));
        text = buffer;
        benchmark::DoNotOptimize(text);
    }
}

void NarrowAbseil(benchmark::State &state) {
    std::string text;
    for (auto _ : state) {
        text = absl::StrFormat("%s %d %.2f %04x", kName, g_number, g_value, g_hex);
        benchmark::DoNotOptimize(text);
    }
}

void NarrowFmt(benchmark::State &state) {
    std::string text;
    for (auto _ : state) {
        text = fmt::sprintf("%s %d %.2f %04x", kName, g_number, g_value, g_hex);
        benchmark::DoNotOptimize(text);
    }
}

void NarrowPoco(benchmark::State &state) {
    std::string text;
    for (auto _ : state) {
        text = Poco::format("%s %d %.2f %04x", std::string(kName), g_number, g_value, g_hex);
        benchmark::DoNotOptimize(text);
    }
}

void WideOstrel(benchmark::State &state) {
    OS::x_wstring text;
    for (auto _ : state) {
        text.Format(TEXT("%s %d %.2f %04x"), kWideName, g_number, g_value, g_hex);
        benchmark::DoNotOptimize(text);
    }
}

void WideSwprintf(benchmark::State &state) {
    std::wstring text;
    for (auto _ : state) {
        wchar_t buffer[256];
        std::swprintf(buffer, 256, L"%ls %d %.2f %04x", L"connection", g_number, g_value,
                      static_cast<unsigned>(g_hex));
        text = buffer;
        benchmark::DoNotOptimize(text);
    }
}

void WideQt(benchmark::State &state) {
    QString text;
    for (auto _ : state) {
        text = QString::asprintf("%s %d %.2f %04x", kName, g_number, g_value,
                                 static_cast<unsigned>(g_hex));
        benchmark::DoNotOptimize(text);
    }
}

BENCHMARK(NarrowOstrel);
BENCHMARK(NarrowSnprintf);
BENCHMARK(NarrowAbseil);
BENCHMARK(NarrowFmt);
BENCHMARK(NarrowPoco);
BENCHMARK(WideOstrel);
BENCHMARK(WideSwprintf);
BENCHMARK(WideQt);

}  // namespace
