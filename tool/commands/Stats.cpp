// firaim stats: the statistic of each fault code.

#include <tool/cli/Command.h>
#include <tool/commands/Commands.h>
#include <tool/formats/Listing.h>
#include <tool/formats/Statistics.h>
#include <tool/formats/StatusCell.h>
#include <tool/store/FaultFile.h>
#include <tool/values/Codes.h>

#include <algorithm>

namespace tool
{

namespace
{

constexpr std::size_t kBarWidth = 20;

struct Options
{
    std::string path;
    TimeStyle style;
    std::string order = "count";
    bool isReversed = false;
    bool isActiveOnly = false;
    bool isJson = false;
};

/// Whether `a` comes before `b`: the most, the active and the latest ones first.
bool comesBefore(FaultStatistic const& a, FaultStatistic const& b, std::string const& order)
{
    if (order == "count" && a.OccurenceCnt != b.OccurenceCnt)
    {
        return a.OccurenceCnt > b.OccurenceCnt;
    }
    if (order == "active" && a.FaultActive != b.FaultActive)
    {
        return a.FaultActive == FAULT_ACTIVE;
    }
    if (order == "first" && a.TimeFirstOccurredUTC != b.TimeFirstOccurredUTC)
    {
        return a.TimeFirstOccurredUTC < b.TimeFirstOccurredUTC;
    }
    if (order == "last" && a.TimeLastOccurredUTC != b.TimeLastOccurredUTC)
    {
        return a.TimeLastOccurredUTC > b.TimeLastOccurredUTC;
    }
    if (order == "name" && a.FaultCodeName != b.FaultCodeName)
    {
        return a.FaultCodeName < b.FaultCodeName;
    }
    return a.FaultCode < b.FaultCode;
}

std::vector<TextTable::Heading> headings(bool hasBars)
{
    std::vector<TextTable::Heading> headings = {{"FAULT", false, true},
                                                {"STATUS"},
                                                {"COUNT", true},
                                                {"CYCLES", true, false, 2},
                                                {"FIRST", false, false, 3},
                                                {"LAST", false, false, 5},
                                                {"ENTRY", true, false, 4},
                                                {"STARTUP", true, false, 1}};
    if (hasBars)
    {
        headings.push_back({"", false, true});
    }
    return headings;
}

TextTable::Row cellsOf(FaultStatistic const& statistic, TimeStyle const& style)
{
    return {codeText(statistic.FaultCode, statistic.FaultCodeName),
            statusCell(statistic.FaultActive),
            std::to_string(statistic.OccurenceCnt),
            std::to_string(statistic.FaultActiveCycleCnt),
            stampText(statistic.TimeFirstOccurredUTC, style),
            stampText(statistic.TimeLastOccurredUTC, style),
            std::to_string(statistic.FaultEntryId),
            std::to_string(statistic.RdbStartupId)};
}

void print(std::vector<StatisticRow> const& rows, Options const& options, Output& output)
{
    unsigned short most = 0;
    for (StatisticRow const& row : rows)
    {
        most = std::max(most, row.statistic.OccurenceCnt);
    }
    Terminal const& terminal = output.terminal();
    bool const hasBars = terminal.isDecorated;
    std::size_t const barWidth = std::min(kBarWidth, static_cast<std::size_t>(terminal.width) / 8);
    Listing listing(output, options.isJson, headings(hasBars));
    for (StatisticRow const& row : rows)
    {
        auto const makeCells = [&]
        {
            TextTable::Row cells = cellsOf(row.statistic, options.style);
            if (hasBars)
            {
                cells.emplace_back(barText(row.statistic.OccurenceCnt, most, barWidth, terminal));
            }
            return cells;
        };
        listing.add(makeCells, [&] { return row.json; });
    }
    listing.end();
}

int stats(Options const& options, Output& output)
{
    FaultFile file(options.path, FaultFile::AroundDamage());
    std::vector<StatisticRow> rows = readStatistics(file, options.style);
    if (options.isActiveOnly)
    {
        rows.erase(std::remove_if(rows.begin(), rows.end(),
                                  [](StatisticRow const& row) { return row.statistic.FaultActive != FAULT_ACTIVE; }),
                   rows.end());
    }
    std::stable_sort(rows.begin(), rows.end(),
                     [&](StatisticRow const& a, StatisticRow const& b)
                     { return comesBefore(a.statistic, b.statistic, options.order); });
    if (options.isReversed)
    {
        std::reverse(rows.begin(), rows.end());
    }
    print(rows, options, output);
    return file.reportDamage();
}

} // namespace

void addStats(CommandLine& line, Request& request)
{
    Command command = line.add("stats", "Show the statistic of each fault code",
                               "  firaim stats faults.db --active\n"
                               "  firaim stats faults.db --sort last");
    auto const options = std::make_shared<Options>();
    addFile(command, options->path);
    command.flag("--active", options->isActiveOnly, "Only statistics that are active now");
    command
        .text("--sort", options->order,
              "Order: count (largest first), last (latest first), first (earliest first), active, name, code", "BY")
        .allow({"count", "last", "first", "active", "name", "code"});
    command.flag("--reverse", options->isReversed, "Reverse the order");
    addTimeStyle(command, options->style);
    addJson(command, options->isJson);
    runWith(command, request, options, stats);
}

} // namespace tool
