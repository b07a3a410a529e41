#include "ostrel/platform/registry/value_answers.h"

#include "ostrel/platform/registry/key_names.h"

namespace ostrel_platform {
namespace {

constexpr std::size_t kCapacity = 32 << 20;   // bytes
constexpr std::size_t kMaxCached = 64 << 10;  // bytes of a value

}  // namespace

AnswerCache<ValueAnswer> &value_cache() {
    static auto *const cache = new AnswerCache<ValueAnswer>(kCapacity);
    return *cache;
}

ValueAnswer read_value(const KeyView &key, std::u16string_view upper, SharedPage *page) {
    ValueAnswer answer;
    answer.counter = page != nullptr ? page->Counter(bucket_of(key.id)) : 1;
    const std::string sort_key = sort_key_of(upper);
    key.store->Read([&](Database &database) {
        Query query(database, Sql::kFindValue);
        query.Bind(key.id).Bind(sort_key);
        if (query.Step()) {
            answer.code = ERROR_SUCCESS;
            answer.type = static_cast<DWORD>(query.Number(0));
            answer.bytes = query.Bytes(1);
        } else {
            answer.code = key_exists(database, key.id) ? ERROR_FILE_NOT_FOUND : ERROR_KEY_DELETED;
        }
    });
    if (SharedPage::IsAtRest(answer.counter) && answer.bytes.size() <= kMaxCached) {
        value_cache().Add(owner_of(*key.store, key.id), upper, answer, answer.bytes.size());
    }
    return answer;
}

}  // namespace ostrel_platform
