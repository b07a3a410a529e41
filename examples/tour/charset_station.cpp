#include <cstdlib>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <string>

#include "ostrel/charset/japanese.h"
#include "ostrel/charset/mime_words.h"
#include "ostrel/charset/util_toUTF8.h"
#include "ostrel/core/convert.h"
#include "tour.h"

namespace {

std::string content_of(const char *file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

void print_indented(const char *text) {
    std::cout << "    ";
    for (; *text != '\0'; ++text) {
        if (*text != '\r') {
            std::cout << *text << (*text == '\n' && text[1] != '\0' ? "    " : "");
        }
    }
}

void show_letter() {
    const char *const file = "letter_shift_jis.txt";
    const std::string bytes = content_of(file);
    const bool detected =
        OS::charset::DetectJapaneseEncoding(bytes.c_str()) == OS::charset::EncodingShiftJis;
    std::cout << "  " << file << ", " << bytes.size() << " bytes, "
              << (detected ? "detected as" : "not detected as") << " Shift_JIS:\n";

    const CUTF8String utf8(bytes.c_str(), bytes.size(), "Shift_JIS");
    if (utf8.Get() == nullptr) {
        std::cout << "    not valid Shift_JIS\n";
        return;
    }
    print_indented(utf8.Get());
    const OS::x_wstring wide = OS::UTF8CharToWChar(utf8.Get(), nullptr);
    std::cout << "  as UTF-16: " << wide.GetLength()
              << " units, back to UTF-8: " << OS::WCharToUTF8Char(wide, nullptr).GetLength()
              << " bytes\n\n";
}

void show_header() {
    const char *const file = "mail_header.txt";
    const std::string header = content_of(file);
    std::cout << "  " << file << ":\n";
    print_indented(header.c_str());
    const std::unique_ptr<char, decltype(&std::free)> jis(
        OS::charset::DecodeMimeWords(header.c_str()), std::free);
    const CUTF8String utf8(jis.get(), 0, "ISO-2022-JP");
    std::cout << "  the header with its words decoded:\n";
    print_indented(jis != nullptr && utf8.Get() != nullptr ? utf8.Get() : "not well-formed\n");
}

}  // namespace

void charset_station() {
    show_letter();
    show_header();
}
