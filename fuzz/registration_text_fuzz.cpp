// Any bytes as registration text: what is read must be written as the same operations again, and a
// text that was written is written the same way once more.

#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "fuzz/check.h"
#include "ostrel/platform/registry/registration_text.h"
#include "ostrel/platform/registry/registry_roots.h"

namespace {

using ostrel_platform::RegistrationOperation;
using Kind = RegistrationOperation::Kind;

// Returns whether the text was read.
bool read(std::string_view text, std::vector<RegistrationOperation> *operations) {
    const auto fault = ostrel_platform::read_registration_text(text, [&](const auto &operation) {
        operations->push_back(operation);
        return true;
    });
    check(!fault || (operations->empty() && fault->line >= 1));
    return !fault;
}

std::string written(const std::vector<RegistrationOperation> &operations) {
    std::string text;
    ostrel_platform::append_registration_begin(&text);
    for (const RegistrationOperation &operation : operations) {
        check(ostrel_platform::append_registration(operation, &text));
    }
    ostrel_platform::append_registration_end(&text);
    return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    std::vector<RegistrationOperation> operations, again;
    if (!read({reinterpret_cast<const char *>(data), size}, &operations)) {
        return 0;
    }
    for (const RegistrationOperation &operation : operations) {
        const bool is_key = operation.kind == Kind::kKey || operation.kind == Kind::kDeleteKey;
        check(is_key == (ostrel_platform::root_of_number(operation.root) != nullptr));
        check(is_key || operation.name.size() <= ostrel_platform::kMaxValueName);
        check(operation.name.find(u'\0') == operation.name.npos);
    }
    const std::string text = written(operations);
    check(read(text, &again) && again == operations && written(again) == text);
    return 0;
}
