#ifndef TESTS_SUPPORT_FILE_TREE_H
#define TESTS_SUPPORT_FILE_TREE_H

// Directory trees as text: "a=content d/ d/l->target ".

#include <algorithm>
#include <chrono>
#include <set>
#include <sstream>

#include "support/temp_dir.h"

using Lines = std::multiset<std::string>;

inline std::string content_of(const fs::path &path) {
    std::ostringstream content;
    content << std::ifstream(path, std::ios::binary).rdbuf();
    return content.str();
}

// What lies below a directory.
inline Lines lines_of(const fs::path &top = ".") {
    Lines lines;
    for (const auto &entry : fs::recursive_directory_iterator(top)) {
        const std::string name = entry.path().lexically_relative(top);
        lines.insert(entry.is_symlink()     ? name + "->" + read_symlink(entry.path()).string()
                     : entry.is_directory() ? name + '/'
                                            : name + '=' + content_of(entry));
    }
    return lines;
}

inline std::string text(const Lines &lines) {
    std::string text;
    for (const std::string &line : lines) {
        text += line + ' ';
    }
    return text;
}

inline std::string tree(const fs::path &top = ".") {
    return text(lines_of(top));
}

// The lines of `all` that `known` has not.
inline std::string without(const Lines &all, const Lines &known) {
    Lines rest;
    std::set_difference(all.begin(), all.end(), known.begin(), known.end(),
                        std::inserter(rest, rest.end()));
    return text(rest);
}

// Makes what tree() tells; folders on the way need no mention. No two files have the same time.
inline void plant(const std::string &text) {
    std::istringstream lines(text);
    for (std::string line; lines >> line;) {
        const std::size_t content = line.find('='), link = line.find("->");
        const fs::path path = line.substr(0, std::min(content, link));
        fs::create_directories("." / path.parent_path());
        if (link != line.npos) {
            fs::create_symlink(line.substr(link + 2), path);
        } else if (content != line.npos) {
            std::ofstream(path) << line.substr(content + 1);
            static int age = 0;
            fs::last_write_time(path, fs::file_time_type::clock::now() - std::chrono::hours(++age));
        }
    }
}

#endif  // TESTS_SUPPORT_FILE_TREE_H
