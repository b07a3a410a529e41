// Random operations on the registry beside a plain model: a dictionary of keys and values.

#include <map>
#include <thread>

#include "bench/soak/registry_soak.h"

namespace {

using Bytes = std::pair<DWORD, std::string>;  // type and content

struct ModelKey {
    long id = 0;
    std::u16string name;
    bool is_volatile = false;
    std::vector<std::pair<std::u16string, Bytes>> values;  // in the order of their creation
};

std::u16string upper(std::u16string text) {
    for (char16_t &unit : text) {
        unit = unit >= u'a' && unit <= u'z' ? static_cast<char16_t>(unit - 32)
               : unit == u'\u00E4'          ? u'\u00C4'
                                            : unit;
    }
    return text;
}

// What the operations do to keys and values, with the codes that they give.
class Model {
public:
    // Keys by their path in upper case. The root has the path "".
    std::map<std::u16string, ModelKey> keys{{u"", {}}};

    ModelKey *Find(const std::u16string &path) {
        const auto found = keys.find(upper(path));
        return found != keys.end() ? &found->second : nullptr;
    }

    std::vector<std::u16string> Subkeys(const std::u16string &path) const {
        std::vector<std::u16string> names;
        for (const auto &[other, key] : keys) {
            if (!other.empty() && ParentOf(other) == upper(path)) {
                names.push_back(key.name);
            }
        }
        return names;  // the dictionary is in the order of the upper case already
    }

    LSTATUS Create(const std::u16string &path, bool is_volatile, DWORD *disposition) {
        *disposition = Find(path) != nullptr ? REG_OPENED_EXISTING_KEY : REG_CREATED_NEW_KEY;
        if (*disposition == REG_OPENED_EXISTING_KEY) {
            return 0;
        }
        std::u16string above = path;
        while (Find(above) == nullptr) {
            above = ParentOf(above);
        }
        if (Find(above)->is_volatile && !is_volatile) {
            return 1021;
        }
        for (std::size_t end = above.size(); end < path.size();) {
            const std::size_t begin = end + (end > 0 ? 1 : 0);
            end = std::min(path.find(u'\\', begin), path.size());
            keys[upper(path.substr(0, end))] = {
                ++m_id, path.substr(begin, end - begin), is_volatile, {}};
        }
        return 0;
    }

    LSTATUS Delete(const std::u16string &path, bool with_tree) {
        if (Find(path) == nullptr) {
            return 2;
        }
        if (!with_tree && !Subkeys(path).empty()) {
            return 5;
        }
        const std::u16string begin = upper(path);
        std::erase_if(keys, [&](const auto &key) {
            return key.first == begin || key.first.starts_with(begin + u'\\');
        });
        return 0;
    }

    static void Set(ModelKey *key, const std::u16string &name, const Bytes &bytes) {
        for (auto &value : key->values) {
            if (upper(value.first) == upper(name)) {
                value.second = bytes;
                return;
            }
        }
        key->values.emplace_back(name, bytes);
    }

