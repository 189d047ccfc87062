#include "TableModel.h"

#include "TestSupport.h"

#include <sstream>

namespace
{

bool holdsQuote(std::string const& text)
{
    return text.find('\'') != std::string::npos;
}

/// The library cannot write back a stored quote, so it does not move a record with one.
bool isMovable(Fault const& f)
{
    return !holdsQuote(f.DateTimeString) && !holdsQuote(f.FaultCodeName) && !holdsQuote(f.ModuleName) &&
           !holdsQuote(f.Parameter) && !holdsQuote(f.TimeZone) && !holdsQuote(f.Description) &&
           !holdsQuote(f.DiagSignalsDumpFileName) && !holdsQuote(f.CfgBackupFile) &&
           !holdsQuote(f.SystemDateTimeString);
}

bool isMovable(FaultStatistic const& s)
{
    return !holdsQuote(s.FaultCodeName) && !holdsQuote(s.TimeZoneFirstOccurred) && !holdsQuote(s.TimeZoneLastOccurred);
}

std::string keyText(Fault const& fault)
{
    return "fault " + std::to_string(fault.EntryId);
}

std::string keyText(FaultStatistic const& statistic)
{
    return "statistic " + std::to_string(statistic.EntryId);
}

std::string keyText(FdbVersion const& version)
{
    return "version " + std::to_string(version.VersionEntryId);
}

template <class T>
std::string tableDifference(std::map<unsigned long long, T> const& expected, std::vector<T> const& found)
{
    auto row = found.begin();
    for (auto const& [key, record] : expected)
    {
        if (row == found.end())
        {
            return keyText(record) + " and later ones are missing";
        }
        if (members(*row) != members(record))
        {
            return "instead of " + keyText(record) + " as it should be there is " + keyText(*row);
        }
        ++row;
    }
    return row == found.end() ? "" : keyText(*row) + " is one too many";
}

} // namespace

std::string storedText(std::string const& text)
{
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i)
    {
        result += text[i];
        i += text[i] == '\'' ? 1 : 0;
    }
    return result;
}

// Changes the copy through pointers to members. NOLINTNEXTLINE(performance-unnecessary-value-param)
Fault storedRecord(Fault fault)
{
    for (auto const member :
         {&Fault::DateTimeString, &Fault::FaultCodeName, &Fault::ModuleName, &Fault::Parameter, &Fault::TimeZone,
          &Fault::Description, &Fault::DiagSignalsDumpFileName, &Fault::CfgBackupFile, &Fault::SystemDateTimeString})
    {
        fault.*member = storedText(fault.*member);
    }
    return fault;
}

// Changes the copy through pointers to members. NOLINTNEXTLINE(performance-unnecessary-value-param)
FaultStatistic storedRecord(FaultStatistic statistic)
{
    for (auto const member : {&FaultStatistic::FaultCodeName, &FaultStatistic::TimeZoneFirstOccurred,
                              &FaultStatistic::TimeZoneLastOccurred})
    {
        statistic.*member = storedText(statistic.*member);
    }
    return statistic;
}

FdbVersion storedRecord(FdbVersion version)
{
    version.Component = storedText(version.Component);
    version.Version = storedText(version.Version);
    return version;
}

unsigned long long TableModel::insert(Fault const& fault)
{
    Fault& row = faults[++lastFaultKey];
    row = storedRecord(fault);
    row.EntryId = lastFaultKey;
    return lastFaultKey;
}

unsigned long long TableModel::insert(FaultStatistic const& statistic)
{
    FaultStatistic& row = statistics[++lastStatisticKey];
    row = storedRecord(statistic);
    row.EntryId = lastStatisticKey;
    return lastStatisticKey;
}

unsigned long long TableModel::insert(FdbVersion const& version)
{
    FdbVersion& row = versions[++lastVersionKey];
    row = storedRecord(version);
    row.VersionEntryId = static_cast<unsigned short>(lastVersionKey);
    return lastVersionKey;
}

void TableModel::update(Fault const& fault)
{
    auto const row = faults.find(fault.EntryId);
    if (row != faults.end())
    {
        row->second = storedRecord(fault);
    }
}

void TableModel::update(FaultStatistic const& statistic)
{
    rewrite(storedRecord(statistic));
}

void TableModel::rewrite(FaultStatistic const& stored)
{
    for (auto& [key, row] : statistics)
    {
        if (row.FaultCode == stored.FaultCode)
        {
            row = stored;
            row.EntryId = key;
        }
    }
}

bool TableModel::move(unsigned int newId, unsigned int oldId, std::size_t steps)
{
    for (auto& [key, row] : faults)
    {
        if (row.RdbStartupId == oldId && isMovable(row))
        {
            if (steps-- == 0)
            {
                return false;
            }
            row.RdbStartupId = newId;
        }
    }
    auto const before = statistics;
    for (auto const& [key, row] : before)
    {
        if (row.RdbStartupId == oldId && isMovable(row))
        {
            if (steps-- == 0)
            {
                return false;
            }
            FaultStatistic moved = row;
            moved.RdbStartupId = newId;
            rewrite(moved);
        }
    }
    return true;
}

bool TableModel::apply(Operation const& operation)
{
    switch (operation.kind)
    {
    case Operation::INSERT_FAULT:
        insert(operation.fault);
        break;
    case Operation::UPDATE_FAULT:
        update(operation.fault);
        break;
    case Operation::INSERT_STATISTIC:
        insert(operation.statistic);
        break;
    case Operation::UPDATE_STATISTIC:
        update(operation.statistic);
        break;
    case Operation::MOVE:
        return move(operation.newId, operation.oldId);
    }
    return true;
}

Tables readTables(FaultDb& db)
{
    Tables tables;
    EXPECT_GE(db.getFaultTbl(tables.faults), 0);
    EXPECT_GE(db.getFaultStatisticTbl(tables.statistics), 0);
    EXPECT_GE(db.getVersionTbl("SELECT * FROM FdbVersionTbl", tables.versions), 0);
    return tables;
}

std::string difference(TableModel const& model, Tables const& found)
{
    std::string text = tableDifference(model.faults, found.faults);
    text = text.empty() ? tableDifference(model.statistics, found.statistics) : text;
    return text.empty() ? tableDifference(model.versions, found.versions) : text;
}
