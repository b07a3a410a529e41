#ifndef OSTREL_PLATFORM_REGISTRY_ANSWER_CACHE_H
#define OSTREL_PLATFORM_REGISTRY_ANSWER_CACHE_H

// Internal. A table of answers that is bounded in bytes, for all threads of the process.
//
// An answer belongs to an owner (a key) and a text (a name or path in upper case). Answers that
// were used since they came to the front of the queue stay when memory is needed; the others leave
// in the order in which they came.

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace ostrel_platform {

// A number for the hashes of this process, so that nobody can choose names that collide.
std::uint64_t hash_seed() noexcept;

inline std::uint64_t hash_of(std::uint64_t owner, std::u16string_view text) noexcept {
    constexpr std::uint64_t kFactor = 0x9E3779B97F4A7C15;  // 2^64 divided by the golden ratio
    std::uint64_t hash = (hash_seed() ^ owner) * kFactor;
    std::size_t size = text.size();
    const char16_t *units = text.data();
    for (; size >= 4; size -= 4, units += 4) {
        std::uint64_t word;
        std::memcpy(&word, units, sizeof word);
        hash = (hash ^ word) * kFactor;
        hash ^= hash >> 29;
    }
    for (; size > 0; --size, ++units) {
        hash = (hash ^ *units) * kFactor;
    }
    hash ^= text.size();
    return hash ^ hash >> 32;
}

// Threads: any.
template <class Answer>
class AnswerCache {
public:
    explicit AnswerCache(std::size_t capacity) : m_capacity(capacity / kShards) {}

    // Passes the answer to `use`, which runs under a lock and returns whether the answer still
    // holds; an answer that does not is removed. Returns whether there was one that holds.
    template <class Use>
    bool Find(std::uint64_t owner, std::u16string_view text, Use use) {
        const std::uint64_t hash = hash_of(owner, text);
        Shard &shard = m_shards[hash % kShards];
        const std::lock_guard lock(shard.mutex);
        Node **const link = LinkOf(shard, hash, owner, text);
        if (link == nullptr || *link == nullptr) {
            return false;
        }
        if (!use((*link)->answer)) {
            Remove(shard, link);
            return false;
        }
        (*link)->is_used = true;
        return true;
    }

    // Adds or replaces an answer that takes `size` bytes beside its node and its text.
    void Add(std::uint64_t owner, std::u16string_view text, Answer answer, std::size_t size) {
        const std::uint64_t hash = hash_of(owner, text);
        Shard &shard = m_shards[hash % kShards];
        size += sizeof(Node) + 2 * text.size() + 2 * sizeof(void *);
        if (size > m_capacity) {
            return;
        }
        auto node = std::make_unique<Node>();
        node->answer = std::move(answer);
        node->text = text;
        node->owner = owner;
        node->hash = hash;
        node->size = size;
        const std::lock_guard lock(shard.mutex);
        Grow(shard);
        Node **link = LinkOf(shard, hash, owner, text);
        if (*link != nullptr) {
            Remove(shard, link);
            link = LinkOf(shard, hash, owner, text);
        }
        while (shard.bytes + size > m_capacity) {
            RemoveOldest(shard);
        }
        link = &shard.heads[hash / kShards & (shard.heads.size() - 1)];
        node->next = *link;
        *link = node.release();
        Append(shard, *link);
        shard.bytes += size;
        ++shard.count;
    }

    // For a fork.
    void LockAll() noexcept {
        for (Shard &shard : m_shards) {
            shard.mutex.lock();
        }
    }
    void UnlockAll() noexcept {
        for (Shard &shard : m_shards) {
            shard.mutex.unlock();
        }
    }
    void RenewAll() noexcept {
        for (Shard &shard : m_shards) {
            std::construct_at(&shard.mutex);
        }
    }

private:
    static constexpr std::size_t kShards = 64;

    struct Node {
        Node *next = nullptr;  // of the same hash
        std::uint64_t hash = 0;
        std::uint64_t owner = 0;
        bool is_used = false;
        std::u16string text;
        Answer answer;
        std::size_t size = 0;
        Node *older = nullptr, *newer = nullptr;
    };

    struct alignas(64) Shard {
        std::mutex mutex;
        std::vector<Node *> heads;
        Node *oldest = nullptr, *newest = nullptr;
        std::size_t bytes = 0, count = 0;
    };

    // Returns the link that leads to the node, or a link to null. Null while the shard is empty.
    static Node **LinkOf(Shard &shard, std::uint64_t hash, std::uint64_t owner,
                         std::u16string_view text) {
        if (shard.heads.empty()) {
            return nullptr;
        }
        Node **link = &shard.heads[hash / kShards & (shard.heads.size() - 1)];
        while (*link != nullptr &&
               ((*link)->hash != hash || (*link)->owner != owner || (*link)->text != text)) {
            link = &(*link)->next;
        }
        return link;
    }

    static void Append(Shard &shard, Node *node) {
        node->older = shard.newest;
        node->newer = nullptr;
        (shard.newest != nullptr ? shard.newest->newer : shard.oldest) = node;
        shard.newest = node;
    }

    static void TakeOut(Shard &shard, Node *node) {
        (node->older != nullptr ? node->older->newer : shard.oldest) = node->newer;
        (node->newer != nullptr ? node->newer->older : shard.newest) = node->older;
    }

    static void Remove(Shard &shard, Node **link) {
        const std::unique_ptr<Node> node(*link);
        *link = node->next;
        TakeOut(shard, node.get());
        shard.bytes -= node->size;
        --shard.count;
    }

    static void RemoveOldest(Shard &shard) {
        Node *const node = shard.oldest;
        if (node->is_used) {
            node->is_used = false;
            TakeOut(shard, node);
            Append(shard, node);
            return;
        }
        Remove(shard, LinkOf(shard, node->hash, node->owner, node->text));
    }

    static void Grow(Shard &shard) {
        if (shard.count < shard.heads.size()) {
            return;
        }
        std::vector<Node *> heads(shard.heads.empty() ? 16 : 2 * shard.heads.size());
        for (Node *node = shard.oldest; node != nullptr; node = node->newer) {
            Node **const head = &heads[node->hash / kShards & (heads.size() - 1)];
            node->next = *head;
            *head = node;
        }
        shard.heads = std::move(heads);
    }

    const std::size_t m_capacity;  // bytes of a shard
    Shard m_shards[kShards];
};

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_REGISTRY_ANSWER_CACHE_H
