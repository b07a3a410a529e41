#include "ostrel/platform/file/stored_attributes.h"

#include <fcntl.h>
#include <sys/syscall.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <span>
#include <string_view>

#include "ostrel/platform/file/device_set.h"

namespace ostrel_platform {
namespace {

constexpr char kBits[] = "user.DOSATTRIB";  // the text "0x" and a hexadecimal number
constexpr std::size_t kMaxBytes = 4096;     // of a value; file servers store shorter ones
constexpr char kCreation[] = "user.ostrel.creation_time";  // the text of a decimal number

constinit DeviceSet plain_devices;  // devices without extended attributes

// Calls getxattrat (Linux 6.13 and later), for which the C library has no function.
ssize_t read_at(const FileRef &ref, const char *attribute, std::span<char> buffer) {
#ifdef SYS_getxattrat
    constexpr long kCall = SYS_getxattrat;
#else
    constexpr long kCall = 464;  // the number that current architectures share
#endif
    struct {
        std::uint64_t value;
        std::uint32_t size;
        std::uint32_t flags;
    } request = {reinterpret_cast<std::uintptr_t>(buffer.data()),
                 static_cast<std::uint32_t>(buffer.size()), 0};
    return syscall(kCall, ref.directory, ref.name, 0, attribute, &request, sizeof request);
}

// The same on an older host, by a path. /proc/self/fd gives a path for every open directory.
ssize_t read_by_path(const FileRef &ref, const char *attribute, std::span<char> buffer) {
    if (ref.directory == AT_FDCWD) {
        return getxattr(ref.name, attribute, buffer.data(), buffer.size());
    }
    char path[sizeof "/proc/self/fd/2147483647/" + 1024];
    const int length =
        std::snprintf(path, sizeof path, "/proc/self/fd/%d/%s", ref.directory, ref.name);
    if (length >= static_cast<int>(sizeof path)) {
        errno = ENAMETOOLONG;
        return -1;
    }
    return getxattr(path, attribute, buffer.data(), buffer.size());
}

ssize_t read_of(const FileRef &ref, const char *attribute, std::span<char> buffer) {
    if (*ref.name == '\0') {
        return fgetxattr(ref.directory, attribute, buffer.data(), buffer.size());
    }
    static std::atomic<bool> has_call{true};
    if (has_call.load(std::memory_order_relaxed)) {
        const ssize_t count = read_at(ref, attribute, buffer);
        // The filter of a container refuses an unknown call with EPERM. Reading a user extended
        // attribute never gives EPERM.
        if (count >= 0 || (errno != ENOSYS && errno != EPERM)) {
            return count;
        }
        has_call.store(false, std::memory_order_relaxed);
    }
    return read_by_path(ref, attribute, buffer);
}

std::optional<std::string_view> read_text(const FileRef &ref, dev_t device, const char *attribute,
                                          std::span<char> buffer) {
    if (plain_devices.Has(device)) {
        return std::nullopt;
    }
    const ssize_t count = read_of(ref, attribute, buffer);
    if (count < 0) {
        if (errno == EOPNOTSUPP && device != kAnyDevice) {
            plain_devices.Add(device);
        }
        return std::nullopt;
    }
    return std::string_view(buffer.data(), static_cast<std::size_t>(count));
}

template <class Number>
std::optional<Number> number_of(std::string_view digits, int base) {
    Number number = 0;
    const char *const end = digits.data() + digits.size();
    const auto [stop, error] = std::from_chars(digits.data(), end, number, base);
    return error == std::errc() && stop == end ? std::optional(number) : std::nullopt;
}

// A number as the text of an attribute.
class NumberText {
public:
    NumberText(std::string_view prefix, std::int64_t number, int base) {
        char *const digits = m_text + prefix.copy(m_text, prefix.size());
        m_end = std::to_chars(digits, m_text + sizeof m_text, number, base).ptr;
    }

    const char *Data() const { return m_text; }
    std::size_t Size() const { return static_cast<std::size_t>(m_end - m_text); }

private:
    char m_text[std::numeric_limits<std::int64_t>::digits10 + 2];
    const char *m_end;
};

// The new value of kBits: the bits, then what follows the bits in the old value. Uses no heap, so
// that it cannot fail.
class BitsValue {
public:
    BitsValue(DWORD bits, const FileRef &ref) {
        char buffer[kMaxBytes];
        const std::string_view old =
            read_text(ref, kAnyDevice, kBits, buffer).value_or(std::string_view());
        const NumberText text("0x", bits, 16);
        Append({text.Data(), text.Size()});
        if (const std::size_t end = old.find('\0'); end != old.npos) {
            Append(old.substr(end));
        }
    }

    const char *Data() const { return m_bytes; }
    std::size_t Size() const { return m_size; }

private:
    void Append(std::string_view bytes) {
        m_size += bytes.copy(m_bytes + m_size, sizeof m_bytes - m_size);
    }

    char m_bytes[kMaxBytes + sizeof "0x00000000"];
    std::size_t m_size = 0;
};

// A missing attribute counts as removed.
int result_of(int result) {
    return result == 0 || errno == ENODATA ? 0 : errno;
}

}  // namespace

std::optional<DWORD> read_stored_bits(const FileRef &ref, dev_t device) noexcept {
    char buffer[256];  // file servers store facts of their own after a NUL
    char large_buffer[kMaxBytes];
    auto value = read_text(ref, device, kBits, buffer);
    if (!value && errno == ERANGE) {
        value = read_text(ref, device, kBits, large_buffer);
    }
    const std::string_view text = value ? value->substr(0, value->find('\0')) : std::string_view();
    return text.starts_with("0x") ? number_of<DWORD>(text.substr(2), 16) : std::nullopt;
}

std::optional<std::int64_t> read_stored_creation(const FileRef &ref, dev_t device) noexcept {
    char buffer[32];
    const auto text = read_text(ref, device, kCreation, buffer);
    const auto ticks = text ? number_of<std::int64_t>(*text, 10) : std::nullopt;
    return ticks && *ticks >= 0 ? ticks : std::nullopt;
}

int store_bits(const char *path, DWORD bits) noexcept {
    const BitsValue value(bits, {AT_FDCWD, path});
    return result_of(setxattr(path, kBits, value.Data(), value.Size(), 0));
}

int store_bits(int file, DWORD bits) noexcept {
    const BitsValue value(bits, {file, ""});
    return result_of(fsetxattr(file, kBits, value.Data(), value.Size(), 0));
}

int store_new_bits(int file, DWORD bits) noexcept {
    const NumberText text("0x", bits, 16);
    return result_of(fsetxattr(file, kBits, text.Data(), text.Size(), 0));
}

int remove_bits(const char *path) noexcept {
    return result_of(removexattr(path, kBits));
}

int remove_bits(int file) noexcept {
    return result_of(fremovexattr(file, kBits));
}

int store_creation(int file, std::int64_t ticks) noexcept {
    const NumberText text("", ticks, 10);
    return result_of(fsetxattr(file, kCreation, text.Data(), text.Size(), 0));
}

}  // namespace ostrel_platform
