#ifndef TESTS_SUPPORT_TEMP_DIR_H
#define TESTS_SUPPORT_TEMP_DIR_H

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

namespace fs = std::filesystem;

// A new directory that is the current one for the length of a scope, and is removed then.
class TempDir {
public:
    TempDir() : m_before(fs::current_path()) {
        std::string name = fs::temp_directory_path() / "ostrel-XXXXXX";
        const char *const made = mkdtemp(name.data());
        m_path = made != nullptr ? made : "";
        fs::current_path(m_path);  // throws when nothing was made
    }
    ~TempDir() {
        fs::current_path(m_before);
        fs::remove_all(m_path);
    }
    TempDir &operator=(TempDir &&) = delete;  // nor copied

    const fs::path &Path() const { return m_path; }

    // Writes a file below the directory, with the folders on its way. Gives its path.
    std::u16string Write(const std::string &name, std::string_view content) const {
        fs::create_directories((m_path / name).parent_path());
        std::ofstream(m_path / name, std::ios::binary) << content;
        return (m_path / name).u16string();
    }

private:
    fs::path m_before, m_path;
};

#endif  // TESTS_SUPPORT_TEMP_DIR_H
