#ifndef OSTREL_PLATFORM_REGISTRY_VALUE_ANSWERS_H
#define OSTREL_PLATFORM_REGISTRY_VALUE_ANSWERS_H

// Internal. The values of keys, and the cached answers of the process.

#include <cstdint>
#include <string>
#include <string_view>

#include "ostrel/platform/registry/answer_cache.h"
#include "ostrel/platform/registry/keys.h"

namespace ostrel_platform {

// What a read of a value gives. Also cached for a value that does not exist.
struct ValueAnswer {
    std::uint64_t counter = 0;  // of the key's bucket
    DWORD code = ERROR_SUCCESS;
    DWORD type = 0;
    std::string bytes;
};

AnswerCache<ValueAnswer> &value_cache();

// Reads a value from the database and caches the answer. `page` may be null. The code is
// ERROR_SUCCESS, ERROR_FILE_NOT_FOUND or ERROR_KEY_DELETED. Throws StoreFailure.
ValueAnswer read_value(const KeyView &key, std::u16string_view upper, SharedPage *page);

// Finds the value of a key and calls `use(code, type, bytes)`, whose result it returns. `upper` is
// the name in upper case. Throws StoreFailure.
template <class Use>
DWORD with_value(const KeyView &key, std::u16string_view upper, Use use) {
    SharedPage *const page = key.store->CurrentPage();
    DWORD result = 0;
    if (page != nullptr &&
        value_cache().Find(owner_of(*key.store, key.id), upper, [&](const ValueAnswer &answer) {
            const bool holds = page->Counter(bucket_of(key.id)) == answer.counter;
            if (holds) {
                result = use(answer.code, answer.type, answer.bytes);
            }
            return holds;
        })) {
        return result;
    }
    const ValueAnswer answer = read_value(key, upper, page);
    return use(answer.code, answer.type, answer.bytes);
}

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_REGISTRY_VALUE_ANSWERS_H
