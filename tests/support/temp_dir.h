#ifndef TESTS_SUPPORT_TEMP_DIR_H
#define TESTS_SUPPORT_TEMP_DIR_H

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <string_view>

#include "ostrel/platform/types.h"

// A new directory that is the current one for the length of a scope, and is removed then.
class TempDir {
public:
    TempDir() : m_before(std::filesystem::current_path()) {
        std::string name = (std::filesystem::temp_directory_path() / "ostrel-XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr) {
            throw std::runtime_error("mkdtemp");
        }
        m_path = name;
        std::filesystem::current_path(m_path);
    }
    ~TempDir() {
        std::filesystem::current_path(m_before);
        std::filesystem::remove_all(m_path);
    }
    TempDir(const TempDir &) = delete;
    TempDir &operator=(const TempDir &) = delete;

    const std::filesystem::path &Path() const { return m_path; }

    // Writes a file below the directory, with the folders on its way. Gives its path.
    std::u16string Write(const std::string &name, std::string_view content) const {
        std::filesystem::create_directories((m_path / name).parent_path());
        std::ofstream(m_path / name, std::ios::binary) << content;
        return std::filesystem::path(m_path / name).u16string();
    }

private:
    std::filesystem::path m_before;
    std::filesystem::path m_path;
};

#endif  // TESTS_SUPPORT_TEMP_DIR_H
