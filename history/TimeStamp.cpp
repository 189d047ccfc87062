#include <history/TimeStamp.h>

#include <chrono>
#include <limits>

namespace firaim
{

namespace
{

constexpr std::int64_t kSecond = 1000;
constexpr std::int64_t kDay = 24 * 60 * 60 * kSecond;
constexpr unsigned long long kMicrosecondsPerMillisecond = 1000;
constexpr unsigned long long kNanosecondsPerMillisecond = 1000000;
/// ISO 8601 can express the years 0 to 9999.
constexpr std::int64_t kCalendarBegin = -62167219200 * kSecond;
constexpr std::int64_t kCalendarEnd = 253402300800 * kSecond;
/// SQLite's integers are signed.
constexpr unsigned long long kMaxStamp = std::numeric_limits<std::int64_t>::max();

TimeUnit guessUnit(unsigned long long stamp)
{
    // As seconds, these are the years up to 5138; in each smaller unit, the years from 1973 to 5138.
    if (stamp < 100'000'000'000)
    {
        return TimeUnit::SECONDS;
    }
    if (stamp < 100'000'000'000'000)
    {
        return TimeUnit::MILLISECONDS;
    }
    return stamp < 100'000'000'000'000'000 ? TimeUnit::MICROSECONDS : TimeUnit::NANOSECONDS;
}

struct Date
{
    int year;
    int month;
    int day;
};

/// The date of a day counted from 1970-01-01. Years begin in March, so that the leap day is the last day of a year.
Date dateOf(std::int64_t dayNumber)
{
    constexpr std::int64_t kDaysTo1970 = 719468; // from 0000-03-01
    constexpr std::int64_t kDaysOfEra = 146097;  // 400 years
    std::int64_t const days = dayNumber + kDaysTo1970;
    std::int64_t const era = (days >= 0 ? days : days - (kDaysOfEra - 1)) / kDaysOfEra;
    std::int64_t const dayOfEra = days - era * kDaysOfEra;
    std::int64_t const yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
    std::int64_t const dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    std::int64_t const monthFromMarch = (5 * dayOfYear + 2) / 153;
    std::int64_t const month = monthFromMarch < 10 ? monthFromMarch + 3 : monthFromMarch - 9;
    return {static_cast<int>(yearOfEra + era * 400 + (month <= 2 ? 1 : 0)), static_cast<int>(month),
            static_cast<int>(dayOfYear - (153 * monthFromMarch + 2) / 5 + 1)};
}

void writeDigits(char* end, int count, int number)
{
    for (; count > 0; --count)
    {
        *--end = static_cast<char>('0' + number % 10);
        number /= 10;
    }
}

} // namespace

std::int64_t currentTime()
{
    using namespace std::chrono;
    return duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
}

std::optional<std::int64_t> timeOf(unsigned long long stamp, TimeUnit unit)
{
    unsigned long long milliseconds = stamp;
    switch (unit == TimeUnit::GUESSED ? guessUnit(stamp) : unit)
    {
    case TimeUnit::SECONDS:
        if (stamp >= static_cast<unsigned long long>(kCalendarEnd))
        {
            return std::nullopt;
        }
        milliseconds = stamp * kSecond;
        break;
    case TimeUnit::MICROSECONDS:
        milliseconds = stamp / kMicrosecondsPerMillisecond;
        break;
    case TimeUnit::NANOSECONDS:
        milliseconds = stamp / kNanosecondsPerMillisecond;
        break;
    default:
        break;
    }
    if (stamp == 0 || milliseconds >= static_cast<unsigned long long>(kCalendarEnd))
    {
        return std::nullopt;
    }
    return static_cast<std::int64_t>(milliseconds);
}

TimeUnit unitOf(unsigned long long stamp)
{
    // A clock that was never set counts from 1970, whatever its unit.
    constexpr unsigned long long kYear2001 = 1'000'000'000;
    return stamp < kYear2001 ? TimeUnit::GUESSED : guessUnit(stamp);
}

std::optional<unsigned long long> stampOf(std::int64_t milliseconds, TimeUnit unit)
{
    if (milliseconds <= 0)
    {
        return std::nullopt;
    }
    auto const amount = static_cast<unsigned long long>(milliseconds);
    unsigned long long factor = 1;
    switch (unit)
    {
    case TimeUnit::SECONDS:
        return amount < kSecond ? std::nullopt : std::optional(amount / kSecond);
    case TimeUnit::MICROSECONDS:
        factor = kMicrosecondsPerMillisecond;
        break;
    case TimeUnit::NANOSECONDS:
        factor = kNanosecondsPerMillisecond;
        break;
    default:
        break;
    }
    return amount > kMaxStamp / factor ? std::nullopt : std::optional(amount * factor);
}

std::string utcText(std::int64_t milliseconds)
{
    if (milliseconds < kCalendarBegin || milliseconds >= kCalendarEnd)
    {
        return std::to_string(milliseconds);
    }
    // Round down, also before 1970.
    std::int64_t const timeOfDay = (milliseconds % kDay + kDay) % kDay;
    Date const date = dateOf((milliseconds - timeOfDay) / kDay);
    auto const millisecond = static_cast<int>(timeOfDay % kSecond);
    auto const second = static_cast<int>(timeOfDay / kSecond);
    std::string text = "0000-00-00T00:00:00.000Z";
    char* const begin = text.data();
    writeDigits(begin + 4, 4, date.year);
    writeDigits(begin + 7, 2, date.month);
    writeDigits(begin + 10, 2, date.day);
    writeDigits(begin + 13, 2, second / 3600);
    writeDigits(begin + 16, 2, second / 60 % 60);
    writeDigits(begin + 19, 2, second % 60);
    writeDigits(begin + 23, 3, millisecond);
    return text;
}

} // namespace firaim
