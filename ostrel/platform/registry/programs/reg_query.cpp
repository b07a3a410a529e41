#include <algorithm>
#include <optional>

#include "ostrel/platform/registry/key_names.h"
#include "ostrel/platform/registry/programs/reg_commands.h"
#include "ostrel/platform/registry/programs/reg_keys.h"
#include "ostrel/platform/registry/programs/reg_options.h"
#include "ostrel/platform/registry/programs/reg_text.h"

namespace ostrel_platform {
namespace {

constexpr char kSeparator[] = "\\0";

std::vector<DWORD> types_of(const std::optional<std::string> &list) {
    std::vector<DWORD> types;
    for (std::string_view left = list ? std::string_view(*list) : ""; !left.empty();) {
        const std::size_t end = std::min(left.find(','), left.size());
        types.push_back(type_of_name(left.substr(0, end)));
        left.remove_prefix(std::min(end + 1, left.size()));
    }
    return types;
}

// Whether a pattern with * and ? describes all of a text.
bool matches(std::u16string_view text, std::u16string_view pattern) {
    std::size_t t = 0, p = 0, star = pattern.npos, behind_star = 0;
    while (t < text.size()) {
        if (p < pattern.size() && pattern[p] == u'*') {
            star = p++;
            behind_star = t;
        } else if (p < pattern.size() && (pattern[p] == u'?' || pattern[p] == text[t])) {
            ++p;
            ++t;
        } else if (star != pattern.npos) {
            p = star + 1;
            t = ++behind_star;
        } else {
            return false;
        }
    }
    return pattern.find_first_not_of(u'*', p) == pattern.npos;
}

// What a query looks for.
class Search {
public:
    explicit Search(const RegOptions &options)
        : m_types(types_of(options.Value("t"))), m_ignoresCase(!options.Has("c")) {
        options.RequireAtMostOne({"v", "ve"});
        const std::optional<std::string> name = options.Value("v");
        const std::optional<std::string> data = options.Value("f");
        if (options.Has("v") && !name && !data) {
            throw RegFailure{"/v without a name needs /f."};
        }
        if (name || options.Has("ve")) {
            m_name = from_shell(name.value_or(""));
        }
        if (data) {
            m_pattern = Folded(from_shell(*data));
            if (!options.Has("e")) {
                m_pattern = u'*' + *m_pattern + u'*';
            }
        }
        const bool in_names = options.Has("v") && !name;
        const bool is_open = !in_names && !options.Has("k") && !options.Has("d");
        m_inKeys = !m_name && (is_open || options.Has("k"));
        m_inNames = !m_name && (is_open || in_names);
        m_inData = is_open || options.Has("d") || m_name.has_value();
        if (!data &&
            (options.Has("k") || options.Has("d") || options.Has("c") || options.Has("e"))) {
            throw RegFailure{"/k, /d, /c and /e need /f."};
        }
    }

    bool HasPattern() const { return m_pattern.has_value(); }
    bool HasName() const { return m_name.has_value(); }
    bool TakesAll() const { return !m_name && !m_pattern && m_types.empty(); }

    bool TakesKey(std::u16string_view path) const {
        return m_pattern && m_inKeys && m_types.empty() && !path.empty() &&
               matches(Folded(path.substr(path.rfind(u'\\') + 1)), *m_pattern);
    }

    bool TakesValue(const ValueContents &value) const {
        if ((m_name && !is_same_key_name(*m_name, value.name)) ||
            (!m_types.empty() &&
             std::find(m_types.begin(), m_types.end(), value.type) == m_types.end())) {
            return false;
        }
        return !m_pattern || (m_inNames && matches(Folded(value.name), *m_pattern)) ||
               (m_inData &&
                matches(Folded(from_shell(printed_data(value.type, value.bytes, kSeparator))),
                        *m_pattern));
    }

private:
    std::u16string Folded(std::u16string_view text) const {
        return m_ignoresCase ? upper_of(text) : std::u16string(text);
    }

    const std::vector<DWORD> m_types;
    const bool m_ignoresCase;
    bool m_inKeys = false, m_inNames = false, m_inData = false;
    std::optional<std::u16string> m_name;
    std::optional<std::u16string> m_pattern;
};

// Prints keys and values as text or as JSON.
class Output {
public:
    Output(const KeyName &top, const RegOptions &options)
        : m_top(top),
          m_isJson(options.Has("json")),
          m_hasNumbers(options.Has("z")),
          m_separator(options.Value("se").value_or(kSeparator)) {}

