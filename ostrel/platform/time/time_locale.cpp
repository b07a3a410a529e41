#include "ostrel/platform/time/time_locale.h"

#include <unicode/udat.h>
#include <unicode/udatpg.h>
#include <unicode/ures.h>

#include <algorithm>
#include <deque>
#include <exception>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <shared_mutex>
#include <string>

#include "ostrel/platform/base/fork_lock.h"
#include "ostrel/platform/base/no_cancellation.h"

namespace ostrel_platform {
namespace {

template <class Handle, void (*kClose)(Handle *)>
struct Closer {
    void operator()(Handle *handle) const { kClose(handle); }
};
template <class Handle, void (*kClose)(Handle *)>
using Owner = std::unique_ptr<Handle, Closer<Handle, kClose>>;

// The modifiers in the host's names that select a script, with the script's code (ISO 15924).
constexpr std::string_view kScripts[][2] = {
    {"latin", "Latn"}, {"cyrillic", "Cyrl"}, {"devanagari", "Deva"}};

// Converts the host's name, language_TERRITORY.charset@modifier, to ICU's,
// language_Script_TERRITORY.
std::string icu_name(std::string_view locale) {
    const std::size_t at = std::min(locale.find('@'), locale.size());
    const std::string_view modifier = locale.substr(std::min(at + 1, locale.size()));
    std::string name(locale.substr(0, std::min(locale.find('.'), at)));
    for (const auto &[asked, script] : kScripts) {
        if (modifier == asked) {
            name.insert(std::min(name.find('_'), name.size()), std::string("_").append(script));
        }
    }
    return name;
}

// Whether ICU knows a locale. For an unknown locale ICU opens the host's default and sets a
// warning. An empty name would give forms of no language, and a name with other characters could be
// the path of a file.
bool icu_knows(const std::string &name) {
    const bool is_name = !name.empty() && std::all_of(name.begin(), name.end(), [](char c) {
        return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
               c == '_';
    });
    if (!is_name) {
        return false;
    }
    UErrorCode status = U_ZERO_ERROR;
    const Owner<UResourceBundle, ures_close> bundle(ures_open(nullptr, name.c_str(), &status));
    return U_SUCCESS(status) && status != U_USING_DEFAULT_WARNING;
}

// Returns the directive for a run of a letter in ICU's patterns (Unicode Technical Standard 35,
// "Dates"). A year is always written in full. Other letters give an empty text: they do not occur
// in patterns of dates and times without a zone.
std::u16string_view directive_of(char16_t letter, std::size_t count, std::u16string_view era) {
    const bool one = count == 1;
    switch (letter) {
        case u'G':
            return era;
        case u'y':
            return u"%Y";
        case u'M':
            return one ? u"%#m" : count == 2 ? u"%m" : count == 3 ? u"%b" : u"%B";
        case u'd':
            return one ? u"%#d" : u"%d";
        case u'E':
        case u'c':
            return count <= 3 ? u"%a" : u"%A";
        case u'a':
        case u'B':  // part of the day, such as "in the morning"
            return u"%p";
        case u'h':
        case u'K':  // 0 to 11
            return one ? u"%#I" : u"%I";
        case u'H':
            return one ? u"%#H" : u"%H";
        case u'm':
            return one ? u"%#M" : u"%M";
        case u's':
            return one ? u"%#S" : u"%S";
        default:
            return u"";
    }
}

void append_literal(std::u16string &format, char16_t character) {
    if (character == u'%') {
        format += u'%';
    }
    // ICU writes a narrow no-break blank before AM and PM, the platform a plain blank.
    format += character == u'\u202F' ? u' ' : character;
}

// Converts an ICU pattern to a format of wcsftime.
std::u16string format_of(std::u16string_view pattern, std::u16string_view era) {
    std::u16string format;
    bool quoted = false;
    for (std::size_t at = 0; at < pattern.size();) {
        const char16_t character = pattern[at];
        if (character == u'\'') {
            if (pattern.substr(at, 2) == u"''") {
                append_literal(format, character);
                ++at;
            } else {
                quoted = !quoted;
            }
            ++at;
        } else if (!quoted && ((character | 0x20) >= u'a' && (character | 0x20) <= u'z')) {
            const std::size_t count =
                std::min(pattern.find_first_not_of(character, at), pattern.size()) - at;
            format += directive_of(character, count, era);
            at += count;
        } else {
            append_literal(format, character);
            ++at;
        }
    }
    return format;
}

// Returns the text that a call of ICU stores in a buffer; an empty text on failure.
template <class Call>
std::u16string icu_text(UErrorCode *status, const Call &call) {
    WCHAR text[256];
    const int32_t length = call(text, static_cast<int32_t>(std::size(text)));
    return U_SUCCESS(*status) ? std::u16string(text, static_cast<std::size_t>(length)) : u"";
}

// The forms of one locale. Owns the texts that the forms refer to.
class IcuTimeForms {
public:
    explicit IcuTimeForms(const std::string &name) : m_locale(name + "@calendar=gregorian") {
        const Format full = Open(UDAT_NONE, UDAT_FULL);
        if (U_FAILURE(m_status)) {
            return;
        }
        const std::u16string long_date = Pattern(full);
        // In some languages the names within a date have another grammatical case. A language whose
        // long date uses the standalone weekday (letter c) gets the standalone weekdays.
        const bool alone = long_date.find(u'c') != std::u16string::npos;
        Read(full, alone ? UDAT_STANDALONE_WEEKDAYS : UDAT_WEEKDAYS, 1, m_forms.weekdays);
        Read(full, alone ? UDAT_STANDALONE_SHORT_WEEKDAYS : UDAT_SHORT_WEEKDAYS, 1,
             m_forms.short_weekdays);
        Read(full, UDAT_MONTHS, 0, m_forms.months);
        Read(full, UDAT_SHORT_MONTHS, 0, m_forms.short_months);
        Read(full, UDAT_AM_PMS, 0, m_forms.halves);

        const std::u16string era = Symbol(full, UDAT_ERAS, 1);
        const std::u16string date = format_of(Pattern(Open(UDAT_NONE, UDAT_SHORT)), era);
        const std::u16string time = format_of(Pattern(Open(UDAT_MEDIUM, UDAT_NONE)), era);
        m_forms.date = Keep(date);
        m_forms.long_date = Keep(format_of(long_date, era));
        m_forms.time = Keep(time);
        m_forms.half_day_time = Keep(format_of(HalfDayPattern(), era));
        m_forms.date_time = Keep(date + u" " + time);
        m_forms.long_date_time = Keep(std::u16string(m_forms.long_date) + u" " + time);
    }
    IcuTimeForms(const IcuTimeForms &) = delete;
    IcuTimeForms &operator=(const IcuTimeForms &) = delete;

