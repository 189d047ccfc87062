// firaim stats: the statistic of each fault code.

#include <tool/cli/Command.h>
#include <tool/commands/Commands.h>
#include <tool/formats/Json.h>
#include <tool/formats/Statistics.h>
#include <tool/formats/StatusCell.h>
#include <tool/store/FaultFile.h>
#include <tool/terminal/TextTable.h>
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

/// Whether the one statistic comes before the other: what a technician looks for first, first.
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

void print(std::vector<StatisticRow> const& rows, Options const& options, Output& output)
{
    unsigned short most = 0;
    for (StatisticRow const& row : rows)
    {
        most = std::max(most, row.statistic.OccurenceCnt);
    }
    std::vector<TextTable::Heading> headings = {{"FAULT", false, true},
                                                {"STATUS"},
                                                {"COUNT", true},
                                                {"CYCLES", true, false, 2},
                                                {"FIRST", false, false, 3},
                                                {"LAST", false, false, 5},
                                                {"ENTRY", true, false, 4},
                                                {"STARTUP", true, false, 1}};
    bool const hasBars = output.terminal().isDecorated;
    if (hasBars)
    {
        headings.push_back({"", false, true});
    }
    std::size_t const barWidth = std::min(kBarWidth, static_cast<std::size_t>(output.terminal().width) / 8);
    TextTable table(output, headings);
    for (StatisticRow const& row : rows)
    {
        FaultStatistic const& statistic = row.statistic;
        TextTable::Row cells = {codeText(statistic.FaultCode, statistic.FaultCodeName),
                                statusCell(statistic.FaultActive),
                                std::to_string(statistic.OccurenceCnt),
                                std::to_string(statistic.FaultActiveCycleCnt),
                                stampText(statistic.TimeFirstOccurredUTC, options.style),
                                stampText(statistic.TimeLastOccurredUTC, options.style),
                                std::to_string(statistic.FaultEntryId),
                                std::to_string(statistic.RdbStartupId)};
        if (hasBars)
        {
            cells.emplace_back(barText(statistic.OccurenceCnt, most, barWidth, output.terminal()));
        }
        table.add(std::move(cells));
    }
    table.end();
}

int stats(Options const& options, Output& output)
{
    FaultFile file(options.path);
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
    if (!options.isJson)
    {
        print(rows, options, output);
        return STATUS_DONE;
    }
    JsonArray array(output);
    for (StatisticRow const& row : rows)
    {
        array.add(row.json);
    }
    array.end();
    output.writeLine("");
    return STATUS_DONE;
}

} // namespace

void addStats(CommandLine& line, Request& request)
{
    Command command = line.add("stats", "Show the statistic of each fault code",
                               "  firaim stats faults.db --active\n"
                               "  firaim stats faults.db --sort last");
    auto const options = std::make_shared<Options>();
    addFile(command, options->path);
    command.flag("--active", options->isActiveOnly, "Only those of faults that are active now");
    command
        .text("--sort", options->order,
              "Order: count (largest first), last (latest first), first (earliest first), active, name, code", "BY")
        .allow({"count", "last", "first", "active", "name", "code"});
    command.flag("--reverse", options->isReversed, "The other way round");
    addTimeStyle(command, options->style);
    addJson(command, options->isJson);
    runWith(command, request, options, stats);
}

} // namespace tool