    // Adds a key with some of its values, and the names of its subkeys where they are asked for.
    void Add(const KeyContents &key, const std::vector<const ValueContents *> &values,
             const std::vector<std::u16string> *subkeys) {
        if (m_isJson) {
            AddJson(key, values, subkeys);
            return;
        }
        if (!values.empty() || subkeys == nullptr) {
            m_text += '\n' + printed(m_top.Full(key.path)) + '\n';
        }
        for (const ValueContents *const value : values) {
            const std::string name = printed(value->name);
            m_text += "    " + (name.empty() ? "(Default)" : name) + "    " +
                      name_of_type(value->type) +
                      (m_hasNumbers ? " (" + std::to_string(value->type) + ")" : "") + "    " +
                      printed_data(value->type, value->bytes, m_separator) + '\n';
        }
        if (subkeys != nullptr && !subkeys->empty()) {
            m_text += '\n';
            for (const std::u16string &name : *subkeys) {
                m_text += printed(m_top.Full(name)) + '\n';
            }
        }
    }

    void AddUnset(const KeyContents &key) {
        m_text += m_isJson ? std::string()
                           : '\n' + printed(m_top.Full(key.path)) +
                                 "\n    (Default)    REG_SZ    (value not set)\n";
    }

    void Print(std::optional<std::size_t> matches_found) {
        if (m_isJson) {
            m_text = '[' + m_text + (m_text.empty() ? "]\n" : "\n]\n");
        } else if (matches_found) {
            m_text += "\nEnd of search: " + std::to_string(*matches_found) + " match(es) found.\n";
        }
        print(m_text);
    }

private:
    void AddJson(const KeyContents &key, const std::vector<const ValueContents *> &values,
                 const std::vector<std::u16string> *subkeys) {
        m_text += m_text.empty() ? "\n" : ",\n";
        m_text += "  {\"key\": " + json_string(m_top.Full(key.path)) + ", \"values\": [";
        for (const ValueContents *const value : values) {
            m_text += value == values.front() ? "" : ",";
            m_text += "\n    {\"name\": " + json_string(value->name) + ", " +
                      json_data(value->type, value->bytes) + '}';
        }
        m_text += ']';
        if (subkeys != nullptr) {
            m_text += ", \"subkeys\": [";
            for (const std::u16string &name : *subkeys) {
                m_text += (&name == subkeys->data() ? "" : ", ") + json_string(name);
            }
            m_text += ']';
        }
        m_text += '}';
    }

    const KeyName m_top;
    const bool m_isJson, m_hasNumbers;
    const std::string m_separator;
    std::string m_text;
};

// Adds what a search finds. Returns the number of matches.
std::size_t add_matches(const std::vector<KeyContents> &keys, const Search &search,
                        Output *output) {
    std::size_t found = 0;
    for (const KeyContents &key : keys) {
        std::vector<const ValueContents *> values;
        for (const ValueContents &value : key.values) {
            if (search.TakesValue(value)) {
                values.push_back(&value);
            }
        }
        const bool takes_key = search.TakesKey(key.path);
        if (takes_key || !values.empty() || search.TakesAll()) {
            output->Add(key, values, nullptr);
        }
        found += values.size() + (takes_key ? 1 : 0);
    }
    return found;
}

}  // namespace

int run_query(const RegArguments &arguments) {
    const RegOptions options(arguments,
                             {{"v", OptionValue::kOptional},
                              {"ve"},
                              {"s"},
                              {"f", OptionValue::kRequired},
                              {"k"},
                              {"d"},
                              {"c"},
                              {"e"},
                              {"t", OptionValue::kRequired},
                              {"z"},
                              {"se", OptionValue::kRequired},
                              {"json"},
                              {"reg:32"},
                              {"reg:64"}},
                             1);
    const KeyName name = key_name_of(options.Operand(0));
    const Search search(options);
    const ScopedKey key = ScopedKey::Open(name, KEY_READ);
    std::vector<KeyContents> keys = read_keys(key.Get(), options.Has("s"));
    Output output(name, options);
    if (!options.Has("s") && search.TakesAll()) {
        std::vector<const ValueContents *> values;
        for (const ValueContents &value : keys[0].values) {
            values.push_back(&value);
        }
        const std::vector<std::u16string> subkeys = subkeys_of(key.Get());
        output.Add(keys[0], values, &subkeys);
        output.Print(std::nullopt);
        return 0;
    }
    if (!options.Has("s") && search.HasPattern()) {
        for (const std::u16string &subkey : subkeys_of(key.Get())) {
            keys.push_back({subkey, {}, {}});
        }
    }
    const std::size_t found = add_matches(keys, search, &output);
    const bool is_search = search.HasPattern() || options.Has("s") || !search.HasName();
    if (found == 0 && !is_search) {
        if (!options.Has("ve")) {
            require_success(LSTATUS{2});
        }
        output.AddUnset(keys[0]);
    }
    output.Print(is_search && !search.TakesAll() ? std::optional(found) : std::nullopt);
    return found == 0 && is_search && !search.TakesAll() ? 1 : 0;
}

}  // namespace ostrel_platform
