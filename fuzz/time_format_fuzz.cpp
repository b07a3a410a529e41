// Any format with any fields, under several locales and in a buffer of any size; any text by the
// scan formats of the library. What the host gives for the same is the measure where both agree.

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <iterator>
#include <memory>
#include <string>

#include "fuzz/check.h"
#include "ostrel/platform/scanf.h"
#include "ostrel/platform/time.h"
#include "ostrel/platform/time/time_locale.h"

namespace {

class Input {
public:
    Input(const std::uint8_t *data, std::size_t size) : m_at(data), m_left(size) {}

    // A value of the next bytes; zeros stand for those that are missing.
    template <class Value>
    Value Take() {
        Value value{};
        const std::size_t size = std::min(sizeof value, m_left);
        std::memcpy(&value, m_at, size);
        m_at += size;
        m_left -= size;
        return value;
    }

    std::u16string Rest() {
        std::u16string text;
        while (m_left > 0) {
            text.push_back(Take<WCHAR>());
        }
        return text;
    }

private:
    const std::uint8_t *m_at;
    std::size_t m_left;
};

// A field is mostly small; then it is in its range or just outside.
int field(Input &input) {
    const auto small = input.Take<std::int8_t>();
    return small == -128 ? input.Take<std::int32_t>() : small;
}

std::tm fields(Input &input) {
    std::tm time{};
    for (int *const value : {&time.tm_sec, &time.tm_min, &time.tm_hour, &time.tm_mday, &time.tm_mon,
                             &time.tm_year, &time.tm_wday, &time.tm_yday, &time.tm_isdst}) {
        *value = field(input);
    }
    return time;
}

void write(Input &input) {
    static const char *const kLocales[] = {"de_DE.UTF-8", "en_US",       "ja_JP", "fi_FI",
                                           "ar_EG",       "sr_RS@latin", "th_TH", "zh_TW"};
    const std::tm time = fields(input);
    const std::size_t room = input.Take<std::uint8_t>();
    const char *const locale = kLocales[input.Take<std::uint8_t>() % std::size(kLocales)];
    const std::u16string format = input.Rest();

    const auto text = std::make_unique<WCHAR[]>(room);  // its bounds are watched
    errno = 0;
    const std::size_t length = wcsftime(text.get(), room, format.c_str(), &time);
    check(length < room || room == 0);
    check(room == 0 || std::char_traits<WCHAR>::length(text.get()) == length);
    check(length > 0 || errno != 0 || format.c_str()[0] == 0);
    if (room > 0) {
        int error = 0;
        check(ostrel_platform::write_time(ostrel_platform::time_forms_of(locale), format, time,
                                          9999, text.get(), room, &error) < room);
    }
}

// Every directive, with fields that are in their ranges but need not go together.
void write_as_host(Input &input) {
    const auto in = [&input](int first, int last) {
        return first + static_cast<int>(input.Take<std::uint16_t>()) % (last - first + 1);
    };
    std::tm time{};
    time.tm_sec = in(0, 60);
    time.tm_min = in(0, 59);
    time.tm_hour = in(0, 23);
    time.tm_mday = in(1, 31);
    time.tm_mon = in(0, 11);
    // Years that the host writes with four digits, but not the last: the next has five.
    time.tm_year = in(1001 - 1900, 8098);
    time.tm_wday = in(0, 6);
    time.tm_yday = in(0, 365);
    std::string format, host;
    for (const char directive : std::string("aAbBcCdDeFgGhHIjmMnprRStTuUVwWxXyY%")) {
        const bool shorter =
            std::strchr("CdeHIjmMSUVWyY", directive) && input.Take<std::uint8_t>() % 2;
        format += std::string(shorter ? "%#" : "%") + directive + ' ';
        host += std::string(shorter ? "%-" : "%") + directive + ' ';
    }
    char expected[400];
    const std::size_t length = std::strftime(expected, sizeof expected, host.c_str(), &time);
    const std::u16string wide(format.begin(), format.end());
    for (const std::size_t room : {length + 1, 1 + input.Take<std::uint8_t>() % length}) {
        const auto text = std::make_unique<WCHAR[]>(room);  // its bounds are watched
        const bool fits = room > length;
        errno = 0;
        check(wcsftime(text.get(), room, wide.c_str(), &time) == (fits ? length : 0));
        check(errno == (fits ? 0 : ERANGE));
        check(fits ? std::equal(expected, expected + length, text.get()) : text[0] == 0);
    }
}

// Up to three conversions, of numbers or of words, between white space and other characters.
void scan_as_host(Input &input) {
    static constexpr const char *kFormatParts[] = {"%d", "%1d", "%2d", "%4d", " ",
                                                   "-",  "/",   "%%",  "\t"};
    static constexpr const char *kTextParts[] = {"1", "20", "123", "07", "-",  "+",  "/",  "%", " ",
                                                 "x", "a",  "",    "\t", "  ", "-1", "+2", "\n"};
    const auto pick = [&input](const auto &list) {
        return list[input.Take<std::uint8_t>() % std::size(list)];
    };
    const bool words = input.Take<std::uint8_t>() % 2 == 0;
    std::string format;
    for (int conversions = 0; conversions < 3 && input.Take<std::uint8_t>() % 12 != 0;) {
        format += pick(kFormatParts);
        conversions += format.back() == 'd';
    }
    if (words) {
        std::replace(format.begin(), format.end(), 'd', 's');
    }
    std::string text;
    for (int parts = input.Take<std::uint8_t>() % 14; parts > 0; --parts) {
        text += pick(kTextParts);
        if (text.size() - (text.find_last_not_of("0123456789") + 1) > 6) {
            text += ' ';  // the host leaves open what a number out of range gives
        }
    }
    const std::u16string wide_text(text.begin(), text.end());
    const std::u16string wide_format(format.begin(), format.end());
    if (words) {
        WCHAR ours[3][64] = {};
        char host[3][64] = {};
        check(swscanf(wide_text.c_str(), wide_format.c_str(), ours[0], ours[1], ours[2]) ==
              std::sscanf(text.c_str(), format.c_str(), host[0], host[1], host[2]));
        check(std::equal(&ours[0][0], &ours[0][0] + 3 * 64, &host[0][0]));
    } else {
        int ours[3] = {-7, -7, -7};
        int host[3] = {-7, -7, -7};
        check(swscanf(wide_text.c_str(), wide_format.c_str(), &ours[0], &ours[1], &ours[2]) ==
              std::sscanf(text.c_str(), format.c_str(), &host[0], &host[1], &host[2]));
        check(std::equal(ours, ours + 3, host));
    }
}

void scan(Input &input) {
    const std::u16string text = input.Rest();
    int numbers[5] = {};
    check(swscanf(text.c_str(), TEXT("%2d/%2d/%4d %2d:%2d"), &numbers[0], &numbers[1], &numbers[2],
                  &numbers[3], &numbers[4]) <= 5);
    for (const int number : numbers) {
        check(number > -1000 && number < 10000);
    }
    for (const WCHAR *const format : {TEXT("%4s-%2s-%2s %2s:%2s"), TEXT("%2s/%2s/%4s %2s:%2s:%2s"),
                                      TEXT("%4s-%2s-%2s %2s:%2s:%2s")}) {
        struct Word {
            WCHAR text[5];
        };
        const auto words = std::make_unique<Word[]>(6);
        check(swscanf(text.c_str(), format, words[0].text, words[1].text, words[2].text,
                      words[3].text, words[4].text, words[5].text) <= 6);
        for (std::size_t i = 0; i < 6; ++i) {
            check(words[i].text[4] == 0);
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    Input input(data, size);
    static constexpr void (*kParts[])(Input &) = {write, scan, write_as_host, scan_as_host};
    kParts[input.Take<std::uint8_t>() % 4](input);
    return 0;
}
