#ifndef OSTREL_FILE_WALK_H
#define OSTREL_FILE_WALK_H

// Internal. Decides which subdirectories a walk enters, so that links make no walk endless or
// exponential.
//
//   Walk walk;
//   void list(const WCHAR *directory) {
//       const Walk::Level level(&walk, directory);
//       for (...) if (is_directory(attributes) && walk.Enters(attributes, path)) list(path);
//   }

#include <set>
#include <tuple>
#include <vector>

#include "ostrel/platform/file.h"
#include "ostrel/platform/types.h"

namespace NS_FileUtils::detail {

inline bool is_directory(DWORD attributes) noexcept {
    return (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

inline bool is_link(DWORD attributes) noexcept {
    return (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
}

// One walk, from the call of a user to its end.
class Walk {
public:
    // A directory that the walk is in, from its construction to its destruction.
    class Level {
    public:
        // Stores the pointer: `directory` must outlive the object. Throws std::bad_alloc.
        Level(Walk *walk, const WCHAR *directory) : m_walk(walk) {
            m_walk->m_way.push_back({directory, {}});
        }
        ~Level() { m_walk->m_way.pop_back(); }
        Level(const Level &) = delete;
        Level &operator=(const Level &) = delete;

    private:
        Walk *m_walk;
    };

    // Whether the walk enters the directory `path`, which has these attributes: every directory,
    // but a link only when it leads neither to a directory on the way to it nor to the target of a
    // link that the walk has entered before. Of the way, the directories above the first one count
    // as its path names them, for a relative path with the current directory and those above it.
    // Throws std::bad_alloc.
    bool Enters(DWORD attributes, const WCHAR *path) {
        return !is_link(attributes) || EntersLink(path);
    }

private:
    // Volume and file index, equal only for the same directory; all 0 when the directory cannot be
    // read.
    using Identity = std::tuple<DWORD, DWORD, DWORD>;

    struct Directory {
        const WCHAR *path;
        Identity identity;  // all 0 until it is needed
    };

    static Identity IdentityOf(const WCHAR *path);
    static void AddCurrentDirectories(std::set<Identity> *directories);
    bool EntersLink(const WCHAR *path);
    void FindDirectoriesAbove();

    std::vector<Directory> m_way;
    std::set<Identity> m_above;    // the directories above m_way[0], when a link has been met
    std::set<Identity> m_entered;  // the targets of links
};

}  // namespace NS_FileUtils::detail

#endif  // OSTREL_FILE_WALK_H
