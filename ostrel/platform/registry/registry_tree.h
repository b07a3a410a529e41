#ifndef OSTREL_PLATFORM_REGISTRY_REGISTRY_TREE_H
#define OSTREL_PLATFORM_REGISTRY_REGISTRY_TREE_H

// Internal. A key with all that is below it: read in one snapshot, and changed in one commit.

#include <string>
#include <string_view>
#include <vector>

#include "ostrel/platform/registry.h"

namespace ostrel_platform {

// Receives a tree from read_tree. Each call may throw std::bad_alloc; a call that returns false
// ends the reading.
class TreeReader {
public:
    virtual ~TreeReader() = default;

    // The reading begins, or begins once more: what came before does not count.
    virtual void Begin() = 0;
    // A key, before its values and the keys below it. `path` is below the key that is read, "" for
    // that key itself, with '\' between names; keys come in the order of RegEnumKeyExW.
    virtual bool Key(std::u16string_view path, std::u16string_view class_name,
                     bool is_volatile) = 0;
    // A value of the last key, in the order of RegEnumValueW.
    virtual bool Value(std::u16string_view name, DWORD type, std::string_view bytes) = 0;
};

// Reads the tree of `key` in one snapshot: no commit is seen in part. Needs KEY_QUERY_VALUE and
// KEY_ENUMERATE_SUB_KEYS. Returns ERROR_SUCCESS, also when `reader` ended the reading, or a code.
DWORD read_tree(HKEY key, TreeReader &reader);

// A change of a tree. `path` is below the key that is changed; "" is the key itself.
struct TreeEdit {
    enum class Kind {
        kCreateKey,    // with all missing keys on the way; one that exists stays
        kDeleteKey,    // with all that is below; a missing one is no error
        kSetValue,     // in a key that exists or that the edit creates
        kDeleteValue,  // a missing value or key is no error
    };
    Kind kind = Kind::kCreateKey;
    std::u16string path;
    std::u16string name;  // of the value, or the class of the key
    DWORD type = 0;
    std::string bytes;
};

// Makes all changes, in their order and in one commit, or none. With `replaces` the key first loses
// its values and all that is below it. Needs KEY_SET_VALUE and KEY_CREATE_SUB_KEY; a root
// cannot be replaced. Returns ERROR_SUCCESS, or a code of RegCreateKeyExW, RegSetValueExW or
// RegDeleteTreeW.
DWORD change_tree(HKEY key, bool replaces, const std::vector<TreeEdit> &edits);

// Whether this process has a handle open on a key below `key`.
bool has_open_keys_below(HKEY key);

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_REGISTRY_REGISTRY_TREE_H
