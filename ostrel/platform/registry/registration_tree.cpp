#include "ostrel/platform/registry/registration_tree.h"

#include <utility>
#include <vector>

#include "ostrel/platform/base/ascii.h"
#include "ostrel/platform/error.h"
#include "ostrel/platform/registry/registry_roots.h"
#include "ostrel/platform/registry/registry_tree.h"

namespace ostrel_platform {
namespace {

using Kind = RegistrationOperation::Kind;

std::u16string joined(std::u16string_view path, std::u16string_view below) {
    std::u16string result(path);
    if (!path.empty() && !below.empty()) {
        result += u'\\';
    }
    return result += below;
}

class TextOfTree final : public TreeReader {
public:
    TextOfTree(DWORD root, std::u16string_view path, bool with_volatile, std::string *text)
        : m_path(path), m_withVolatile(with_volatile), m_text(text) {
        m_key.root = root;
        m_value.kind = Kind::kValue;
    }

    void Begin() override {
        m_text->clear();
        append_registration_begin(m_text);
    }

    bool Key(std::u16string_view path, std::u16string_view, bool is_volatile) override {
        m_isLeftOut = is_volatile && !m_withVolatile;
        m_key.name = joined(m_path, path);
        m_isWritten = m_isLeftOut || append_registration(m_key, m_text);
        return m_isWritten;
    }

    bool Value(std::u16string_view name, DWORD type, std::string_view bytes) override {
        m_value.name = name;
        m_value.type = type;
        m_value.bytes = bytes;
        m_isWritten = m_isLeftOut || append_registration(m_value, m_text);
        return m_isWritten;
    }

    bool IsWritten() const { return m_isWritten; }

private:
    const std::u16string m_path;
    const bool m_withVolatile;
    std::string *const m_text;
    RegistrationOperation m_key, m_value;
    bool m_isLeftOut = false;
    bool m_isWritten = true;
};

// Returns the edit of an operation. `path` is the key's own, or that of the last key for a value.
TreeEdit edit_of(const RegistrationOperation &operation, std::u16string path) {
    constexpr struct {
        Kind operation;
        TreeEdit::Kind edit;
    } kKinds[] = {
        {Kind::kKey, TreeEdit::Kind::kCreateKey},
        {Kind::kDeleteKey, TreeEdit::Kind::kDeleteKey},
        {Kind::kValue, TreeEdit::Kind::kSetValue},
        {Kind::kDeleteValue, TreeEdit::Kind::kDeleteValue},
    };
    TreeEdit edit;
    edit.kind = kKinds[static_cast<std::size_t>(operation.kind)].edit;
    edit.path = std::move(path);
    if (operation.kind == Kind::kValue || operation.kind == Kind::kDeleteValue) {
        edit.name = operation.name;
        edit.type = operation.type;
        edit.bytes = operation.bytes;
    }
    return edit;
}

// The edits that a text asks for below its first key.
class ReplacingEdits {
public:
    // Returns false when the operation has no place in a saved key.
    bool Add(const RegistrationOperation &operation) {
        if (operation.kind == Kind::kValue) {
            m_edits.push_back(edit_of(operation, m_path));
            return true;
        }
        if (operation.kind != Kind::kKey || (m_hasTop && !IsBelowTop(operation))) {
            return false;
        }
        if (!m_hasTop) {
            m_top = operation;
            m_hasTop = true;
        }
        m_path = operation.name.substr(std::min(m_top.name.size(), operation.name.size()));
        m_path.erase(0, m_path.starts_with(u'\\') ? 1 : 0);
        m_edits.push_back(edit_of(operation, m_path));
        return true;
    }

    bool HasTop() const { return m_hasTop; }
    const std::vector<TreeEdit> &Edits() const { return m_edits; }

private:
    bool IsBelowTop(const RegistrationOperation &operation) const {
        const std::u16string_view name = operation.name;
        const std::size_t size = m_top.name.size();
        return operation.root == m_top.root && is_same_name(name.substr(0, size), m_top.name) &&
               (size == 0 || name.size() == size || name[size] == u'\\');
    }

