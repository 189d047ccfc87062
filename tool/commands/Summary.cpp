// firaim summary: an overview of a file on one page.

#include <tool/cli/Command.h>
#include <tool/commands/Commands.h>
#include <tool/formats/Json.h>
#include <tool/formats/Statistics.h>
#include <tool/store/FaultReading.h>
#include <tool/terminal/Progress.h>
#include <tool/terminal/SafeText.h>
#include <tool/terminal/TextTable.h>
#include <tool/values/Codes.h>
#include <tool/values/Text.h>
#include <tool/values/Timeline.h>

#include <algorithm>
#include <map>

#include <sys/stat.h>

namespace tool
{

namespace
{

constexpr std::size_t kMostFrequent = 5;
constexpr std::size_t kMostStartups = 10;
constexpr std::size_t kMostPeriods = 12;
constexpr std::size_t kBarWidth = 30;

struct Options
{
    std::string path;
    TimeStyle style;
    bool isJson = false;
};

/// The totals of one pass over all faults.
struct FaultTotals
{
    unsigned long long count = 0;
    unsigned long long active = 0;
    unsigned long long withoutTime = 0;
    Timeline timeline;
    std::map<unsigned int, unsigned long long> startups;
};

std::optional<unsigned long long> sizeOf(std::string const& path)
{
    struct stat status = {};
    return stat(path.c_str(), &status) == 0 ? std::optional(static_cast<unsigned long long>(status.st_size))
                                            : std::nullopt;
}

std::string sizeText(std::optional<unsigned long long> bytes)
{
    constexpr unsigned long long kKiB = 1024;
    if (!bytes)
    {
        return "cannot be read";
    }
    return *bytes < 10 * kKiB * kKiB ? grouped((*bytes + kKiB - 1) / kKiB) + " KiB"
                                     : grouped(*bytes / (kKiB * kKiB)) + " MiB";
}

FaultTotals scan(FaultFile& file, TimeStyle const& style, Progress& progress)
{
    FaultTotals faults;
    firaim::FaultQuery query;
    query.order = firaim::FaultQuery::OLDEST_FIRST;
    FaultReading reading(file, query);
    Fault fault;
    while (reading.next(fault))
    {
        ++faults.count;
        faults.active += fault.Status == FAULT_ACTIVE ? 1 : 0;
        ++faults.startups[fault.RdbStartupId];
        std::optional<std::int64_t> const time = firaim::timeOf(fault.TimeStampUTC, style.unit);
        time ? faults.timeline.add(*time) : static_cast<void>(++faults.withoutTime);
        if (progress.isVisible())
        {
            progress.show(reading.progress());
        }
    }
    return faults;
}

std::vector<StatisticRow> activeStatistics(std::vector<StatisticRow> const& statistics)
{
    std::vector<StatisticRow> active;
    std::copy_if(statistics.begin(), statistics.end(), std::back_inserter(active),
                 [](StatisticRow const& row) { return row.statistic.FaultActive == FAULT_ACTIVE; });
    std::stable_sort(active.begin(), active.end(),
                     [](StatisticRow const& a, StatisticRow const& b)
                     { return a.statistic.TimeLastOccurredUTC > b.statistic.TimeLastOccurredUTC; });
    return active;
}

std::vector<StatisticRow> mostFrequent(std::vector<StatisticRow> statistics)
{
    std::stable_sort(statistics.begin(), statistics.end(),
                     [](StatisticRow const& a, StatisticRow const& b)
                     { return a.statistic.OccurenceCnt > b.statistic.OccurenceCnt; });
    statistics.resize(std::min(statistics.size(), kMostFrequent));
    return statistics;
}

/// The start-ups with the highest ids, which are the latest; the highest first.
std::vector<std::pair<unsigned int, unsigned long long>> latestStartups(FaultTotals const& faults)
{
    std::vector<std::pair<unsigned int, unsigned long long>> latest;
    for (auto startup = faults.startups.rbegin(); startup != faults.startups.rend() && latest.size() < kMostStartups;
         ++startup)
    {
        latest.emplace_back(*startup);
    }
    return latest;
}

/// A list of names, counts and bars below a heading.
class CountList
{
public:
    CountList(Output& output, std::string const& heading) : m_output(output), m_heading(heading) {}

    void add(std::string const& name, unsigned long long count)
    {
        m_entries.emplace_back(name, count);
        m_most = std::max(m_most, count);
    }

