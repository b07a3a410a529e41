#include "ostrel/platform/text/charset.h"

#include <pthread.h>
#include <unicode/ucnv.h>
#include <unicode/ucnv_cb.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>
#include <iterator>

#include "ostrel/platform/text/code_page_facts.h"
#include "ostrel/platform/text/code_page_names.h"
#include "ostrel/platform/text/utf8.h"

namespace ostrel_platform {
namespace {

// The callbacks get a pointer to the number of the code page.
unsigned code_page_in(const void *context) {
    return *static_cast<const unsigned *>(context);
}

// Writes the platform's character for a byte that ICU's table leaves undefined, and U+FFFD for any
// other broken or unassigned sequence. ICU's own callback writes U+001A for some bytes.
void replace_broken(const void *context, UConverterToUnicodeArgs *args, const char *bytes,
                    int32_t length, UConverterCallbackReason reason, UErrorCode *status) {
    if (reason <= UCNV_IRREGULAR) {
        const WCHAR character =
            length == 1
                ? character_of_byte(code_page_in(context), static_cast<unsigned char>(bytes[0]))
                : WCHAR{0};
        const UChar written = character != 0 ? character : UChar{0xFFFD};
        *status = U_ZERO_ERROR;
        ucnv_cbToUWriteUChars(args, &written, 1, 0, status);
    }
}

// Writes the platform's byte or best fit, or the substitute, for a character that ICU's table
// lacks. ICU's own callback drops some characters, such as U+200D.
void replace_missing(const void *context, UConverterFromUnicodeArgs *args, const UChar *units,
                     int32_t length, UChar32, UConverterCallbackReason reason, UErrorCode *status) {
    if (reason > UCNV_IRREGULAR) {
        return;
    }
    *status = U_ZERO_ERROR;
    if (length == 1) {
        const int number = byte_of_character(code_page_in(context), units[0]);
        if (number >= 0) {
            const char byte = static_cast<char>(number);
            ucnv_cbFromUWriteBytes(args, &byte, 1, 0, status);
            return;
        }
        if (const UChar fit = best_fit(code_page_in(context), units[0])) {
            const UChar *from = &fit;
            ucnv_cbFromUWriteUChars(args, &from, from + 1, 0, status);
            return;
        }
    }
    ucnv_cbFromUWriteSub(args, 0, status);
}

}  // namespace

// ICU's converter of one code page.
class Converter {
public:
    // Null when ICU has no converter for the code page.
    static std::unique_ptr<Converter> Open(unsigned code_page) {
        ConverterPtr handle = open_converter(code_page);
        return handle ? std::unique_ptr<Converter>(new Converter(std::move(handle), code_page))
                      : nullptr;
    }

    unsigned code_page() const { return m_codePage; }

    void Reset() { ucnv_reset(m_handle.get()); }

    // Decodes from `*in` to `end` into `capacity` units and moves `*in` to the first byte that it
    // has not read. Sets `*full` when the result does not fit. Returns the units stored.
    std::size_t Decode(const char **in, const char *end, bool last, WCHAR *units,
                       std::size_t capacity, bool *full) {
        WCHAR *out = units;
        WCHAR *const out_end = units + capacity;
        UErrorCode status = U_ZERO_ERROR;
        do {
            const char *const to = *in + std::min(end - *in, kMaxStep);
            WCHAR *const limit = out + std::min(out_end - out, kMaxStep);
            status = U_ZERO_ERROR;
            ucnv_toUnicode(m_handle.get(), &out, limit, in, to, nullptr, last && to == end,
                           &status);
        } while (status == U_ZERO_ERROR ? *in != end
                                        : status == U_BUFFER_OVERFLOW_ERROR && out != out_end);
        *full = status == U_BUFFER_OVERFLOW_ERROR;
        const auto stored = static_cast<std::size_t>(out - units);
        m_decoded.Apply(units, stored);
        return stored;
    }

