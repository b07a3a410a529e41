// Reads any text as a time in each of the forms, then takes what came of it through the operations,
// and prints it by any format. Input: a byte for the form, one for the length of the text, then the
// text and the format in UTF-16.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "fuzz/check.h"
#include "ostrel/time/tc_datetime_utility.h"
#include "ostrel/time/time_ex.h"

namespace {

template <class Call>
void attempt(Call call) {
    try {
        call();
    } catch (const OS::CTimeException &) {
    } catch (const OS::CSystemException &) {
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    if (size < 2) {
        return 0;
    }
    setenv("TZ", "Australia/Lord_Howe", 1);
    std::u16string all((size - 2) / 2, u'\0');
    std::memcpy(all.data(), data + 2, all.size() * 2);
    const std::size_t length = std::min<std::size_t>(data[1], all.size());
    const OS::x_wstring text(all.substr(0, length));
    const OS::x_wstring format(all.substr(length));

    const OS::CTime time(text, static_cast<OS::CTime::DATETIME_SPEC>(data[0] % 5));
    check(time.GetTimeString(format.c_str()).GetLength() < 1024);
    (void)time.GetDBTimeString();
    attempt([&] { (void)(time + time); });
    attempt([&] { (void)(time - OS::CTime(2000, 1, 1, 0, 0, 0)); });
    attempt([&] { OS::CTime(time).ToGMTime().ToLocalTime(); });
    attempt([&] { check(OS::CTime(time.GetTime()).GetTime() == time.GetTime()); });
    // The same with the fields of a tm, whatever they are.
    std::tm fields{};
    std::memcpy(&fields, data, std::min(size, 9 * sizeof(int)));
    const OS::CTime any(fields);
    const OS::CTime other(2000, 1, 1, 0, 0, 0);
    attempt([&] { (void)(any + any); });
    attempt([&] { (void)((any - other) + (other - any)); });
    attempt([&] { (void)(OS::CTime(any) + OS::CTimeSpan(INT64_MIN)); });
    attempt([&] { (void)(OS::CTime(any) == other); });
    attempt([&] { OS::CTime(any).ToGMTime(); });
    attempt([&] { OS::CTime(any).ToLocalTime(); });
    attempt([&] { (void)any.IsLastDayOfMonth(); });
    attempt([&] {
        FILETIME count;
        any.GetTimeStruct(count);
    });
    (void)any.GetDBTimeString();
    (void)any.GetDayOfWeek();
    (void)any.GetTimeString(format.c_str());
    (void)any.GetLocaleDateTimeString();

    const OS::CTimeEx moment = OS::CTimeEx::FromLocalTime(static_cast<const std::tm &>(time));
    (void)moment.GetLocalTime(nullptr);
    return 0;
}