    void print() const
    {
        m_output.writeLine("");
        TextTable table(m_output, {{m_heading, false, true}, {"COUNT", true}, {"", false, true}});
        std::size_t const barWidth = std::min(kBarWidth, static_cast<std::size_t>(m_output.terminal().width) / 3);
        for (auto const& [name, count] : m_entries)
        {
            table.add({name, grouped(count), barText(count, m_most, barWidth, m_output.terminal())});
        }
        table.end();
    }

private:
    Output& m_output;
    std::string const m_heading;
    std::vector<std::pair<std::string, unsigned long long>> m_entries;
    unsigned long long m_most = 0;
};

void printActive(std::vector<StatisticRow> const& active, TimeStyle const& style, Output& output)
{
    output.writeLine("");
    if (active.empty())
    {
        output.writeLine("No fault is active.");
        return;
    }
    TextTable table(output, {{"ACTIVE NOW", false, true}, {"COUNT", true}, {"LAST"}, {"ENTRY", true}});
    for (StatisticRow const& row : active)
    {
        FaultStatistic const& statistic = row.statistic;
        table.add({{codeText(statistic.FaultCode, statistic.FaultCodeName), Style::ALARM},
                   grouped(statistic.OccurenceCnt),
                   stampText(statistic.TimeLastOccurredUTC, style),
                   std::to_string(statistic.FaultEntryId)});
    }
    table.end();
}

void printFaults(FaultTotals const& faults, TimeStyle const& style, Output& output)
{
    if (faults.count == 0)
    {
        return;
    }
    CountList startups(output, "FAULTS PER START-UP");
    for (auto const& [startup, count] : latestStartups(faults))
    {
        startups.add(std::to_string(startup), count);
    }
    startups.print();
    if (faults.startups.size() > kMostStartups)
    {
        output.writeLine("and " + counted(faults.startups.size() - kMostStartups, "earlier start-up"));
    }
    if (!faults.timeline.isEmpty())
    {
        std::vector<Timeline::Bin> const periods = faults.timeline.periods(kMostPeriods);
        CountList timeline(output, "FAULTS PER " + lengthText(periods.front()));
        for (Timeline::Bin const& period : periods)
        {
            timeline.add(periodText(period, style), period.count);
        }
        timeline.print();
    }
    if (faults.withoutTime > 0)
    {
        output.writeLine(counted(faults.withoutTime, "fault") + " without a time");
    }
}

/// Prints first the lines that need no pass over the faults, which takes time in a large file.
void print(FaultFile& file, Options const& options, Output& output)
{
    Terminal const& terminal = output.terminal();
    auto const line = [&](std::string const& name, std::string const& value)
    {
        constexpr std::size_t kNameWidth = 16;
        std::string const text = escape(value, terminal.isAsciiOnly());
        auto const room = static_cast<std::size_t>(terminal.width) - kNameWidth;
        output.writeLine(styled(name, Style::STRONG, terminal) + std::string(kNameWidth - name.size(), ' ') +
                         (terminal.isTerminal ? shortened(text, room, ellipsisFor(terminal)) : text));
    };
    line("File", file.path());
    line("Size", sizeText(sizeOf(file.path())));
    line("Format version", file.formatVersion().value_or("missing or not the only one"));
    output.flush();
    std::vector<StatisticRow> const statistics = readStatistics(file, options.style);
    std::vector<StatisticRow> const active = activeStatistics(statistics);
    FaultTotals faults;
    {
        Progress progress("reading");
        faults = scan(file, options.style, progress);
    }
    Timeline const& timeline = faults.timeline;
    line("Period", timeline.isEmpty()
                       ? "-"
                       : isoText(timeline.first(), options.style) + " to " + isoText(timeline.last(), options.style));
    line("Duration", timeline.isEmpty() ? "-" : durationText(timeline.last() - timeline.first()));
    line("Faults", grouped(faults.count) + ", " + grouped(faults.active) + " of them recorded as active, " +
                       counted(faults.startups.size(), "start-up"));
    line("Statistics", counted(statistics.size(), "code") + ", " + grouped(active.size()) + " active now");
    printActive(active, options.style, output);
    if (!statistics.empty())
    {
        CountList frequent(output, "MOST FREQUENT");
        for (StatisticRow const& row : mostFrequent(statistics))
        {
            frequent.add(codeText(row.statistic.FaultCode, row.statistic.FaultCodeName), row.statistic.OccurenceCnt);
        }
        frequent.print();
    }
    printFaults(faults, options.style, output);
}

Json jsonOf(std::vector<StatisticRow> const& statistics)
{
    Json list = Json::array();
    for (StatisticRow const& row : statistics)
    {
        list.push_back(row.json);
    }
    return list;
}

Json jsonSummary(FaultFile& file, Options const& options)
{
    std::vector<StatisticRow> const statistics = readStatistics(file, options.style);
    std::vector<StatisticRow> const active = activeStatistics(statistics);
    Progress progress("reading");
    FaultTotals const faults = scan(file, options.style, progress);
    bool const hasTimes = !faults.timeline.isEmpty();
    Json summary;
    summary["File"] = file.path();
    std::optional<unsigned long long> const size = sizeOf(file.path());
    summary["Bytes"] = size ? Json(*size) : Json(nullptr);
    summary["FormatVersion"] = file.formatVersion() ? Json(*file.formatVersion()) : Json(nullptr);
    summary["First"] = hasTimes ? Json(isoText(faults.timeline.first(), options.style)) : Json(nullptr);
    summary["Last"] = hasTimes ? Json(isoText(faults.timeline.last(), options.style)) : Json(nullptr);
    summary["Faults"] = faults.count;
    summary["FaultsRecordedAsActive"] = faults.active;
    summary["FaultsWithoutTime"] = faults.withoutTime;
    summary["Statistics"] = statistics.size();
    summary["Active"] = jsonOf(active);
    summary["MostFrequent"] = jsonOf(mostFrequent(statistics));
    summary["Startups"] = Json::array();
    for (auto const& [startup, count] : latestStartups(faults))
    {
        summary["Startups"].push_back({{"RdbStartupId", startup}, {"Faults", count}});
    }
    summary["Timeline"] = Json::array();
    for (Timeline::Bin const& period : faults.timeline.periods(kMostPeriods))
    {
        summary["Timeline"].push_back({{"Begin", isoText(period.begin, options.style)},
                                       {"End", isoText(period.end, options.style)},
                                       {"Faults", period.count}});
    }
    return summary;
}

int summarize(Options const& options, Output& output)
{
    FaultFile file(options.path, FaultFile::AroundDamage());
    if (options.isJson)
    {
        printJson(jsonSummary(file, options), output);
    }
    else
    {
        print(file, options, output);
    }
    return file.reportDamage();
}

} // namespace

void addSummary(CommandLine& line, Request& request)
{
    Command command = line.add("summary", "Summarize a file on one page", "  firaim summary faults.db");
    auto const options = std::make_shared<Options>();
    addFile(command, options->path);
    addTimeStyle(command, options->style);
    addJson(command, options->isJson);
    runWith(command, request, options, summarize);
}

} // namespace tool