    // Encodes in the same way. The text is complete at `end`.
    std::size_t Encode(const WCHAR **in, const WCHAR *end, char *bytes, std::size_t capacity,
                       bool *full) {
        char *out = bytes;
        UErrorCode status = U_ZERO_ERROR;
        do {
            WCHAR exchanged[256];
            const WCHAR *from = *in;
            const WCHAR *to = *in + std::min(end - *in, kMaxStep);
            if (!m_encoded.empty()) {
                to = exchanged + std::min<std::ptrdiff_t>(end - *in, std::ssize(exchanged));
                std::copy(*in, *in + (to - exchanged), exchanged);
                m_encoded.Apply(exchanged, static_cast<std::size_t>(to - exchanged));
                from = exchanged;
            }
            const WCHAR *const begin = from;
            const bool last = to - begin == end - *in;
            status = U_ZERO_ERROR;
            ucnv_fromUnicode(m_handle.get(), &out, bytes + capacity, &from, to, nullptr, last,
                             &status);
            *in += from - begin;
        } while (*in != end && status == U_ZERO_ERROR);
        *full = status == U_BUFFER_OVERFLOW_ERROR;
        return static_cast<std::size_t>(out - bytes);
    }

private:
    // ICU refuses more than 2^31 - 1 bytes on either side of a call.
    static constexpr std::ptrdiff_t kMaxStep = 0x3FFFFFFF;

    // Characters to exchange in a text.
    class Exchanges {
    public:
        void Add(WCHAR from, WCHAR to) { m_rows[m_count++] = {from, to}; }

        bool empty() const { return m_count == 0; }

        void Apply(WCHAR *units, std::size_t count) const {
            constexpr std::size_t kBlock = 64;
            for (std::size_t done = 0; !empty() && done < count; done += kBlock) {
                const std::size_t size = std::min(count - done, kBlock);
                if (Occurs(units + done, size)) {
                    Exchange(units + done, size);
                }
            }
        }

    private:
        struct Row {
            WCHAR from;
            WCHAR to;
        };

        // Whether a text holds a character of the rows. The compiler makes vector code of the loop,
        // which holds all rows, also unused ones (U+0000). Without the loop, encoding 1.4 million
        // units in 932 takes 7 ms instead of 5.
        bool Occurs(const WCHAR *units, std::size_t count) const {
            const auto [a, b, c, d] = m_rows;
            unsigned found = 0;
            for (std::size_t i = 0; i < count; ++i) {
                const WCHAR unit = units[i];
                found |=
                    static_cast<unsigned>(unit == a.from) | static_cast<unsigned>(unit == b.from) |
                    static_cast<unsigned>(unit == c.from) | static_cast<unsigned>(unit == d.from);
            }
            return found != 0;
        }

        void Exchange(WCHAR *units, std::size_t count) const {
            for (WCHAR *unit = units; unit != units + count; ++unit) {
                for (std::size_t i = 0; i < m_count; ++i) {
                    if (*unit == m_rows[i].from) {
                        *unit = m_rows[i].to;
                        break;
                    }
                }
            }
        }

        std::array<Row, 4> m_rows = {};  // three control characters, and one of the platform's
        std::size_t m_count = 0;
    };

    Converter(ConverterPtr handle, unsigned code_page)
        : m_handle(std::move(handle)), m_codePage(code_page) {
        UErrorCode status = U_ZERO_ERROR;
        ucnv_setToUCallBack(m_handle.get(), replace_broken, &m_codePage, nullptr, nullptr, &status);
        ucnv_setFromUCallBack(m_handle.get(), replace_missing, &m_codePage, nullptr, nullptr,
                              &status);
        ucnv_setSubstString(m_handle.get(), TEXT("?"), 1, &status);
        ucnv_setFallback(m_handle.get(), true);
        // Some of ICU's converters rotate three control characters, as old terminals did: byte 0x1A
        // is U+001C, 0x1C is U+007F and 0x7F is U+001A. On the platform each byte is its own
        // character.
        Exchanges decoded;
        if (Decode(0x1A) == 0x1C) {
            constexpr WCHAR kRotated[] = {0x1A, 0x1C, 0x7F, 0x1A};
            for (std::size_t i = 0; i < 3; ++i) {
                decoded.Add(kRotated[i + 1], kRotated[i]);
                m_encoded.Add(kRotated[i], kRotated[i + 1]);
            }
        }
        for (const ByteRun &run : byte_runs(code_page)) {
            const WCHAR character = Decode(run.first);
            if (character != run.character) {  // only runs of one byte
                decoded.Add(character, run.character);
            }
        }
        for (const Override &row : kOverrides) {
            if (row.code_page == code_page) {
                m_encoded.Add(row.character, row.written);
            }
        }
        m_decoded = decoded;
    }

    // Returns the character of one byte.
    WCHAR Decode(unsigned char byte) {
        const char one = static_cast<char>(byte);
        const char *in = &one;
        WCHAR unit = 0;
        bool full = false;
        Decode(&in, in + 1, true, &unit, 1, &full);
        Reset();
        return unit;
    }

