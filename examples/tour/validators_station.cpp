#include <cstddef>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <string>

#include "ostrel/platform/types.h"
#include "ostrel/regex/validators.h"
#include "tour.h"

namespace {

using Text = std::basic_string<WCHAR>;

// Prints each line of the file with the result of `check`. The files are ASCII, so a byte is a
// character.
template <class Check>
void check_lines(const char *file, Check check) {
    std::ifstream lines(file);
    if (!lines) {
        std::cout << "  " << file << " cannot be opened\n";
        return;
    }
    std::size_t accepted = 0;
    std::size_t total = 0;
    for (std::string line; std::getline(lines, line); ++total) {
        if (!line.empty() && line.back() == '\r') {
            line.pop_back();
        }
        const bool valid = check(Text(line.begin(), line.end()));
        accepted += valid ? 1 : 0;
        std::cout << "  " << std::left << std::setw(46) << line << (valid ? "accepted" : "rejected")
                  << '\n';
    }
    std::cout << "  " << file << ": " << accepted << " of " << total << " accepted\n\n";
}

}  // namespace

void validators_station() {
    check_lines("addresses.txt",
                [](const Text &address) { return VerifyEMailAddress(address.c_str()); });
    check_lines("paths.txt",
                [](const Text &path) { return CheckPathFormat(path.c_str(), path.size()); });
}
