#include <tool/values/Times.h>

#include <tool/process/Problem.h>

#include <array>
#include <charconv>
#include <cstdio>
#include <ctime>
#include <string_view>

namespace tool
{

namespace
{

constexpr std::int64_t kSecond = 1000;
constexpr std::int64_t kMinute = 60 * kSecond;
constexpr std::int64_t kHour = 60 * kMinute;
constexpr std::int64_t kDay = 24 * kHour;
/// The end of the year 9999, the last that ISO 8601 can name.
constexpr std::int64_t kCalendarEnd = 253402300800 * kSecond;
constexpr std::size_t kDigitsOfMillisecond = 3;

/// Parses a text from its front. After a missing number it finds nothing else.
class Scanner
{
public:
    explicit Scanner(std::string_view text) : m_left(text) {}

    /// A number of exactly that many digits.
    int number(std::size_t digits)
    {
        std::string_view const text = m_left.substr(0, digits);
        if (text.size() < digits || text.find_first_not_of("0123456789") != std::string_view::npos)
        {
            m_isGood = false;
            m_left = {};
            return 0;
        }
        int value = 0;
        std::from_chars(text.data(), text.data() + text.size(), value);
        m_left.remove_prefix(digits);
        return value;
    }

    /// Takes the next character if it is one of `characters`, and returns it; otherwise returns 0.
    char accept(std::string_view characters)
    {
        if (m_left.empty() || characters.find(m_left.front()) == std::string_view::npos)
        {
            return '\0';
        }
        char const found = m_left.front();
        m_left.remove_prefix(1);
        return found;
    }

    void expect(char character) { m_isGood = accept({&character, 1}) != '\0' && m_isGood; }

    std::string_view digits()
    {
        std::string_view const found = m_left.substr(0, m_left.find_first_not_of("0123456789"));
        m_isGood = m_isGood && !found.empty();
        m_left.remove_prefix(found.size());
        return found;
    }

    bool isAtEnd() const { return m_left.empty(); }
    bool isGood() const { return m_isGood; }

private:
    std::string_view m_left;
    bool m_isGood = true;
};

/// A parsed date and time of day; `length` is that of the smallest unit in the text.
struct ParsedTime
{
    std::tm calendar = {};
    std::int64_t milliseconds = 0;
    std::int64_t length = kDay;
    std::optional<std::int64_t> offset; ///< of its time zone, to be subtracted
    bool isGood = true;                 ///< the time zone is valid
};

void scanSeconds(Scanner& scanner, ParsedTime& time)
{
    time.calendar.tm_sec = scanner.number(2);
    time.length = kSecond;
    if (scanner.accept(".,") != '\0')
    {
        std::string digits(scanner.digits());
        digits.resize(kDigitsOfMillisecond, '0');
        std::from_chars(digits.data(), digits.data() + digits.size(), time.milliseconds);
        time.length = 1;
    }
}

void scanZone(Scanner& scanner, ParsedTime& time)
{
    char const sign = scanner.accept("Zz+-");
    if (sign == '\0')
    {
        return;
    }
    time.offset = 0;
    if (sign == '+' || sign == '-')
    {
        int const hours = scanner.number(2);
        bool const hasMinutes = scanner.accept(":") != '\0' || !scanner.isAtEnd();
        int const minutes = hasMinutes ? scanner.number(2) : 0;
        time.isGood = hours < 24 && minutes < 60;
        time.offset = (sign == '-' ? -1 : 1) * (hours * kHour + minutes * kMinute);
    }
}

void scanTimeOfDay(Scanner& scanner, ParsedTime& time)
{
    time.calendar.tm_hour = scanner.number(2);
    scanner.expect(':');
    time.calendar.tm_min = scanner.number(2);
    time.length = kMinute;
    if (scanner.accept(":") != '\0')
    {
        scanSeconds(scanner, time);
    }
    scanZone(scanner, time);
}

/// Whether the date and the time of day exist.
bool isInCalendar(std::tm const& written)
{
    std::tm normal = written;
    normal.tm_isdst = 0;
    static_cast<void>(timegm(&normal));
    return normal.tm_mday == written.tm_mday && normal.tm_mon == written.tm_mon && normal.tm_year == written.tm_year &&
           normal.tm_hour == written.tm_hour && normal.tm_min == written.tm_min && normal.tm_sec == written.tm_sec;
}

/// In milliseconds since 1970; fields out of range are carried over.
std::int64_t momentOf(std::tm calendar, bool isLocal)
{
    calendar.tm_isdst = -1;
    return (isLocal ? std::mktime(&calendar) : timegm(&calendar)) * kSecond;
}

} // namespace

std::optional<Period> parseTime(std::string const& text, TimeStyle const& style)
{
    Scanner scanner(text);
    ParsedTime time;
    time.calendar.tm_year = scanner.number(4) - 1900;
    scanner.expect('-');
    time.calendar.tm_mon = scanner.number(2) - 1;
    scanner.expect('-');
    time.calendar.tm_mday = scanner.number(2);
    if (scanner.accept("Tt ") != '\0')
    {
        scanTimeOfDay(scanner, time);
    }
    if (!scanner.isGood() || !scanner.isAtEnd() || !time.isGood || !isInCalendar(time.calendar))
    {
        return std::nullopt;
    }
    bool const isLocal = style.isLocal && !time.offset;
    std::int64_t const begin = momentOf(time.calendar, isLocal) + time.milliseconds - time.offset.value_or(0);
    if (time.length < kDay)
    {
        return Period{begin, begin + time.length};
    }
    // Not every local day has 24 hours.
    ++time.calendar.tm_mday;
    return Period{begin, momentOf(time.calendar, isLocal)};
}

Period requireTime(std::string const& text, TimeStyle const& style)
{
    std::optional<Period> const period = parseTime(text, style);
    if (!period)
    {
        throw Problem(STATUS_BAD_USAGE,
                      "'" + text + "' is not a time; write it as 2031-05-04, 2031-05-04T03:02 or 2031-05-04T03:02:01Z");
    }
    return *period;
}

std::string isoText(std::int64_t milliseconds, TimeStyle const& style)
{
    if (!style.isLocal)
    {
        return firaim::utcText(milliseconds);
    }
    // Rounded down, also before 1970.
    std::int64_t const fraction = (milliseconds % kSecond + kSecond) % kSecond;
    auto const seconds = static_cast<std::time_t>((milliseconds - fraction) / kSecond);
    std::tm calendar = {};
    if (milliseconds >= kCalendarEnd || localtime_r(&seconds, &calendar) == nullptr)
    {
        return std::to_string(milliseconds);
    }
    std::array<char, 40> piece;
    std::string text(piece.data(), std::strftime(piece.data(), piece.size(), "%Y-%m-%dT%H:%M:%S", &calendar));
    long const minutes = calendar.tm_gmtoff / 60;
    long const amount = minutes < 0 ? -minutes : minutes;
    std::snprintf(piece.data(), piece.size(), ".%03d%c%02ld:%02ld", static_cast<int>(fraction), minutes < 0 ? '-' : '+',
                  amount / 60, amount % 60);
    return text + piece.data();
}

std::string stampText(unsigned long long stamp, TimeStyle const& style)
{
    if (stamp == 0)
    {
        return "-";
    }
    std::optional<std::int64_t> const time = firaim::timeOf(stamp, style.unit);
    return time ? isoText(*time, style) : std::to_string(stamp);
}

} // namespace tool