    bool IsComplete() const { return U_SUCCESS(m_status); }
    const TimeForms &Forms() const { return m_forms; }

private:
    using Format = Owner<UDateFormat, udat_close>;

    Format Open(UDateFormatStyle time, UDateFormatStyle date) {
        // With an explicit zone ICU does not search for the host's.
        return Format(
            udat_open(time, date, m_locale.c_str(), TEXT("UTC"), -1, nullptr, 0, &m_status));
    }

    std::u16string Pattern(const Format &format) {
        return icu_text(&m_status, [&](WCHAR *text, int32_t capacity) {
            return udat_toPattern(format.get(), false, text, capacity, &m_status);
        });
    }

    // Returns the pattern of hours, minutes and seconds with AM or PM.
    std::u16string HalfDayPattern() {
        const Owner<UDateTimePatternGenerator, udatpg_close> generator(
            udatpg_open(m_locale.c_str(), &m_status));
        return icu_text(&m_status, [&](WCHAR *text, int32_t capacity) {
            return udatpg_getBestPattern(generator.get(), TEXT("hms"), -1, text, capacity,
                                         &m_status);
        });
    }

    std::u16string Symbol(const Format &format, UDateFormatSymbolType type, int32_t index) {
        return icu_text(&m_status, [&](WCHAR *text, int32_t capacity) {
            return udat_getSymbols(format.get(), type, index, text, capacity, &m_status);
        });
    }

    template <std::size_t kCount>
    void Read(const Format &format, UDateFormatSymbolType type, int32_t first,
              std::u16string_view (&names)[kCount]) {
        for (std::u16string_view &name : names) {
            name = Keep(Symbol(format, type, first++));
        }
    }

    std::u16string_view Keep(std::u16string text) { return m_texts.emplace_back(std::move(text)); }

    const std::string m_locale;
    UErrorCode m_status = U_ZERO_ERROR;
    TimeForms m_forms;
    std::deque<std::u16string> m_texts;
};

// A cache of the locales that were asked for. A locale without forms of ICU has a null entry.
//
// Threads: every thread may call it.
class KnownLocales {
public:
    KnownLocales() { register_fork_lock(ForkOrder::kTimeForms, &m_mutex); }

    // Returns nothing when the locale is not in the cache.
    std::optional<const TimeForms *> Find(std::string_view locale) const {
        const std::shared_lock lock(m_mutex);
        const auto found = m_known.find(locale);
        return found == m_known.end() ? std::nullopt : std::optional(FormsOf(found->second));
    }

    const TimeForms *Add(std::string_view locale) {
        const NoCancellation uncancelled;  // ICU may wait or open files
        const std::string name = icu_name(locale);
        std::unique_ptr<IcuTimeForms> forms;
        if (name != "C" && name != "POSIX" && icu_knows(name)) {
            forms = std::make_unique<IcuTimeForms>(name);
            if (!forms->IsComplete()) {
                return nullptr;
            }
        }
        const std::unique_lock lock(m_mutex);
        // If another thread has added the locale meanwhile, its forms are in use and stay.
        return FormsOf(m_known.try_emplace(std::string(locale), std::move(forms)).first->second);
    }

private:
    static const TimeForms *FormsOf(const std::unique_ptr<IcuTimeForms> &forms) {
        return forms ? &forms->Forms() : nullptr;
    }

    mutable std::shared_mutex m_mutex;
    std::map<std::string, std::unique_ptr<IcuTimeForms>, std::less<>> m_known;
};

}  // namespace

const TimeForms *time_forms_of(std::string_view locale) noexcept {
    try {
        // Never destroyed: static destructors write times too.
        static KnownLocales &locales = *new KnownLocales;
        const auto found = locales.Find(locale);
        return found ? *found : locales.Add(locale);
    } catch (const std::exception &) {
        return nullptr;
    }
}

}  // namespace ostrel_platform
