// Any format with any fields, under several locales and in a buffer of any size; any text by the
// scan formats of the library.

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "ostrel/platform/scanf.h"
#include "ostrel/platform/time.h"
#include "ostrel/platform/time_locale.h"

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

void require(bool holds) {
    if (!holds) {
        std::abort();
    }
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
    require(length < room || room == 0);
    require(room == 0 || std::char_traits<WCHAR>::length(text.get()) == length);
    require(length > 0 || errno != 0 || format.c_str()[0] == 0);
    if (room > 0) {
        int error = 0;
        require(platform::write_time(platform::time_forms_of(locale), format, time, 9999,
                                     text.get(), room, &error) < room);
    }
}

void scan(Input &input) {
    const std::u16string text = input.Rest();
    int numbers[5] = {};
    require(swscanf(text.c_str(), TEXT("%2d/%2d/%4d %2d:%2d"), &numbers[0], &numbers[1],
                    &numbers[2], &numbers[3], &numbers[4]) <= 5);
    for (const int number : numbers) {
        require(number > -1000 && number < 10000);
    }
    for (const WCHAR *const format : {TEXT("%4s-%2s-%2s %2s:%2s"), TEXT("%2s/%2s/%4s %2s:%2s:%2s"),
                                      TEXT("%4s-%2s-%2s %2s:%2s:%2s")}) {
        struct Word {
            WCHAR text[5];
        };
        const auto words = std::make_unique<Word[]>(6);
        require(swscanf(text.c_str(), format, words[0].text, words[1].text, words[2].text,
                        words[3].text, words[4].text, words[5].text) <= 6);
        for (std::size_t i = 0; i < 6; ++i) {
            require(words[i].text[4] == 0);
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    Input input(data, size);
    if (input.Take<std::uint8_t>() % 2 == 0) {
        write(input);
    } else {
        scan(input);
    }
    return 0;
}