    const ConverterPtr m_handle;
    const unsigned m_codePage;
    Exchanges m_decoded;  // in text that ICU decoded
    Exchanges m_encoded;  // in text that ICU is to encode
};

namespace {

// Deletes a converter that the thread does not keep.
struct Release {
    bool owns = false;

    void operator()(Converter *converter) const {
        if (owns) {
            delete converter;
        }
    }
};
using ConverterInUse = std::unique_ptr<Converter, Release>;

// Each thread keeps the converter that it used last, since opening one takes far longer than
// converting a short text. A key of the host deletes the converter at the end of the thread. A
// destructor of the language's would end the program when memory for its registration is short.
constinit thread_local Converter *t_converter = nullptr;

constinit std::atomic<bool> g_keyExists = false;
pthread_key_t g_key;

void end_of_thread(void *converter) {
    t_converter = nullptr;
    delete static_cast<Converter *>(converter);
}

// Takes the key back when the library is unloaded.
struct KeyOwner {
    KeyOwner() { g_keyExists = pthread_key_create(&g_key, end_of_thread) == 0; }
    ~KeyOwner() {
        if (g_keyExists.exchange(false)) {
            pthread_key_delete(g_key);
        }
    }
};

// Makes a converter the one that the thread keeps. Returns false when the host cannot keep it.
bool keep(Converter *converter) {
    static const KeyOwner owner;
    if (!g_keyExists || pthread_setspecific(g_key, converter) != 0) {
        return false;
    }
    delete t_converter;
    t_converter = converter;
    return true;
}

// Returns the converter of a code page, ready for a new text, or null for UTF-8 and for an unknown
// code page.
ConverterInUse converter_for(unsigned code_page) {
    if (code_page == kCodePageUtf8) {
        return nullptr;
    }
    if (t_converter != nullptr && t_converter->code_page() == code_page) {
        t_converter->Reset();
        return {t_converter, Release{false}};
    }
    ConverterInUse converter(Converter::Open(code_page).release(), Release{true});
    if (converter && keep(converter.get())) {
        converter.get_deleter().owns = false;
    }
    return converter;
}

// Whether ASCII bytes stand for ASCII characters in a code page, also behind an escape sequence or
// a shift. The system code page must have this property.
bool holds_ascii(unsigned code_page) {
    constexpr char kBytes[] = "\t\n\x0E\x1B$B*HAz09#%\\~";
    constexpr WCHAR kUnits[] = TEXT("\t\n\x0E\x1B$B*HAz09#%\\~");
    return code_page == kCodePageUtf8 ||
           (converter_for(code_page) != nullptr && to_wide(kBytes, code_page) == kUnits);
}

}  // namespace

unsigned system_code_page() {
    static const unsigned code_page = [] {
        const unsigned named = code_page_of_environment();
        return holds_ascii(named) ? named : kCodePageUtf8;
    }();
    return code_page;
}

bool is_code_page(unsigned code_page) {
    return code_page == kCodePageUtf8 || converter_for(code_page) != nullptr;
}

std::size_t to_wide_within(std::string_view bytes, unsigned code_page, WCHAR *units,
                           std::size_t capacity) {
    const ConverterInUse converter = converter_for(code_page);
    if (converter == nullptr) {
        return utf8_to_utf16_within(bytes.data(), bytes.size(), units, capacity);
    }
    const char *in = bytes.data();
    const char *const end = in + bytes.size();
    bool full = false;
    const std::size_t stored = converter->Decode(&in, end, true, units, capacity, &full);
    // The rest of the source may be an escape sequence, which yields no unit.
    WCHAR more;
    return full && (converter->Decode(&in, end, true, &more, 1, &full) > 0 || full) ? kTooSmall
                                                                                    : stored;
}

std::size_t to_narrow_within(std::u16string_view text, unsigned code_page, char *bytes,
                             std::size_t capacity) {
    const ConverterInUse converter = converter_for(code_page);
    if (converter == nullptr) {
        return utf16_to_utf8_within(text.data(), text.size(), bytes, capacity);
    }
    const WCHAR *in = text.data();
    bool full = false;
    const std::size_t stored = converter->Encode(&in, in + text.size(), bytes, capacity, &full);
    return full ? kTooSmall : stored;
}

std::size_t wide_length(std::string_view bytes, unsigned code_page) {
    const ConverterInUse converter = converter_for(code_page);
    if (converter == nullptr) {
        return utf16_length(bytes.data(), bytes.size());
    }
    std::size_t length = 0;
    const char *in = bytes.data();
    for (bool full = true; full;) {
        WCHAR scratch[1024];
        length += converter->Decode(&in, bytes.data() + bytes.size(), true, scratch,
                                    std::size(scratch), &full);
    }
    return length;
}

std::size_t narrow_length(std::u16string_view text, unsigned code_page) {
    const ConverterInUse converter = converter_for(code_page);
    if (converter == nullptr) {
        return utf8_length(text.data(), text.size());
    }
    std::size_t length = 0;
    const WCHAR *in = text.data();
    for (bool full = true; full;) {
        char scratch[2048];
        length +=
            converter->Encode(&in, text.data() + text.size(), scratch, std::size(scratch), &full);
    }
    return length;
}

std::u16string to_wide(std::string_view bytes, unsigned code_page) {
    std::u16string text(StreamDecoder::Capacity(bytes.size()), u'\0');
    text.resize(to_wide_within(bytes, code_page, text.data(), text.size()));
    return text;
}

std::string to_narrow(std::u16string_view text, unsigned code_page) {
    std::string bytes(narrow_length(text, code_page), '\0');
    to_narrow_within(text, code_page, bytes.data(), bytes.size());
    return bytes;
}

void for_each_wide_piece(std::string_view bytes, bool last,
                         const std::function<void(std::u16string_view)> &take) {
    constexpr std::size_t kPiece = 512;
    WCHAR units[kPiece];
    const ConverterInUse converter = converter_for(system_code_page());
    const char *in = bytes.data();
    const char *const end = in + bytes.size();
    for (bool more = true; more;) {
        std::size_t stored = 0;
        if (converter != nullptr) {
            stored = converter->Decode(&in, end, last, units, kPiece, &more);
        } else {
            const std::size_t count = std::min(static_cast<std::size_t>(end - in), kPiece);
            const bool ends = in + count == end;
            std::size_t taken = 0;
            stored = utf8_to_utf16(in, count, ends && last, units, &taken);
            in += taken;
            more = !ends;
        }
        take({units, stored});
    }
}

void for_each_narrow_piece(std::u16string_view text, bool last,
                           const std::function<void(std::string_view)> &take) {
    constexpr std::size_t kPiece = 512;
    char bytes[3 * kPiece];
    const auto is_high_surrogate = [](WCHAR unit) { return (unit & 0xFC00) == 0xD800; };
    if (!last && !text.empty() && is_high_surrogate(text.back())) {
        text.remove_suffix(1);
    }
    const ConverterInUse converter = converter_for(system_code_page());
    const WCHAR *in = text.data();
    const WCHAR *const end = in + text.size();
    for (bool more = true; more;) {
        std::size_t stored = 0;
        if (converter != nullptr) {
            stored = converter->Encode(&in, end, bytes, sizeof bytes, &more);
        } else {
            std::size_t count = std::min(static_cast<std::size_t>(end - in), kPiece);
            if (in + count != end && is_high_surrogate(in[count - 1])) {
                --count;
            }
            stored = utf16_to_utf8(in, count, bytes);
            in += count;
            more = in != end;
        }
        take({bytes, stored});
    }
}

StreamDecoder::StreamDecoder(unsigned code_page)
    : m_converter(code_page == kCodePageUtf8 ? nullptr : Converter::Open(code_page)) {}

StreamDecoder::~StreamDecoder() = default;

std::size_t StreamDecoder::Decode(const char *bytes, std::size_t count, bool last, WCHAR *units) {
    if (m_converter) {
        bool full = false;
        return m_converter->Decode(&bytes, bytes + count, last, units, Capacity(count), &full);
    }
    WCHAR *out = units;
    std::size_t consumed = 0;
    // Complete the character that the last block cut. A byte at a time will do: cuts are rare.
    while (m_pendingCount > 0 && (count > 0 || last)) {
        if (count > 0 && m_pendingCount < sizeof m_pending) {
            m_pending[m_pendingCount++] = *bytes++;
            --count;
        }
        out += utf8_to_utf16(m_pending, m_pendingCount, last && count == 0, out, &consumed);
        m_pendingCount -= consumed;
        std::memmove(m_pending, m_pending + consumed, m_pendingCount);
    }
    if (m_pendingCount == 0) {
        out += utf8_to_utf16(bytes, count, last, out, &consumed);
        m_pendingCount = count - consumed;
        std::memcpy(m_pending, bytes + consumed, m_pendingCount);
    }
    return static_cast<std::size_t>(out - units);
}

}  // namespace ostrel_platform
