#ifndef TESTS_SUPPORT_ZONE_BYTES_H
#define TESTS_SUPPORT_ZONE_BYTES_H

// Zone files that no database has.

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

inline std::string big_endian(std::uint64_t value, int width) {
    std::string bytes;
    while (width-- > 0) {
        bytes += static_cast<char>(value >> (8 * width));
    }
    return bytes;
}

// The content of a zone file.
struct ZoneBytes {
    struct Type {
        std::int64_t offset;
        bool daylight;
        unsigned name;
    };
    std::vector<std::pair<std::int64_t, unsigned>> changes;  // time, type
    std::vector<Type> types;
    std::string names;
    std::string footer;

    std::string Block(char version, int width) const {
        std::string bytes = "TZif" + std::string(1, version) + std::string(15, '\0') +
                            big_endian(0, 4) + big_endian(0, 4) + big_endian(0, 4) +
                            big_endian(changes.size(), 4) + big_endian(types.size(), 4) +
                            big_endian(names.size(), 4);
        for (const auto &[time, type] : changes) {
            bytes += big_endian(static_cast<std::uint64_t>(time), width);
        }
        for (const auto &[time, type] : changes) {
            bytes += big_endian(type, 1);
        }
        for (const Type &type : types) {
            bytes += big_endian(static_cast<std::uint64_t>(type.offset), 4) +
                     big_endian(type.daylight, 1) + big_endian(type.name, 1);
        }
        return bytes + names;
    }
    std::string Bytes() const { return Block('2', 4) + Block('2', 8) + '\n' + footer + '\n'; }
};

#endif  // TESTS_SUPPORT_ZONE_BYTES_H
