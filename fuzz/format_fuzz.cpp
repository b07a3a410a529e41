// Formats made from the conversions that Format measures, with matching values: the text fits the
// estimate, but for the signs of numbers, and nothing outside a buffer is touched.

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "ostrel/core/format_estimate.h"
#include "ostrel/core/x_string.h"

namespace {

class Input {
public:
    Input(const std::uint8_t *data, std::size_t size) : m_at(data), m_end(data + size) {}

    unsigned Byte() { return m_at != m_end ? *m_at++ : 0; }
    unsigned Below(unsigned count) { return Byte() % count; }

    template <class Value>
    Value Number() {
        Value value{};
        for (std::size_t i = 0; i < sizeof value; ++i) {
            const auto byte = static_cast<unsigned char>(Byte());
            std::memcpy(reinterpret_cast<char *>(&value) + i, &byte, 1);
        }
        return value;
    }

    template <class Char>
    std::basic_string<Char> Text() {
        std::basic_string<Char> text;
        for (unsigned length = Below(40); length > 0; --length) {
            if (const auto character = static_cast<Char>(Number<Char>())) {
                text.push_back(character);
            }
        }
        return text;
    }

private:
    const std::uint8_t *m_at;
    const std::uint8_t *m_end;
};

template <class Char>
OS::detail::FormatEstimate estimate(const Char *format, ...) {
    std::va_list args;
    va_start(args, format);
    const auto result = OS::detail::estimate_format(format, &args);
    va_end(args);
    return result;
}

template <class String, class Char, class... Values>
void print(const std::basic_string<Char> &format, Values... values) {
    String text;
    text.Format(format.c_str(), values...);
    const auto measured = estimate(format.c_str(), values...);
    // A number with a large precision may have a sign, a point and an exponent beyond its item.
    constexpr std::size_t kBeyond = 8;
    if (measured.complete && text.size() > measured.total + kBeyond * sizeof...(Values)) {
        std::abort();
    }
}

// Adds conversions, each with the value it takes, until the input says stop.
template <class String, class Char>
class Maker {
public:
    explicit Maker(Input *input) : m_input(*input) {}

    template <class... Values>
    void Add(Values... values) {
        for (unsigned plain = m_input.Below(4); plain > 0; --plain) {
            const auto character = static_cast<Char>(m_input.Number<Char>());
            m_format.push_back(character == 0 || character == '%' ? Char('x') : character);
        }
        if constexpr (sizeof...(Values) == 4) {
            print<String, Char>(m_format, values...);
        } else {
            switch (m_input.Below(5)) {
                case 0:
                    return print<String, Char>(m_format, values...);
                case 1:
                    Conversion("diouxXcC", true);
                    return Add(values..., m_input.Number<int>());
                case 2:
                    Conversion("fegG", false);
                    return Add(values..., m_input.Number<double>());
                case 3: {
                    const auto text = m_input.Text<WCHAR>();
                    Conversion(sizeof(Char) == 1 ? "S" : "s", false);
                    return Add(values..., m_input.Below(8) == 0 ? nullptr : text.c_str());
                }
                default: {
                    const auto text = m_input.Text<char>();
                    Conversion(sizeof(Char) == 1 ? "s" : "S", false);
                    return Add(values..., m_input.Below(8) == 0 ? nullptr : text.c_str());
                }
            }
        }
    }

private:
    void Conversion(const char *letters, bool modifiers) {
        m_format.push_back('%');
        for (unsigned flags = m_input.Below(4); flags > 0; --flags) {
            m_format.push_back(static_cast<Char>("-+0 #"[m_input.Below(5)]));
        }
        if (m_input.Below(2) == 0) {
            Digits(m_input.Below(200));
        }
        if (m_input.Below(2) == 0) {
            m_format.push_back('.');
            Digits(m_input.Below(60));
        }
        if (modifiers && m_input.Below(3) == 0) {
            m_format.push_back(static_cast<Char>("hlLN"[m_input.Below(4)]));
        }
        m_format.push_back(
            static_cast<Char>(letters[m_input.Below(static_cast<unsigned>(std::strlen(letters)))]));
    }

    void Digits(unsigned number) {
        for (const char digit : std::to_string(number)) {
            m_format.push_back(static_cast<Char>(digit));
        }
    }

    Input &m_input;
    std::basic_string<Char> m_format;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    Input input(data, size);
    if (input.Below(2) == 0) {
        Maker<OS::x_astring, char>(&input).Add();
    } else {
        Maker<OS::x_wstring, WCHAR>(&input).Add();
    }
    return 0;
}
