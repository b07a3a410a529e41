#include "ostrel/platform/registry/programs/reg_keys.h"

#include <algorithm>

#include "ostrel/platform/base/ascii.h"
#include "ostrel/platform/error.h"
#include "ostrel/platform/registry/key_names.h"
#include "ostrel/platform/registry/programs/reg_options.h"
#include "ostrel/platform/registry/programs/reg_text.h"
#include "ostrel/platform/registry/registry_roots.h"
#include "ostrel/platform/registry/registry_tree.h"
#include "ostrel/platform/text/charset.h"

namespace ostrel_platform {
namespace {

class Collector final : public TreeReader {
public:
    explicit Collector(std::vector<KeyContents> *keys) : m_keys(keys) {}

    void Begin() override { m_keys->clear(); }
    bool Key(std::u16string_view path, std::u16string_view class_name, bool) override {
        KeyContents &key = m_keys->emplace_back();
        key.path = path;
        key.class_name = class_name;
        return true;
    }
    bool Value(std::u16string_view name, DWORD type, std::string_view bytes) override {
        m_keys->back().values.push_back({std::u16string(name), type, std::string(bytes)});
        return true;
    }

private:
    std::vector<KeyContents> *const m_keys;
};

const RegistryRoot *find_root(std::u16string_view name) {
    const auto *const found = std::find_if(
        std::begin(kRegistryRoots), std::end(kRegistryRoots), [name](const RegistryRoot &root) {
            return is_same_name(root.name, name) || is_same_name(root.short_name, name);
        });
    return found != std::end(kRegistryRoots) ? found : nullptr;
}

}  // namespace

std::u16string KeyName::Full(std::u16string_view below) const {
    std::u16string name(root_of_number(root)->name);
    for (const std::u16string_view part : {std::u16string_view(path), below}) {
        if (!part.empty()) {
            name.append(1, u'\\').append(part);
        }
    }
    return name;
}

std::u16string KeyName::Full() const {
    return Full({});
}

KeyName key_name_of(std::string_view argument) {
    std::u16string text = from_shell(argument);
    if (text.find(u'\\') == text.npos) {
        std::replace(text.begin(), text.end(), u'/', u'\\');
    }
    if (text.ends_with(u'\\')) {
        text.pop_back();
    }
    const std::size_t end = std::min(text.find(u'\\'), text.size());
    const RegistryRoot *const root = find_root(std::u16string_view(text).substr(0, end));
    const std::u16string path = text.substr(std::min(end + 1, text.size()));
    if (root == nullptr || (end < text.size() && !is_path(path))) {
        throw RegFailure{"Invalid key name: " + printed(text)};
    }
    return {root->number, path};
}

ScopedKey ScopedKey::Open(const KeyName &name, REGSAM access, bool creates) {
    ScopedKey key;
    require_success(creates ? RegCreateKeyExW(name.Root(), name.path.c_str(), 0, nullptr, 0, access,
                                              nullptr, &key.m_key, nullptr)
                            : RegOpenKeyExW(name.Root(), name.path.c_str(), 0, access, &key.m_key));
    return key;
}

std::vector<KeyContents> read_keys(HKEY key, bool below) {
    std::vector<KeyContents> keys;
    if (below) {
        Collector collector(&keys);
        require_success(read_tree(key, collector));
        return keys;
    }
    KeyContents &contents = keys.emplace_back();
    std::u16string name(kMaxValueName + 1, u'\0');
    std::string bytes;
    for (DWORD index = 0;;) {
        auto count = static_cast<DWORD>(name.size());
        auto size = static_cast<DWORD>(bytes.size());
        DWORD type = 0;
        const LSTATUS status = RegEnumValueW(key, index, name.data(), &count, nullptr, &type,
                                             reinterpret_cast<BYTE *>(bytes.data()), &size);
        if (status == ERROR_NO_MORE_ITEMS) {
            return keys;
        }
        if (status == ERROR_MORE_DATA && size > bytes.size()) {
            bytes.resize(size);
            continue;
        }
        require_success(status);
        contents.values.push_back({name.substr(0, count), type, bytes.substr(0, size)});
        ++index;
    }
}

std::vector<std::u16string> subkeys_of(HKEY key) {
    std::vector<std::u16string> names;
    std::u16string name(kMaxKeyName + 1, u'\0');
    for (DWORD index = 0;; ++index) {
        auto count = static_cast<DWORD>(name.size());
        const LSTATUS status =
            RegEnumKeyExW(key, index, name.data(), &count, nullptr, nullptr, nullptr, nullptr);
        if (status == ERROR_NO_MORE_ITEMS) {
            return names;
        }
        require_success(status);
        names.push_back(name.substr(0, count));
    }
}

std::optional<ValueContents> read_value(HKEY key, const std::u16string &name) {
    ValueContents value{name, 0, {}};
    for (;;) {
        auto size = static_cast<DWORD>(value.bytes.size());
        const LSTATUS status =
            RegQueryValueExW(key, name.c_str(), nullptr, &value.type,
                             reinterpret_cast<BYTE *>(value.bytes.data()), &size);
        if (status == ERROR_FILE_NOT_FOUND) {
            return std::nullopt;
        }
        if (status != ERROR_MORE_DATA) {
            require_success(status);
        }
        value.bytes.resize(size);
        if (status == ERROR_SUCCESS) {
            return value;
        }
    }
}

std::string message_of_code(DWORD code) {
    if (code == ERROR_FILE_NOT_FOUND) {
        return "The system was unable to find the specified registry key or value.";
    }
    WCHAR text[512];
    const DWORD length =
        FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, code, 0,
                       text, static_cast<DWORD>(std::size(text)), nullptr);
    std::u16string_view message(text, length);
    message = message.substr(0, message.find_last_not_of(TEXT("\r\n")) + 1);
    return message.empty() ? "Error " + std::to_string(code) + "."
                           : to_narrow(message, kCodePageUtf8);
}

void require_success(DWORD code) {
    if (code != ERROR_SUCCESS) {
        throw RegFailure{message_of_code(code), code};
    }
}

bool is_same_key_name(std::u16string_view a, std::u16string_view b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](WCHAR left, WCHAR right) {
        return upper_unit(left) == upper_unit(right);
    });
}

}  // namespace ostrel_platform
