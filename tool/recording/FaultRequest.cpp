#include <tool/recording/FaultRequest.h>

#include <tool/terminal/Output.h>

#include <stdexcept>
#include <vector>

namespace tool
{

namespace
{

constexpr std::int64_t kSecond = 1000;

/// The stamp of a time in `unit`. Throws std::invalid_argument if `reader` would read the stamp as another time.
unsigned long long requireStamp(std::int64_t milliseconds, TimeUnit unit, TimeStyle const& reader)
{
    std::optional<unsigned long long> const stamp = firaim::stampOf(milliseconds, unit);
    std::optional<std::int64_t> const read = stamp ? firaim::timeOf(*stamp, reader.unit) : std::nullopt;
    if (!read || *read / kSecond != milliseconds / kSecond)
    {
        throw std::invalid_argument(
            "this time cannot be stored: in the unit of the file it would be read as another time "
            "or as none; choose the unit with --time-unit");
    }
    return *stamp;
}

} // namespace

firaim::FaultEvent FaultCompleter::complete(FaultRequest request)
{
    firaim::FaultEvent& event = request.event;
    if (!event.time && request.time)
    {
        event.time = requireStamp(*request.time, unit(), m_style);
    }
    else if (!event.time && m_unit)
    {
        event.time = firaim::stampOf(firaim::currentTime(), *m_unit);
    }
    if (event.time && *event.time != 0 && !event.dateTimeText)
    {
        event.dateTimeText = stampText(*event.time, {m_style.unit, false});
    }
    if (event.time && m_style.unit == TimeUnit::GUESSED)
    {
        m_unit = firaim::unitOf(*event.time);
    }
    event.upTime = event.upTime.value_or(0);
    return std::move(event);
}

TimeUnit FaultCompleter::unit()
{
    if (m_style.unit != TimeUnit::GUESSED)
    {
        return m_style.unit;
    }
    if (!m_unit)
    {
        Fault newest;
        bool const isAny = file().isFound(file().reader().faults().next(newest));
        m_unit = isAny ? firaim::unitOf(newest.TimeStampUTC) : TimeUnit::GUESSED;
    }
    return *m_unit;
}

void FaultCompleter::warnOfSeveralStatistics(std::uint64_t code)
{
    if (!m_codesToWarnOf)
    {
        std::vector<FaultStatistic> statistics;
        static_cast<void>(file().isFound(file().reader().statistics(statistics)));
        std::set<unsigned int> codes;
        m_codesToWarnOf.emplace();
        for (FaultStatistic const& statistic : statistics)
        {
            if (!codes.insert(statistic.FaultCode).second)
            {
                m_codesToWarnOf->insert(statistic.FaultCode);
            }
        }
    }
    if (m_codesToWarnOf->erase(static_cast<unsigned int>(code)) > 0)
    {
        printMessage(m_path + ": several statistics have the code " + std::to_string(code) +
                     "; only the first is updated");
    }
}

FaultFile& FaultCompleter::file()
{
    return m_file ? *m_file : m_file.emplace(m_path, m_busyTimeout);
}

firaim::RecorderOptions recorderOptions(TimeStyle const& style)
{
    firaim::RecorderOptions options;
    options.startup = firaim::RecorderOptions::SAME_STARTUP;
    options.timeUnit = style.unit;
    return options;
}

} // namespace tool
