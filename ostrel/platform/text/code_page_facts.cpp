#include "ostrel/platform/text/code_page_facts.h"

#include <algorithm>
#include <iterator>

#include "ostrel/platform/text/best_fit_table.h"

namespace ostrel_platform {
namespace {

// Sorted by code page. Bytes without a character have one of private use, or the control character
// of the same value, so that they come back when they are written.
constexpr ByteRun kByteRuns[] = {
    {437, 0xE6, 0xE6, 0x00B5},  {720, 0x80, 0x81, 0x0080},  {720, 0x84, 0x84, 0x0084},
    {720, 0x86, 0x86, 0x0086},  {720, 0x8D, 0x90, 0x008D},  {852, 0xAA, 0xAA, 0x00AC},
    {860, 0xE6, 0xE6, 0x00B5},  {861, 0xE6, 0xE6, 0x00B5},  {862, 0xE6, 0xE6, 0x00B5},
    {863, 0xE6, 0xE6, 0x00B5},  {865, 0xE6, 0xE6, 0x00B5},  {932, 0x80, 0x80, 0x0080},
    {932, 0xA0, 0xA0, 0xF8F0},  {932, 0xFD, 0xFF, 0xF8F1},  {1253, 0xAA, 0xAA, 0xF8F9},
    {1253, 0xD2, 0xD2, 0xF8FA}, {1253, 0xFF, 0xFF, 0xF8FB}, {1255, 0xCA, 0xCA, 0x05BA},
    {1255, 0xD9, 0xDF, 0xF88D}, {1255, 0xFB, 0xFC, 0xF894}, {1255, 0xFF, 0xFF, 0xF896},
    {1257, 0xA1, 0xA1, 0xF8FC}, {1257, 0xA5, 0xA5, 0xF8FD},
};

constexpr auto kByCodePage = [](const ByteRun &one, const ByteRun &other) {
    return one.code_page < other.code_page;
};
static_assert(std::is_sorted(std::begin(kByteRuns), std::end(kByteRuns), kByCodePage));

constexpr auto kByCharacter = [](const BestFit &one, const BestFit &other) {
    return one.character < other.character;
};
static_assert(std::is_sorted(std::begin(kBestFits), std::end(kBestFits), kByCharacter));

}  // namespace

std::span<const ByteRun> byte_runs(unsigned code_page) {
    const auto [first, last] = std::equal_range(std::begin(kByteRuns), std::end(kByteRuns),
                                                ByteRun{code_page, 0, 0, 0}, kByCodePage);
    return {first, last};
}

WCHAR character_of_byte(unsigned code_page, unsigned char byte) {
    for (const ByteRun &run : byte_runs(code_page)) {
        if (byte >= run.first && byte <= run.last) {
            return static_cast<WCHAR>(run.character + (byte - run.first));
        }
    }
    return 0;
}

int byte_of_character(unsigned code_page, WCHAR character) {
    for (const ByteRun &run : byte_runs(code_page)) {
        const int byte = run.first + (character - run.character);
        if (byte >= run.first && byte <= run.last) {
            return byte;
        }
    }
    return -1;
}

WCHAR best_fit(unsigned code_page, WCHAR character) {
    const auto *const page =
        std::find(std::begin(kBestFitPages), std::end(kBestFitPages), code_page);
    if (page == std::end(kBestFitPages)) {
        return 0;
    }
    const unsigned bit = 1U << (page - std::begin(kBestFitPages));
    const auto [first, last] = std::equal_range(std::begin(kBestFits), std::end(kBestFits),
                                                BestFit{character, 0, 0}, kByCharacter);
    const auto *const fit =
        std::find_if(first, last, [bit](const BestFit &row) { return (row.pages & bit) != 0; });
    return fit == last ? WCHAR{0} : fit->fit;
}

}  // namespace ostrel_platform
