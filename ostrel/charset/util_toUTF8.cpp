#include "ostrel/charset/util_toUTF8.h"

#include <unicode/ucnv.h>
#include <unicode/unistr.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <utility>

#include "ostrel/core/trace.h"

namespace {

constexpr std::int32_t kMaxIllegal = 11;

// A UTF-16 unit becomes up to 3 bytes of UTF-8, and ICU counts bytes in 32 bits.
constexpr std::size_t kLongest = INT32_MAX / 3;

// ICU calls this for a sequence that it cannot convert. `context` points to the count of illegal
// sequences. Up to kMaxIllegal the callback clears the error, so ICU drops the sequence and goes
// on.
void forgive_illegal(const void *context, UConverterToUnicodeArgs *, const char *, std::int32_t,
                     UConverterCallbackReason reason, UErrorCode *error) {
    auto *const count = static_cast<std::int32_t *>(const_cast<void *>(context));
    if (count == nullptr) {
        return;
    }
    if (reason == UCNV_RESET) {
        *count = 0;
    } else if (reason == UCNV_ILLEGAL) {
        if (*count < kMaxIllegal) {
            *error = U_ZERO_ERROR;
        } else {
            OSTREL_TRACE(DBG::kLevelValue,
                         TEXT("UConverterToUCallbackForIllegalConvert(UCNV_ILLEGAL) illegal count "
                              "= %d"),
                         *count);
            if (*error != U_ZERO_ERROR) {
                OSTREL_TRACE(DBG::kLevelUnmet,
                             TEXT("UConverterToUCallbackForIllegalConvert(UCNV_ILLEGAL) return "
                                  "U_ILLEGAL_CHAR_FOUND"));
                *error = U_ILLEGAL_CHAR_FOUND;
            }
        }
        ++*count;
    }
}

// A converter that drops illegal sequences, for one conversion.
class ForgivingConverter {
public:
    // Traces a failure. A warning is no failure: ICU warns even for a common name such as Shift_JIS
    // that several of its converters have.
    explicit ForgivingConverter(const char *charset) {
        UErrorCode error = U_ZERO_ERROR;
        m_converter = ucnv_open(charset, &error);
        if (U_FAILURE(error)) {
            OSTREL_TRACE(DBG::kLevelUnmet, TEXT("ucnv_open() failed, szCharset=%S errCode = %d"),
                         charset, error);
            return;
        }
        error = U_ZERO_ERROR;
        ucnv_setToUCallBack(m_converter, forgive_illegal, &m_illegal, &m_oldCallback, &m_oldContext,
                            &error);
        m_ready = error == U_ZERO_ERROR;
        if (!m_ready) {
            OSTREL_TRACE(DBG::kLevelUnmet, TEXT("ucnv_setToUCallBack() failed, errCode = %d"),
                         error);
        }
    }

    ~ForgivingConverter() {
        if (m_ready) {
            UErrorCode error = U_ZERO_ERROR;
            ucnv_setToUCallBack(m_converter, m_oldCallback, m_oldContext, nullptr, nullptr, &error);
        }
        ucnv_close(m_converter);
    }

    ForgivingConverter(const ForgivingConverter &) = delete;
    ForgivingConverter &operator=(const ForgivingConverter &) = delete;

    bool Ready() const { return m_ready; }
    UConverter *Get() { return m_converter; }

private:
    UConverter *m_converter;
    UConverterToUCallback m_oldCallback = nullptr;
    const void *m_oldContext = nullptr;
    std::int32_t m_illegal = 0;
    bool m_ready = false;
};

// Returns the terminated text, or null when the conversion fails.
std::unique_ptr<char[]> to_utf8(const char *text, const char *charset) {
    ForgivingConverter converter(charset);
    if (!converter.Ready()) {
        return nullptr;
    }
    UErrorCode error = U_ZERO_ERROR;
    icu::UnicodeString wide;
    if (text != nullptr && strnlen(text, kLongest + 1) > kLongest) {
        error = U_INDEX_OUTOFBOUNDS_ERROR;
    } else {
        wide = icu::UnicodeString(text, -1, converter.Get(), error);
        if (error == U_ZERO_ERROR && wide.isBogus()) {
            error = U_MEMORY_ALLOCATION_ERROR;  // ICU does not report it
        }
    }
    if (error == U_ZERO_ERROR && wide.length() > static_cast<std::int32_t>(kLongest)) {
        error = U_INDEX_OUTOFBOUNDS_ERROR;
    }
    if (error != U_ZERO_ERROR) {
        OSTREL_TRACE(DBG::kLevelUnmet, TEXT("UnicodeString construct failed, errCode = %d"), error);
        return nullptr;
    }
    const std::int32_t size = wide.extract(0, wide.length(), nullptr, 0, "UTF8");
    std::unique_ptr<char[]> utf8(new char[static_cast<std::size_t>(size) + 1]);
    if (wide.extract(0, wide.length(), utf8.get(), static_cast<std::uint32_t>(size), "UTF8") !=
            size ||
        (size == 0 && !wide.isEmpty())) {
        throw std::bad_alloc();  // the only remaining reason
    }
    utf8[static_cast<std::size_t>(size)] = '\0';
    return utf8;
}

}  // namespace

CUTF8String::CUTF8String(const char *text, std::uint64_t, const char *charset)
    : m_pszUTF8(to_utf8(text, charset).release()) {}

CUTF8String::CUTF8String(const CUTF8String &other) : m_pszUTF8(nullptr) {
    if (other.m_pszUTF8 != nullptr) {
        const std::size_t size = std::strlen(other.m_pszUTF8) + 1;
        m_pszUTF8 = new char[size];
        std::copy_n(other.m_pszUTF8, size, m_pszUTF8);
    }
}

CUTF8String &CUTF8String::operator=(const CUTF8String &other) {
    if (this != &other) {
        CUTF8String copy(other);
        std::swap(m_pszUTF8, copy.m_pszUTF8);
    }
    return *this;
}

CUTF8String::~CUTF8String() {
    delete[] m_pszUTF8;
    m_pszUTF8 = nullptr;
}
