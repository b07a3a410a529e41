#include <set>

#include "ostrel/platform/error.h"
#include "ostrel/platform/registry/key_names.h"
#include "ostrel/platform/registry/programs/reg_commands.h"
#include "ostrel/platform/registry/programs/reg_keys.h"
#include "ostrel/platform/registry/programs/reg_options.h"
#include "ostrel/platform/registry/programs/reg_text.h"
#include "ostrel/platform/registry/registry_tree.h"

namespace ostrel_platform {
namespace {

std::string name_to_show(const std::u16string &value) {
    return value.empty() ? "(Default)" : printed(value);
}

// The value that /v or /ve names, or nothing when neither is given.
std::optional<std::u16string> named_value(const RegOptions &options) {
    options.RequireAtMostOne({"v", "ve", "va"});
    if (options.Has("ve")) {
        return std::u16string();
    }
    const std::optional<std::string> name = options.Value("v");
    return name ? std::optional(from_shell(*name)) : std::nullopt;
}

void delete_values(const KeyName &name) {
    const ScopedKey key = ScopedKey::Open(name, KEY_READ | KEY_WRITE);
    const std::vector<KeyContents> keys = read_keys(key.Get(), false);
    std::vector<TreeEdit> edits;
    for (const ValueContents &value : keys[0].values) {
        TreeEdit &edit = edits.emplace_back();
        edit.kind = TreeEdit::Kind::kDeleteValue;
        edit.name = value.name;
    }
    require_success(change_tree(key.Get(), false, edits));
}

// Asks for each value that a copy would replace. Values that are to stay are left out.
std::vector<TreeEdit> edits_of_copy(const std::vector<KeyContents> &source,
                                    const std::vector<KeyContents> &target,
                                    const KeyName &target_name, bool replaces) {
    std::set<std::pair<std::u16string, std::u16string>> existing;
    for (const KeyContents &key : target) {
        for (const ValueContents &value : key.values) {
            existing.emplace(upper_of(key.path), upper_of(value.name));
        }
    }
    std::vector<TreeEdit> edits;
    for (const KeyContents &key : source) {
        edits.push_back({TreeEdit::Kind::kCreateKey, key.path, key.class_name, 0, {}});
        for (const ValueContents &value : key.values) {
            if (!replaces && existing.count({upper_of(key.path), upper_of(value.name)}) != 0) {
                const char answer =
                    ask("Value " + printed(target_name.Full(key.path)) + "\\" +
                            name_to_show(value.name) + " exists, overwrite (Yes/No/All)? ",
                        {"yes", "no", "all"});
                if (answer == 'n') {
                    continue;
                }
                replaces = answer == 'a';
            }
            edits.push_back(
                {TreeEdit::Kind::kSetValue, key.path, value.name, value.type, value.bytes});
        }
    }
    return edits;
}

}  // namespace

int run_add(const RegArguments &arguments) {
    const RegOptions options(arguments,
                             {{"v", OptionValue::kRequired},
                              {"ve"},
                              {"t", OptionValue::kRequired},
                              {"s", OptionValue::kRequired},
                              {"d", OptionValue::kRequired},
                              {"f"},
                              {"reg:32"},
                              {"reg:64"}},
                             1);
    const KeyName name = key_name_of(options.Operand(0));
    std::optional<std::u16string> value = named_value(options);
    if (!value && (options.Has("t") || options.Has("d"))) {
        value.emplace();
    }
    const DWORD type = type_of_name(options.Value("t").value_or("REG_SZ"));
    const std::string bytes =
        bytes_of_data(type, options.Value("d").value_or(""), options.Value("s").value_or("\\0"));
    const ScopedKey key = ScopedKey::Open(name, KEY_QUERY_VALUE | KEY_SET_VALUE, true);
    if (value) {
        if (!options.Has("f") && read_value(key.Get(), *value)) {
            require_yes("Value " + name_to_show(*value) + " exists, overwrite(Yes/No)? ");
        }
        require_success(RegSetValueExW(key.Get(), value->c_str(), 0, type,
                                       reinterpret_cast<const BYTE *>(bytes.data()),
                                       static_cast<DWORD>(bytes.size())));
    }
    return report_done();
}

int run_delete(const RegArguments &arguments) {
    const RegOptions options(
        arguments, {{"v", OptionValue::kRequired}, {"ve"}, {"va"}, {"f"}, {"reg:32"}, {"reg:64"}},
        1);
    const KeyName name = key_name_of(options.Operand(0));
    const std::optional<std::u16string> value = named_value(options);
    const ScopedKey key = ScopedKey::Open(name, KEY_QUERY_VALUE);
    if (value && !read_value(key.Get(), *value)) {
        require_success(DWORD{ERROR_FILE_NOT_FOUND});
    }
    const std::string shown = printed(name.Full());
    if (!options.Has("f")) {
        require_yes(value ? "Delete the registry value " + name_to_show(*value) + " (Yes/No)? "
                    : options.Has("va")
                        ? "Delete all values under the registry key " + shown + " (Yes/No)? "
                        : "Permanently delete the registry key " + shown + " (Yes/No)? ");
    }
    if (value) {
        const ScopedKey writable = ScopedKey::Open(name, KEY_SET_VALUE);
        require_success(RegDeleteValueW(writable.Get(), value->c_str()));
    } else if (options.Has("va")) {
        delete_values(name);
    } else if (name.path.empty()) {
        throw RegFailure{"A root cannot be deleted."};
    } else {
        require_success(RegDeleteTreeW(name.Root(), name.path.c_str()));
    }
    return report_done();
}

int run_copy(const RegArguments &arguments) {
    const RegOptions options(arguments, {{"s"}, {"f"}, {"reg:32"}, {"reg:64"}}, 2);
    const KeyName from = key_name_of(options.Operand(0)), to = key_name_of(options.Operand(1));
    if (from.root == to.root && is_same_key_name(from.path, to.path)) {
        throw RegFailure{"The registry key cannot be copied onto itself."};
    }
    const ScopedKey source = ScopedKey::Open(from, KEY_READ);
    const std::vector<KeyContents> keys = read_keys(source.Get(), options.Has("s"));
    const ScopedKey target = ScopedKey::Open(to, KEY_READ | KEY_WRITE, true);
    std::vector<KeyContents> before;
    if (!options.Has("f")) {
        before = read_keys(target.Get(), options.Has("s"));
    }
    require_success(
        change_tree(target.Get(), false, edits_of_copy(keys, before, to, options.Has("f"))));
    return report_done();
}

}  // namespace ostrel_platform