    static std::u16string ParentOf(const std::u16string &path) {
        const std::size_t end = path.rfind(u'\\');
        return end == path.npos ? u"" : path.substr(0, end);
    }

private:
    long m_id = 0;
};

const std::u16string kNames[] = {u"a", u"A", u"b", u"\u00E4x", u"\u00C4X", u"c/d", u"b\xD800"};

Bytes value_of(HKEY key, const std::u16string &name, LSTATUS *code) {
    Bytes value{0, std::string(30'000, '\0')};
    auto size = static_cast<DWORD>(value.second.size());
    *code = RegQueryValueExW(key, name.c_str(), nullptr, &value.first,
                             reinterpret_cast<BYTE *>(value.second.data()), &size);
    value.second.resize(*code == 0 ? size : 0);
    return *code == 0 ? value : Bytes();
}

// Makes the same choices in each process that has the same seed. Only where `is_turn` the registry
// is asked and compared; the model follows always.
class Walk {
public:
    void Step(bool is_turn) {
        const std::u16string path = Path();
        const DWORD choice = Random(100);
        if (choice < 25) {
            Create(path, is_turn);
        } else if (choice < 40) {
            const bool with_tree = Random(4) == 0;
            const LSTATUS code = m_model.Delete(path, with_tree);
            EXPECT_EQ(!is_turn    ? code
                      : with_tree ? RegDeleteTreeW(m_root, path.c_str())
                                  : RegDeleteKeyW(m_root, path.c_str()),
                      code);
        } else {
            UseValues(path, choice, is_turn);
        }
        if (is_turn && Random(8, &m_ownRandom) == 0) {
            UseKeptHandle();
        }
    }

    // Compares everything.
    void CompareAll() {
        for (const auto &[path, key] : m_model.keys) {
            const TestKey open = Open(path, 0);
            std::u16string names;
            for (const std::u16string &name : m_model.Subkeys(path)) {
                names += name + u' ';
            }
            EXPECT_EQ(subkeys(open), names);
            names.clear();
            for (const auto &[name, bytes] : key.values) {
                names += name + u' ';
                LSTATUS code = 0;
                EXPECT_EQ(value_of(open, name, &code), bytes);
            }
            EXPECT_EQ(values(open), names);
        }
    }

    std::size_t Keys() const { return m_model.keys.size(); }

private:
    DWORD Random(DWORD limit) { return Random(limit, &m_random); }
    static DWORD Random(DWORD limit, std::mt19937 *random) {
        return static_cast<DWORD>((*random)()) % limit;
    }
    std::u16string Name() { return kNames[Random(std::size(kNames))]; }
    std::u16string Path() {
        std::u16string path = Name();
        for (DWORD levels = Random(3); levels > 0; --levels) {
            path += u'\\' + Name();
        }
        return path;
    }

    TestKey Open(const std::u16string &path, LSTATUS expected) const {
        HKEY key = nullptr;
        EXPECT_EQ(RegOpenKeyExW(m_root, path.c_str(), 0, KEY_ALL_ACCESS, &key), expected);
        return TestKey(key);
    }

    void Create(const std::u16string &path, bool is_turn) {
        const bool is_volatile = Random(6) == 0;
        DWORD disposition = 0, found = 0;
        const LSTATUS code = m_model.Create(path, is_volatile, &disposition);
        if (is_turn) {
            HKEY key = nullptr;
            EXPECT_EQ(RegCreateKeyExW(m_root, path.c_str(), 0, nullptr, is_volatile ? 1 : 0,
                                      KEY_ALL_ACCESS, nullptr, &key, &found),
                      code);
            if (code == 0) {
                EXPECT_EQ(found, disposition);
                m_keptId = m_model.Find(path)->id;
                m_kept = std::make_unique<TestKey>(key);
            }
        }
    }

    void UseValues(const std::u16string &path, DWORD choice, bool is_turn) {
        ModelKey *const model = m_model.Find(path);
        const std::u16string name = Random(5) == 0 ? u"" : Name();
        const DWORD type = Random(12);
        const std::string bytes = choice < 70 ? payload(Random(1000)) : "";
        const TestKey key = is_turn ? Open(path, model != nullptr ? 0 : 2) : TestKey();
        if (model == nullptr) {
            return;
        }
        const auto same = [&](const auto &value) { return upper(value.first) == upper(name); };
        const auto found = std::find_if(model->values.begin(), model->values.end(), same);
        const bool exists = found != model->values.end();
        LSTATUS code = 0;
        if (choice < 70) {
            Model::Set(model, name, {type, bytes});
            EXPECT_EQ(is_turn ? set_bytes(key, name.c_str(), type, bytes) : 0, 0);
        } else if (choice < 90) {
            if (is_turn) {
                EXPECT_EQ(value_of(key, name, &code), exists ? found->second : Bytes());
                EXPECT_EQ(code, exists ? 0 : 2);
            }
        } else {
            EXPECT_EQ(is_turn ? RegDeleteValueW(key, name.c_str()) : 0, exists || !is_turn ? 0 : 2);
            std::erase_if(model->values, same);
        }
    }

    // The handle of the last creation, whose key another operation may have deleted.
    void UseKeptHandle() {
        const ModelKey *kept = nullptr;
        for (const auto &[path, key] : m_model.keys) {
            kept = key.id == m_keptId ? &key : kept;
        }
        LSTATUS code = 0;
        value_of(m_kept != nullptr ? *m_kept : m_root, u"none", &code);
        EXPECT_EQ(code, m_kept != nullptr && kept == nullptr ? 1018 : 2);
    }

    const TestKey m_root = created(HKEY_CURRENT_USER, u"Software\\Model");
    Model m_model;
    std::unique_ptr<TestKey> m_kept;
    long m_keptId = 0;
    std::mt19937 m_random{3}, m_ownRandom{4};
};

// One of `count` processes; each has its turn for some operations. A turn ends with a comparison
// now and then, and the first process removes the shared page from time to time.
void walk(long operations, long self, long count, const RegistryFolder &folder,
          std::atomic<long> *turn) {
    constexpr long kTurn = 7;
    Walk walk;
    for (long i = 0; i < operations && !testing::Test::HasFailure(); ++i) {
        const long now = i / kTurn;
        const bool is_turn = now % count == self;
        while (is_turn && turn->load() < now) {
            std::this_thread::yield();
        }
        walk.Step(is_turn);
        if (is_turn && i % kTurn == kTurn - 1) {
            if (now % 97 == self) {
                walk.CompareAll();
            }
            if (now % 2003 == 2000) {
                unlink(folder.Page("user").c_str());
            }
            turn->store(now + 1);
        }
    }
    turn->store(testing::Test::HasFailure() ? operations : turn->load());  // lets the other go on
    std::printf("%ld operations, %zu keys at the end; ", operations, walk.Keys());
}

void prove(long operations, long processes) {
    const RegistryFolder folder;
    const Stopwatch watch;
    auto *const turn = shared_memory<std::atomic<long>>();
    std::vector<pid_t> walkers;
    for (long i = 0; i < processes; ++i) {
        walkers.push_back(started([&] { walk(operations, i, processes, folder, turn); }));
    }
    for (const pid_t walker : walkers) {
        expect_success(walker);
    }
    expect_sound();
    std::printf("%.0f s\n", watch.Seconds());
    unlink(folder.Path("user.page").c_str());
}

}  // namespace

void prove_model(long operations) {
    prove(operations, 1);
}

void prove_turns(long operations) {
    prove(operations, 2);
}
