#include <iostream>
#include <string>
#include <vector>

#include "ostrel/core/convert.h"
#include "ostrel/file/Std_Utils_File.h"
#include "ostrel/file/browse_directory.h"
#include "ostrel/platform/file.h"
#include "ostrel/text/string_utils.h"
#include "tour.h"

namespace {

OS::x_astring utf8(const OS::x_wstring &text) {
    return OS::WCharToUTF8Char(text, nullptr);
}

void show(const char *title, const OS::x_wstring &text) {
    std::cout << "  " << title << ": " << utf8(text) << '\n';
}

// A temporary tree of copies of one data file, under names that the walkers treat differently.
class Tree {
public:
    Tree() : m_root(NS_FileUtils::getTempFile(NS_FileUtils::getTempPath(), TEXT("tour"))) {
        for (const WCHAR *const file :
             {TEXT("today.log"), TEXT("notes.txt"), TEXT("sub\\old.log"), TEXT("old.log\\kept.log"),
              TEXT(".hidden\\inner.log"), TEXT(".a\\short.log")}) {
            const OS::x_wstring path = PathOf(file);
            NS_FileUtils::createDirectory(path, true, false, false);
            NS_FileUtils::copyFileEx(TEXT("addresses.txt"), path, false);
        }
    }
    // Directories whose names begin with a dot take separate calls: deleteTree does not enter them.
    ~Tree() {
        for (const OS::x_wstring &directory :
             {PathOf(TEXT(".hidden")), PathOf(TEXT(".a")), m_root}) {
            NS_FileUtils::deleteTree(directory, nullptr, nullptr, 1, 1, TEXT("*.*"));
        }
    }
    Tree(const Tree &) = delete;
    Tree &operator=(const Tree &) = delete;

    const OS::x_wstring &Root() const { return m_root; }
    OS::x_wstring PathOf(const WCHAR *name) const {
        return NS_StringUtils::concatPath(m_root, name);
    }
    // Returns the path relative to the root of the tree.
    OS::x_wstring Below(const WCHAR *path) const { return path + m_root.size() + 1; }

private:
    OS::x_wstring m_root;
};

class Lister : public OS::CBrowseDirectory::CFileSearchCallback {
public:
    explicit Lister(const Tree &tree) : m_tree(tree) {}
    void operator()(const WCHAR *, const WCHAR *, const WCHAR *fullPath) override {
        std::cout << "    " << utf8(m_tree.Below(fullPath)) << '\n';
    }

private:
    const Tree &m_tree;
};

void show_walks(const Tree &tree) {
    Lister lister(tree);
    std::cout << "  BrowseDirectory with *.*: in the order of the host; skips names such as .a\n";
    OS::CBrowseDirectory().BrowseDirectory(tree.Root(), true, TEXT("*.*"), lister);
    std::cout << "  BrowseDirectory with *.log: enters only directories that match too\n";
    OS::CBrowseDirectory().BrowseDirectory(tree.Root(), true, TEXT("*.log"), lister);
    std::cout
        << "  collectFiles with *.log: enters directories without a leading dot, before files\n";
    std::vector<OS::x_wstring> files;
    NS_FileUtils::collectFiles(files, tree.Root(), TEXT("*.log"), 0, nullptr, true, nullptr);
    for (const OS::x_wstring &file : files) {
        std::cout << "    " << utf8(tree.Below(file)) << '\n';
    }
    std::cout << "  calcFileSize with *.log: "
              << NS_FileUtils::calcFileSize(tree.Root(), TEXT("*.log"), 0, nullptr, true, nullptr)
              << " bytes; of the " << files.size()
              << " files above: " << NS_FileUtils::calcFileSize(files) << " bytes\n\n";
}

void show_copy(const Tree &tree) {
    const OS::x_wstring copy = tree.PathOf(TEXT("copy"));
    const int copied = NS_FileUtils::copyDirectory(tree.PathOf(TEXT("sub")), copy, 1, 1, 0);
    FILETIME times[2] = {};
    NS_FileUtils::getFileTime(tree.PathOf(TEXT("sub\\old.log")), nullptr, nullptr, &times[0]);
    NS_FileUtils::getFileTime(tree.PathOf(TEXT("copy\\old.log")), nullptr, nullptr, &times[1]);
    std::cout << "  copyDirectory sub to copy: " << copied << ", "
              << (times[0].dwLowDateTime == times[1].dwLowDateTime
                      ? "the time of last write is copied too\n"
                      : "the time of last write differs\n");
    OS::x_wstring name = NS_FileUtils::getFilenameWithExt(tree.PathOf(TEXT("copy\\old.log")));
    show("the file's name, extension and directory",
         name + TEXT("  ") + NS_FileUtils::getFileExt(name) + TEXT("  ") +
             tree.Below(
                 NS_FileUtils::getParentDirectory(tree.PathOf(TEXT("copy\\old.log")), false)));
}

void count_deletion(const WCHAR *, int result, void *context) {
    ++static_cast<int *>(context)[result != 0 ? 0 : 1];
}

void show_deletion(const Tree &tree) {
    SetFileAttributesW(tree.PathOf(TEXT("copy\\old.log")), FILE_ATTRIBUTE_READONLY);
    int counts[2] = {};  // deleted, refused
    NS_FileUtils::deleteTree(tree.PathOf(TEXT("copy")), count_deletion, counts, 1, 1, TEXT("*.*"));
    std::cout << "  deleteTree of copy, with a read-only file: " << counts[0] << " deleted, "
              << counts[1] << " not deleted; the directory "
              << (NS_FileUtils::isDirectoryExist(tree.PathOf(TEXT("copy"))) ? "still exists\n"
                                                                            : "is removed\n");
}

}  // namespace

void file_station() {
    show("the program", NS_FileUtils::getAppFilenameWithExt(nullptr));
    const Tree tree;
    show_walks(tree);
    show_copy(tree);
    show_deletion(tree);
}
