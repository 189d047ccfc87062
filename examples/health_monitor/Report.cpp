#include "Report.h"

#include "FaultRecorder.h"
#include "UtcTime.h"

#include <algorithm>
#include <cstddef>
#include <sstream>
#include <string>
#include <vector>

namespace healthMonitor
{

namespace
{

struct Column
{
    std::string title;
    bool isNumber;
};

using Row = std::vector<std::string>;

/// A path may hold a line end or an escape sequence, which would upset the columns or the terminal.
std::string printable(std::string text)
{
    std::replace_if(
        text.begin(), text.end(), [](unsigned char c) { return c < 0x20 || c == 0x7f; }, '?');
    return text;
}

/// The number of characters of a text in UTF-8.
std::size_t widthOf(std::string const& text)
{
    return static_cast<std::size_t>(
        std::count_if(text.begin(), text.end(), [](unsigned char c) { return (c & 0xc0U) != 0x80U; }));
}

void printRow(std::ostream& out, std::vector<Column> const& columns, std::vector<std::size_t> const& widths,
              Row const& row)
{
    std::string line;
    for (std::size_t i = 0; i < columns.size(); ++i)
    {
        std::string const padding(widths[i] - widthOf(row[i]), ' ');
        line += i == 0 ? "  " : "   ";
        line += columns[i].isNumber ? padding + row[i] : row[i] + padding;
    }
    line.erase(line.find_last_not_of(' ') + 1);
    out << line << '\n';
}

void printTable(std::ostream& out, std::vector<Column> const& columns, std::vector<Row> const& rows)
{
    if (rows.empty())
    {
        out << "  none\n";
        return;
    }
    Row titles;
    std::vector<std::size_t> widths;
    for (std::size_t i = 0; i < columns.size(); ++i)
    {
        titles.push_back(columns[i].title);
        widths.push_back(widthOf(columns[i].title));
        for (Row const& row : rows)
        {
            widths[i] = std::max(widths[i], widthOf(row[i]));
        }
    }
    printRow(out, columns, widths, titles);
    for (Row const& row : rows)
    {
        printRow(out, columns, widths, row);
    }
}

std::string hexCode(faultCode_t code)
{
    std::ostringstream text;
    text << "0x" << std::hex;
    text.width(4);
    text.fill('0');
    text << static_cast<unsigned int>(code);
    return text.str();
}

char const* statusText(faultStatus_t status)
{
    return status == FAULT_ACTIVE ? "active" : "inactive";
}

void printFaults(std::ostream& out, FaultTbl const& faults)
{
    std::vector<Row> rows;
    for (Fault const& fault : faults)
    {
        rows.push_back({std::to_string(fault.EntryId), std::to_string(fault.RdbStartupId),
                        printable(fault.DateTimeString), std::to_string(fault.LoggerUpTime), hexCode(fault.FaultCode),
                        printable(fault.FaultCodeName), statusText(fault.Status), printable(fault.Parameter),
                        printable(fault.Description)});
    }
    out << "Faults\n";
    printTable(out,
               {{"Id", true},
                {"Startup", true},
                {"Time (UTC)", false},
                {"Up-time s", true},
                {"Code", false},
                {"Name", false},
                {"Status", false},
                {"Parameter", false},
                {"Description", false}},
               rows);
}

void printStatistics(std::ostream& out, FaultStatisticTbl const& statistics)
{
    std::vector<Row> rows;
    for (FaultStatistic const& statistic : statistics)
    {
        rows.push_back({hexCode(statistic.FaultCode), printable(statistic.FaultCodeName),
                        statusText(statistic.FaultActive), std::to_string(statistic.OccurenceCnt),
                        std::to_string(statistic.FaultActiveCycleCnt), utcText(statistic.TimeFirstOccurredUTC),
                        utcText(statistic.TimeLastOccurredUTC), std::to_string(statistic.FaultEntryId),
                        std::to_string(statistic.RdbStartupId)});
    }
    out << "Statistics\n";
    printTable(out,
               {{"Code", false},
                {"Name", false},
                {"Status", false},
                {"Count", true},
                {"Cycles", true},
                {"First (UTC)", false},
                {"Last (UTC)", false},
                {"Last id", true},
                {"Startup", true}},
               rows);
}

} // namespace

void printEvent(std::ostream& out, Fault const& fault)
{
    out << fault.DateTimeString << ' ' << fault.FaultCodeName << ' ' << statusText(fault.Status) << ": ";
    if (!fault.Parameter.empty())
    {
        out << printable(fault.Parameter) << ": ";
    }
    out << printable(fault.Description) << std::endl;
}

void printReport(std::ostream& out, FaultDb& db)
{
    FaultTbl faults;
    FaultStatisticTbl statistics;
    unsigned short codes = 0;
    unsigned short active = 0;
    auto const require = [](int result, char const* action)
    {
        if (result < 0)
        {
            throw DatabaseError(action, result);
        }
    };
    require(db.getFaultTbl(faults), "read the faults");
    require(db.getFaultStatisticTbl(statistics), "read the statistics");
    require(db.getFaultStatisticTblErrorNr(codes), "count the statistics");
    require(db.getFaultStatisticTblErrorActiveNr(active), "count the active faults");

    out << '\n';
    printFaults(out, faults);
    out << '\n';
    printStatistics(out, statistics);
    out << "\nFault codes recorded: " << codes << ", active now: " << active << std::endl;
}

} // namespace healthMonitor
