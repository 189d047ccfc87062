#include <tool/values/Timeline.h>

#include <algorithm>
#include <array>
#include <ctime>
#include <iterator>
#include <limits>

namespace tool
{

namespace
{

constexpr std::size_t kMostBins = 4096;
constexpr std::size_t kUnlimited = std::numeric_limits<std::size_t>::max();
constexpr std::int64_t kSecond = 1000;
constexpr std::int64_t kMinute = 60 * kSecond;
constexpr std::int64_t kHour = 60 * kMinute;
constexpr std::int64_t kDay = 24 * kHour;

/// The length of a period, in milliseconds or in calendar months; the other one is 0.
struct Length
{
    std::int64_t milliseconds;
    int months;
};

constexpr std::array<Length, 22> kLengths = {
    {{kSecond, 0},  {2 * kSecond, 0}, {5 * kSecond, 0}, {10 * kSecond, 0}, {30 * kSecond, 0},
     {kMinute, 0},  {2 * kMinute, 0}, {5 * kMinute, 0}, {10 * kMinute, 0}, {30 * kMinute, 0},
     {kHour, 0},    {2 * kHour, 0},   {6 * kHour, 0},   {12 * kHour, 0},   {kDay, 0},
     {7 * kDay, 0}, {0, 1},           {0, 3},           {0, 12},           {0, 120},
     {0, 1200},     {0, 12000}}};
/// From the Monday before 1970-01-01 to that day: weeks begin on Mondays.
constexpr std::int64_t kMondayOffset = 3 * kDay;

/// Rounded down, also before 1970.
std::int64_t alignedDown(std::int64_t number, std::int64_t unit)
{
    return number - ((number % unit) + unit) % unit;
}

/// The beginning of the period `steps` after the one that `time` lies in.
std::int64_t periodBegin(std::int64_t time, Length const& length, std::int64_t steps)
{
    if (length.months == 0)
    {
        return alignedDown(time + kMondayOffset, length.milliseconds) - kMondayOffset + steps * length.milliseconds;
    }
    auto const seconds = static_cast<std::time_t>(alignedDown(time, kSecond) / kSecond);
    std::tm calendar = {};
    gmtime_r(&seconds, &calendar);
    std::int64_t const month =
        alignedDown(calendar.tm_year * std::int64_t(12) + calendar.tm_mon, length.months) + steps * length.months;
    std::tm begin = {};
    begin.tm_year = static_cast<int>(month / 12);
    begin.tm_mon = static_cast<int>(month % 12);
    begin.tm_mday = 1;
    return timegm(&begin) * kSecond;
}

/// The periods of that length from the one with `first` to the one with `last`; none if there are more than `most`.
std::vector<Timeline::Bin> divide(std::int64_t first, std::int64_t last, Length const& length, std::size_t most)
{
    std::vector<Timeline::Bin> periods;
    std::int64_t begin = periodBegin(first, length, 0);
    while (begin <= last)
    {
        if (periods.size() == most)
        {
            return {};
        }
        std::int64_t const end = periodBegin(begin, length, 1);
        periods.push_back({begin, end, 0});
        begin = end;
    }
    return periods;
}

} // namespace

void Timeline::add(std::int64_t milliseconds)
{
    m_first = m_bins.empty() ? milliseconds : std::min(m_first, milliseconds);
    m_last = m_bins.empty() ? milliseconds : std::max(m_last, milliseconds);
    ++m_bins[milliseconds >> m_shift];
    while (m_bins.size() > kMostBins)
    {
        ++m_shift;
        std::map<std::int64_t, unsigned long long> coarser;
        for (auto const& [bin, count] : m_bins)
        {
            coarser[bin >> 1] += count;
        }
        m_bins = std::move(coarser);
    }
}

std::vector<Timeline::Bin> Timeline::periods(std::size_t most) const
{
    std::vector<Bin> periods;
    for (Length const& length : kLengths)
    {
        if (periods.empty() && !m_bins.empty())
        {
            periods = divide(m_first, m_last, length, &length == &kLengths.back() ? kUnlimited : most);
        }
    }
    for (auto const& [bin, count] : m_bins)
    {
        std::int64_t const time = std::max(bin * (std::int64_t(1) << m_shift), m_first);
        auto const after =
            std::upper_bound(periods.begin(), periods.end(), time,
                             [](std::int64_t moment, Bin const& period) { return moment < period.begin; });
        std::prev(after)->count += count;
    }
    return periods;
}

std::string periodText(Timeline::Bin const& period, TimeStyle const& style)
{
    constexpr std::size_t kDate = 10;
    constexpr std::size_t kMinutes = 16;
    constexpr std::size_t kSeconds = 19;
    std::string const text = isoText(period.begin, style);
    std::int64_t const length = period.end - period.begin;
    return text.substr(0, length >= kDay && !style.isLocal ? kDate : length >= kMinute ? kMinutes : kSeconds);
}

std::string lengthText(Timeline::Bin const& period)
{
    constexpr std::int64_t kLongestMonth = 31 * kDay;
    std::int64_t const length = period.end - period.begin;
    if (length < kLongestMonth - 3 * kDay)
    {
        return durationText(length);
    }
    std::int64_t const months = (length + kLongestMonth - 1) / kLongestMonth;
    if (months < 12)
    {
        return months == 1 ? "month" : "3 months";
    }
    constexpr std::int64_t kYear = 365 * kDay;
    return length / kYear == 1 ? "year" : std::to_string(length / kYear / 10 * 10) + " years";
}

std::string durationText(std::int64_t milliseconds)
{
    struct Unit
    {
        std::int64_t length;
        char const* name;
    };
    constexpr std::array<Unit, 5> kUnits = {
        {{365 * kDay, " y"}, {kDay, " d"}, {kHour, " h"}, {kMinute, " min"}, {kSecond, " s"}}};
    for (std::size_t unit = 0; unit < kUnits.size(); ++unit)
    {
        std::int64_t const amount = milliseconds / kUnits[unit].length;
        if (amount == 0)
        {
            continue;
        }
        std::string text = std::to_string(amount) + kUnits[unit].name;
        std::int64_t const rest =
            unit + 1 < kUnits.size() ? milliseconds % kUnits[unit].length / kUnits[unit + 1].length : 0;
        return rest == 0 ? text : text + " " + std::to_string(rest) + kUnits[unit + 1].name;
    }
    return "less than 1 s";
}

} // namespace tool
