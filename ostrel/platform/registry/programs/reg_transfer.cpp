#include <cerrno>
#include <cstring>

#include "ostrel/platform/base/host_descriptor.h"
#include "ostrel/platform/registry/programs/reg_commands.h"
#include "ostrel/platform/registry/programs/reg_keys.h"
#include "ostrel/platform/registry/programs/reg_options.h"
#include "ostrel/platform/registry/programs/reg_text.h"
#include "ostrel/platform/registry/registration_file.h"
#include "ostrel/platform/registry/registration_tree.h"
#include "ostrel/platform/text/charset.h"

namespace ostrel_platform {
namespace {

constexpr char kStandard[] = "-";  // the name of a standard stream

// Returns a name of the host to print; bytes that are no UTF-8 become U+FFFD.
std::string shown(const std::string &file) {
    return printed(to_wide(file, kCodePageUtf8));
}

void require_host(int error, const std::string &file) {
    if (error != 0) {
        throw RegFailure{shown(file) + ": " + std::strerror(error)};
    }
}

}  // namespace

int run_export(const RegArguments &arguments) {
    const RegOptions options(arguments, {{"y"}, {"reg:32"}, {"reg:64"}}, 2);
    const KeyName name = key_name_of(options.Operand(0));
    const std::string &file = options.Operand(1);
    const ScopedKey key = ScopedKey::Open(name, KEY_READ);
    std::string text;
    require_success(text_of_tree(key.Get(), name.root, name.path, true, &text));
    if (file == kStandard) {
        print(text);
        return 0;
    }
    struct stat facts;
    const bool exists = stat(file.c_str(), &facts) == 0;
    if (exists && !S_ISREG(facts.st_mode)) {  // a device or a pipe, which must stay what it is
        const HostDescriptor device = open_host(file.c_str(), O_WRONLY);
        require_host(device ? write_all(device.Get(), text.data(), text.size()) : errno, file);
        return report_done();
    }
    if (exists && !options.Has("y")) {
        require_yes("File " + shown(file) + " already exists. Overwrite (Yes/No)? ");
    }
    require_host(write_registration_file(file, text, exists), file);
    return report_done();
}

int run_import(const RegArguments &arguments) {
    const RegOptions options(arguments, {{"reg:32"}, {"reg:64"}}, 1);
    const std::string &file = options.Operand(0);
    std::string text;
    if (file == kStandard) {
        require_host(read_registration_file(STDIN_FILENO, &text), file);
    } else {
        const HostDescriptor opened = open_host(file.c_str(), O_RDONLY);
        require_host(opened ? read_registration_file(opened.Get(), &text) : errno, file);
    }
    const ImportResult result = import_text(text);
    if (result.fault) {
        throw RegFailure{shown(file) + ", line " + std::to_string(result.fault->line) + ": " +
                         result.fault->reason + ". Nothing was imported."};
    }
    require_success(result.code);
    return report_done();
}

}  // namespace ostrel_platform