    RegistrationOperation m_top;
    bool m_hasTop = false;
    std::u16string m_path;
    std::vector<TreeEdit> m_edits;
};

// Stores the name of the user's own tree in HKEY_USERS.
DWORD find_user_name(std::u16string *name) {
    WCHAR units[kMaxKeyName + 1];
    DWORD count = kMaxKeyName + 1;
    const LSTATUS status =
        RegEnumKeyExW(HKEY_USERS, 0, units, &count, nullptr, nullptr, nullptr, nullptr);
    name->assign(units, status == ERROR_SUCCESS ? count : 0);
    return static_cast<DWORD>(status);
}

// The edits that a text asks for, by the root of the store that they change.
struct ImportEdits {
    std::vector<TreeEdit> machine, user;
    std::u16string user_name;
    std::u16string path;
    std::vector<TreeEdit> *current = nullptr;

    void Add(const RegistrationOperation &operation) {
        if (operation.kind == Kind::kKey || operation.kind == Kind::kDeleteKey) {
            SetKey(operation);
        }
        current->push_back(edit_of(operation, path));
    }

private:
    void SetKey(const RegistrationOperation &operation) {
        const HKEY root = make_registry_root(static_cast<std::int32_t>(operation.root));
        const bool is_users = root == HKEY_CURRENT_USER || root == HKEY_USERS;
        current = is_users ? &user : &machine;
        std::u16string_view start;
        if (root == HKEY_CURRENT_USER) {
            start = user_name;
        } else if (root == HKEY_CLASSES_ROOT) {
            start = TEXT("SOFTWARE\\Classes");
        } else if (root == HKEY_CURRENT_CONFIG) {
            start = TEXT("SYSTEM\\CurrentControlSet\\Hardware Profiles\\Current");
        }
        path = joined(start, operation.name);
    }
};

}  // namespace

DWORD text_of_tree(HKEY key, DWORD root, std::u16string_view path, bool with_volatile,
                   std::string *text) {
    TextOfTree reader(root, path, with_volatile, text);
    const DWORD code = read_tree(key, reader);
    append_registration_end(text);
    return code == ERROR_SUCCESS && !reader.IsWritten() ? DWORD{ERROR_BADKEY} : code;
}

DWORD replace_tree(HKEY key, std::string_view text) {
    ReplacingEdits edits;
    bool is_sound = true;
    const auto fault = read_registration_text(text, [&](const RegistrationOperation &operation) {
        is_sound = edits.Add(operation);
        return is_sound;
    });
    return fault || !is_sound || !edits.HasTop() ? DWORD{ERROR_NOT_REGISTRY_FILE}
                                                 : change_tree(key, true, edits.Edits());
}

ImportResult import_text(std::string_view text) {
    ImportResult result;
    ImportEdits edits;
    bool has_user = false;
    result.fault = read_registration_text(text, [&](const RegistrationOperation &operation) {
        const DWORD current_user = 0x80000001;
        if (operation.root == current_user && !std::exchange(has_user, true)) {
            result.code = find_user_name(&edits.user_name);
        }
        if (result.code == ERROR_SUCCESS) {
            edits.Add(operation);
        }
        return result.code == ERROR_SUCCESS;
    });
    if (result.fault) {
        result.code = ERROR_NOT_REGISTRY_FILE;
    }
    if (result.code == ERROR_SUCCESS && !edits.machine.empty()) {
        result.code = change_tree(HKEY_LOCAL_MACHINE, false, edits.machine);
    }
    if (result.code == ERROR_SUCCESS && !edits.user.empty()) {
        result.code = change_tree(HKEY_USERS, false, edits.user);
    }
    return result;
}

}  // namespace ostrel_platform
