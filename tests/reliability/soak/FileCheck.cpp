#include "FileCheck.h"
#include "Violation.h"

#include <history/HistoryResult.h>

#include <algorithm>
#include <set>

namespace soak
{

namespace
{

using namespace firaim;

constexpr std::uint64_t kLargestCount = 65535;
/// The counts of a storm whose commit has an unknown outcome are stored again.
constexpr std::uint64_t kPossibleRepeats = 2;

using Triple = std::tuple<std::uint64_t, std::string, std::string>;

Triple tripleOf(StoredRow const& row)
{
    return {row.code, row.module, row.parameter};
}

bool isUnknown(int result)
{
    return result == HISTORY_UNKNOWN || result == HISTORY_QUEUED;
}

} // namespace

FileCheck::FileCheck(std::uint64_t seed, std::string const& path, Generation const& generation, Ledger& ledger)
    : m_seed(seed), m_generation(generation), m_ledger(ledger), m_database(path)
{
}

void FileCheck::run()
{
    std::string const found = m_database.value("PRAGMA integrity_check");
    if (found != "ok")
    {
        throw Violation("integrity_check of file " + std::to_string(m_generation.number) + ": " + found);
    }
    if (m_database.value("SELECT count(*) FROM sqlite_master WHERE name = 'FdbFaultTbl'") == "1")
    {
        readRows();
    }
    expectRowsAreRecorded();
    expectEventsAreStored();
    if (!m_rows.empty())
    {
        expectEdgesOnly();
        expectStatistics();
        expectStorms();
    }
}

void FileCheck::readRows()
{
    m_database.forEach("SELECT EntryId, FaultCode, ModuleName, Parameter, Status, Description, "
                       "DiagSignalsDumpFileName, CfgBackupFile, LoggerLifeTime, RdbStartupId, TimeZone "
                       "FROM FdbFaultTbl",
                       [this](Database::Row const& cells)
                       {
                           StoredRow row;
                           row.key = cells.number(0);
                           row.code = cells.number(1);
                           row.module = cells.text(2);
                           row.parameter = cells.text(3);
                           row.isActive = cells.text(4) == "ErrorActive";
                           row.description = cells.text(5);
                           row.signalsFile = cells.text(6);
                           row.configBackup = cells.text(7);
                           row.lifeTime = cells.number(8);
                           row.startup = cells.number(9);
                           row.timeZone = cells.text(10);
                           m_rows[row.key] = row;
                       });
    m_database.forEach("SELECT seq FROM sqlite_sequence WHERE name = 'FdbFaultTbl'",
                       [this](Database::Row const& row) { m_newestKey = row.number(0); });
}

void FileCheck::expectRowsAreRecorded()
{
    for (auto const& [key, row] : m_rows)
    {
        std::string const defect = defectOf(m_seed, row);
        if (!defect.empty())
        {
            throw Violation(textOf(row) + ' ' + defect);
        }
        if (!isStormRow(row))
        {
            expectRowIsRecorded(row);
        }
    }
}

void FileCheck::expectRowIsRecorded(StoredRow const& row)
{
    auto const found = m_ledger.entries().find(*identityOf(row.signalsFile));
    if (found == m_ledger.entries().end())
    {
        throw Violation(textOf(row) + " is of a call that was not made, or in an earlier file");
    }
    Entry& entry = found->second;
    bool const isKeyGiven = std::find(entry.keys.begin(), entry.keys.end(), row.key) != entry.keys.end();
    if (entry.result == HISTORY_OK ? !isKeyGiven : !isUnknown(entry.result))
    {
        throw Violation(textOf(row) + " is stored, but the call returned " + historyResultName(entry.result) +
                        (entry.keys.empty() ? "" : " with key " + std::to_string(entry.keys.front())));
    }
    if (!mayHold(entry))
    {
        throw Violation(textOf(row) + " is in file " + std::to_string(m_generation.number) +
                        ", which was not in place during the call");
    }
    for (auto const& [key, generation] : entry.found)
    {
        bool const isSame = key == row.key && generation == m_generation.number;
        bool const isOfGroup = entry.kind == Step::CLEAR_CODE && generation == m_generation.number;
        if (!isSame && !isOfGroup)
        {
            throw Violation(textOf(row) + " is also stored as row " + std::to_string(key) + " of file " +
                            std::to_string(generation));
        }
    }
    entry.found[row.key] = m_generation.number;
}

void FileCheck::expectEventsAreStored()
{
    for (auto const& [identity, entry] : m_ledger.entries())
    {
        if (mustHold(entry))
        {
            expectEventIsStored(identity, entry);
        }
        if (entry.kind == Step::RAISE && entry.result == HISTORY_UNCHANGED && entry.range.isSingle() && mayHold(entry))
        {
            expectRaised(identity, entry);
        }
    }
}

void FileCheck::expectEventIsStored(Identity const& identity, Entry const& entry) const
{
    if (entry.result == HISTORY_QUEUED && entry.found.empty() && !mayBeRemoved(1))
    {
        throw Violation("the posted event " + textOf(identity) + " was flushed and is lost");
    }
    for (unsigned long long const key : entry.keys)
    {
        auto const row = m_rows.find(key);
        bool const isThere = row != m_rows.end() && row->second.signalsFile == textOf(identity);
        if (!isThere && !(row == m_rows.end() && mayBeRemoved(key)))
        {
            throw Violation("event " + textOf(identity) + ", acknowledged with key " + std::to_string(key) +
                            ", is lost; under that key is " + (row == m_rows.end() ? "nothing" : textOf(row->second)));
        }
    }
}

/// Expects the row that made a triple active under the key that a further `raise` has returned.
void FileCheck::expectRaised(Identity const& identity, Entry const& entry) const
{
    unsigned long long const key = entry.keys.front();
    auto const row = m_rows.find(key);
    if (row == m_rows.end() && mayBeRemoved(key))
    {
        return;
    }
    if (row == m_rows.end() || !row->second.isActive || row->second.code != entry.event.code ||
        row->second.parameter != entry.event.parameter)
    {
        throw Violation("event " + textOf(identity) + " was UNCHANGED because of row " + std::to_string(key) +
                        ", which is not an active row of its triple");
    }
}

void FileCheck::expectEdgesOnly() const
{
    std::map<Triple, bool> last;
    for (auto const& [key, row] : m_rows)
    {
        if (!isEdgeCode(row.code))
        {
            continue;
        }
        auto const before = last.find(tripleOf(row));
        if (before != last.end() && before->second == row.isActive)
        {
            throw Violation(textOf(row) + " was raised or cleared twice");
        }
        last[tripleOf(row)] = row.isActive;
    }
}

void FileCheck::expectStatistics()
{
    auto const model = occurrences();
    std::set<std::uint64_t> codes;
    m_database.forEach("SELECT FaultCode, OccurenceCnt, FaultActive, FaultActiveCycleCnt, FaultEntryId "
                       "FROM FdbFaultStatisticTbl",
                       [&](Database::Row const& row)
                       {
                           if (!codes.insert(row.number(0)).second)
                           {
                               throw Violation("code " + row.text(0) + " has two statistics");
                           }
                           expectStatistic(row, model);
                       });
    for (auto const& [key, row] : m_rows)
    {
        if (codes.count(row.code) == 0)
        {
            throw Violation(textOf(row) + " has no statistic");
        }
    }
}

void FileCheck::expectStatistic(Database::Row const& row, std::map<std::uint64_t, Occurrences> const& model) const
{
    std::uint64_t const code = row.number(0);
    std::uint64_t const count = row.number(1);
    std::uint64_t const cycles = row.number(3);
    auto const found = model.find(code);
    Occurrences const expected = found != model.end() ? found->second : Occurrences();
    std::string const text =
        "the statistic of code " + std::to_string(code) + " in file " + std::to_string(m_generation.number);
    if (count < std::min(expected.sure, kLargestCount) || count > expected.possible)
    {
        throw Violation(text + " has " + std::to_string(count) + " occurrences; acknowledged were " +
                        std::to_string(expected.sure) + ", tried " + std::to_string(expected.possible));
    }
    if (cycles < std::min(expected.sure, kLargestCount) || cycles > expected.possible + m_ledger.cycles())
    {
        throw Violation(text + " has " + std::to_string(cycles) + " cycles with " + std::to_string(count) +
                        " occurrences and " + std::to_string(m_ledger.cycles()) + " ends of cycles");
    }
    expectReference(code, row.number(4));
    // A process that is killed during a storm has counted events without storing their row.
    if (isEdgeCode(code) || !m_generation.hadKill)
    {
        expectState(code, row.text(2) == "active");
    }
}

void FileCheck::expectReference(std::uint64_t code, unsigned long long reference) const
{
    unsigned long long newest = 0;
    for (auto const& [key, row] : m_rows)
    {
        newest = row.code == code ? key : newest;
    }
    if (reference != newest && !(reference > newest && mayBeRemoved(reference)))
    {
        throw Violation("the statistic of code " + std::to_string(code) + " refers to row " +
                        std::to_string(reference) + "; the newest is " + std::to_string(newest));
    }
}

void FileCheck::expectState(std::uint64_t code, bool isActive) const
{
    std::map<Triple, bool> states;
    for (auto const& [key, row] : m_rows)
    {
        if (row.code == code)
        {
            states[tripleOf(row)] = row.isActive;
        }
    }
    bool const isAnyActive = std::any_of(states.begin(), states.end(), [](auto const& state) { return state.second; });
    if (isAnyActive != isActive)
    {
        throw Violation("the statistic of code " + std::to_string(code) + " is " + (isActive ? "active" : "inactive") +
                        ", its triples say otherwise");
    }
}

/// The bounds of the occurrences of each code.
std::map<std::uint64_t, FileCheck::Occurrences> FileCheck::occurrences() const
{
    std::map<std::uint64_t, Occurrences> result;
    for (auto const& [identity, entry] : m_ledger.entries())
    {
        bool const isStorm = entry.result == HISTORY_COUNTED;
        bool const isPossible = entry.result == HISTORY_OK || isUnknown(entry.result) || isStorm;
        if (entry.event.status != FAULT_ACTIVE || !isPossible || !mayHold(entry))
        {
            continue;
        }
        bool const isCountSure = entry.isSure && entry.range.isSingle() && !entry.wasSplit;
        result[entry.event.code].sure += isCountSure || !entry.found.empty() ? 1 : 0;
        result[entry.event.code].possible += isStorm && m_generation.hadFullDisk ? kPossibleRepeats : 1;
    }
    return result;
}

/// Expects that the rows of storms tell of no more events than were counted, and of all of them if none is in doubt.
void FileCheck::expectStorms() const
{
    std::uint64_t told = 0;
    for (auto const& [key, row] : m_rows)
    {
        told += stormEventsOf(row);
    }
    std::uint64_t sure = 0;
    std::uint64_t possible = 0;
    for (auto const& [identity, entry] : m_ledger.entries())
    {
        bool const isCounted = entry.result == HISTORY_COUNTED && mayHold(entry);
        possible += isCounted ? (m_generation.hadFullDisk ? kPossibleRepeats : 1) : 0;
        sure += isCounted && entry.isSure && entry.range.isSingle() && !entry.wasSplit ? 1 : 0;
    }
    sure = m_generation.keepNewest == 0 ? sure : 0; // Retention removes such rows too.
    if (told < sure || told > possible)
    {
        throw Violation("the rows of storms in file " + std::to_string(m_generation.number) + " tell of " +
                        std::to_string(told) + " events; acknowledged were " + std::to_string(sure) + ", tried " +
                        std::to_string(possible));
    }
}

bool FileCheck::mayBeRemoved(unsigned long long key) const
{
    return m_generation.keepNewest != 0 && key + m_generation.keepNewest <= m_newestKey;
}

bool FileCheck::mayHold(Entry const& entry) const
{
    return entry.range.first <= m_generation.number && (entry.isOpen || m_generation.number <= entry.range.last);
}

/// Whether the event was stored in this file and in no other.
bool FileCheck::mustHold(Entry const& entry) const
{
    bool const isRow = entry.result == HISTORY_OK || entry.result == HISTORY_QUEUED;
    return entry.isSure && isRow && entry.range.isSingle() && mayHold(entry);
}

} // namespace soak
