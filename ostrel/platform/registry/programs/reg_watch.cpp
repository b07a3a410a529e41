#include <cstdio>
#include <map>

#include "ostrel/platform/error.h"
#include "ostrel/platform/registry/key_names.h"
#include "ostrel/platform/registry/programs/reg_commands.h"
#include "ostrel/platform/registry/programs/reg_keys.h"
#include "ostrel/platform/registry/programs/reg_options.h"
#include "ostrel/platform/registry/programs/reg_text.h"
#include "ostrel/platform/sync.h"

namespace ostrel_platform {
namespace {

// A snapshot, by names in upper case.
struct WatchedKey {
    std::u16string path;
    std::map<std::u16string, ValueContents> values;
};
using Snapshot = std::map<std::u16string, WatchedKey>;

Snapshot snapshot_of(HKEY key, bool below) {
    Snapshot snapshot;
    std::vector<KeyContents> keys = read_keys(key, below);
    if (!below) {
        for (const std::u16string &name : subkeys_of(key)) {
            keys.push_back({name, {}, {}});
        }
    }
    for (KeyContents &contents : keys) {
        WatchedKey &watched = snapshot[upper_of(contents.path)];
        watched.path = contents.path;
        for (ValueContents &value : contents.values) {
            const std::u16string name = upper_of(value.name);
            watched.values.emplace(name, std::move(value));
        }
    }
    return snapshot;
}

// Prints what differs between two snapshots.
class Differences {
public:
    Differences(const KeyName &top, bool is_json) : m_top(top), m_isJson(is_json) {}

    void Add(const Snapshot &before, const Snapshot &after) {
        for (const auto &[name, key] : before) {
            if (after.count(name) == 0) {
                AddLine("deleted", key.path, nullptr, false);
            }
        }
        const WatchedKey none;
        for (const auto &[name, key] : after) {
            const auto old = before.find(name);
            if (old == before.end()) {
                AddLine("created", key.path, nullptr, false);
            }
            AddValues(key.path, old == before.end() ? none : old->second, key);
        }
    }

    void AddLine(const char *change, const std::u16string &path, const ValueContents *value,
                 bool has_data) {
        const std::u16string key = m_top.Full(path);
        if (m_isJson) {
            m_text += std::string("{\"change\": \"") + change + "\", \"key\": " + json_string(key);
            if (value != nullptr) {
                m_text += ", \"name\": " + json_string(value->name);
            }
            m_text += has_data ? ", " + json_data(value->type, value->bytes) + "}\n" : "}\n";
            return;
        }
        m_text += change + std::string("    ") + printed(key);
        if (value != nullptr) {
            m_text += "    " + (value->name.empty() ? "(Default)" : printed(value->name));
        }
        m_text += has_data ? "    " + name_of_type(value->type) + "    " +
                                 printed_data(value->type, value->bytes, "\\0") + '\n'
                           : "\n";
    }

    void Print() {
        print(m_text);
        m_text.clear();
    }

private:
    void AddValues(const std::u16string &path, const WatchedKey &before, const WatchedKey &after) {
        for (const auto &[name, value] : before.values) {
            if (after.values.count(name) == 0) {
                AddLine("unset", path, &value, false);
            }
        }
        for (const auto &[name, value] : after.values) {
            const auto old = before.values.find(name);
            if (old == before.values.end() || !(old->second == value)) {
                AddLine("set", path, &value, true);
            }
        }
    }

    const KeyName m_top;
    const bool m_isJson;
    std::string m_text;
};

}  // namespace

int run_watch(const RegArguments &arguments) {
    const RegOptions options(arguments, {{"s"}, {"json"}, {"reg:32"}, {"reg:64"}}, 1);
    const KeyName name = key_name_of(options.Operand(0));
    const ScopedKey key = ScopedKey::Open(name, KEY_READ);
    const HANDLE changed = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    if (changed == nullptr) {
        require_success(GetLastError());
    }
    Differences differences(name, options.Has("json"));
    Snapshot before;
    try {
        for (bool is_first = true;; is_first = false) {
            // The call comes before the snapshot, so that no change falls between the two.
            require_success(RegNotifyChangeKeyValue(
                key.Get(), options.Has("s"), REG_NOTIFY_CHANGE_NAME | REG_NOTIFY_CHANGE_LAST_SET,
                changed, TRUE));
            Snapshot after = snapshot_of(key.Get(), options.Has("s"));
            if (is_first) {
                std::fprintf(stderr, "Watching %s\n", printed(name.Full()).c_str());
            } else {
                differences.Add(before, after);
                differences.Print();
            }
            before = std::move(after);
            WaitForSingleObject(changed, INFINITE);
        }
    } catch (const RegFailure &failure) {
        if (failure.code != ERROR_KEY_DELETED) {
            throw;
        }
    }
    differences.AddLine("deleted", {}, nullptr, false);
    differences.Print();
    return 0;
}

}  // namespace ostrel_platform
