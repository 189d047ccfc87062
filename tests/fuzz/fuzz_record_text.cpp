// Compares insert, update and the renumbering of a start-up id, for records with any text, with a model of the three
// tables. A text is stored whole, each pair of quotes as one quote, or the operation is refused and changes nothing.
//
// Input: operations, separated by the byte 0x1f. The first byte selects the operation, the second the column, the third
// the row; the rest is the text.

#include "FuzzSupport.h"
#include "StoredCells.h"

#include <db/Sqlite3Db.h>
#include <fdb/FaultDb.h>

#include <algorithm>
#include <array>
#include <memory>

namespace
{

constexpr std::size_t kMaxRows = 24;
constexpr std::size_t kMaxOperations = 12;
constexpr unsigned int kStartupIds = 3;
constexpr std::size_t kStatisticCodeColumn = 1;

using Rows = std::vector<fuzz::Cells>;

std::array<std::string Fault::*, 9> const kFaultTexts = {&Fault::DateTimeString,
                                                         &Fault::FaultCodeName,
                                                         &Fault::ModuleName,
                                                         &Fault::Parameter,
                                                         &Fault::TimeZone,
                                                         &Fault::Description,
                                                         &Fault::DiagSignalsDumpFileName,
                                                         &Fault::CfgBackupFile,
                                                         &Fault::SystemDateTimeString};

std::array<std::string FaultStatistic::*, 3> const kStatisticTexts = {
    &FaultStatistic::FaultCodeName, &FaultStatistic::TimeZoneFirstOccurred, &FaultStatistic::TimeZoneLastOccurred};

/// Counts of the statements that ran on the connection, by kind.
struct Statements
{
    int selects = 0;
    int inserts = 0;
    int updates = 0;
    int others = 0;

    static int count(unsigned int, void* self, void*, void* text)
    {
        std::string_view const sql(static_cast<char const*>(text));
        Statements& all = *static_cast<Statements*>(self);
        auto const begins = [&sql](std::string_view word) { return sql.substr(0, word.size()) == word; };
        ++(begins("SELECT ")   ? all.selects
           : begins("INSERT ") ? all.inserts
           : begins("UPDATE ") ? all.updates
                               : all.others);
        return 0;
    }
};

/// A database with its model. A file that has grown large is replaced by a new one.
class Subject
{
public:
    Subject() : m_path(m_dir.file("faults.db")) { begin(); }

    void perform(std::string_view operation);

    void replaceWhenGrown()
    {
        if (m_faults.size() > kMaxRows || m_statistics.size() > kMaxRows || m_versions.size() > kMaxRows)
        {
            fuzz::require(m_db->closeDb() == RESULT_OK, "the file can be closed");
            begin();
        }
    }

private:
    void begin();
    void insertFault(std::size_t column, std::string const& text);
    void updateFault(std::size_t column, std::size_t row, std::string const& text);
    void insertStatistic(std::size_t column, std::string const& text);
    void updateStatistic(std::size_t column, std::size_t row, std::string const& text);
    void insertVersion(std::size_t column, std::string const& text);
    void move(unsigned int newId, unsigned int oldId);
    void moveFaults(std::string const& newId, std::string const& oldId);
    void moveStatistics(std::string const& newId, std::string const& oldId);
    void requireContent();
    Fault newFault();
    FaultStatistic newStatistic();

    fuzz::MemoryDir m_dir;
    std::string const m_path;
    std::unique_ptr<FaultDb> m_db;
    sqlite3* m_connection = nullptr;
    Statements m_statements;
    unsigned int m_serial = 0;
    Rows m_faults;
    Rows m_statistics;
    Rows m_versions;
    Rows m_schema;
};

void Subject::begin()
{
    m_db.reset(new FaultDb);
    fuzz::require(m_db->createDb(m_path, true) == RESULT_OK, "the file can be created");
    fuzz::require(m_db->openDb(m_path, false) == RESULT_OK, "the file can be opened");
    m_connection = Sqlite3Db::getInstance(0)->findOpen(m_db->m_dbHandle)->db;
    // Durability is not tested here.
    static_cast<void>(sqlite3_exec(m_connection, "PRAGMA synchronous=OFF", nullptr, nullptr, nullptr));
    m_faults.clear();
    m_statistics.clear();
    m_versions = {{"1", "FormatVersion", "1.0.0"}};
    m_schema = fuzz::rawRows(m_connection, "SELECT * FROM sqlite_master");
    requireContent();
    sqlite3_trace_v2(m_connection, SQLITE_TRACE_STMT, &Statements::count, &m_statements);
}

void Subject::requireContent()
{
    fuzz::require(fuzz::rawRows(m_connection, "SELECT * FROM FdbFaultTbl") == m_faults, "the faults are the model's");
    fuzz::require(fuzz::rawRows(m_connection, "SELECT * FROM FdbFaultStatisticTbl") == m_statistics,
                  "the statistics are the model's");
    fuzz::require(fuzz::rawRows(m_connection, "SELECT * FROM FdbVersionTbl") == m_versions,
                  "the versions are the model's");
    fuzz::require(fuzz::rawRows(m_connection, "SELECT * FROM sqlite_master") == m_schema, "the schema is as it was");
}

void Subject::perform(std::string_view operation)
{
    auto const number = [operation](std::size_t i) -> std::size_t
    { return i < operation.size() ? static_cast<unsigned char>(operation[i]) : 0; };
    std::string const text(operation.substr(std::min<std::size_t>(3, operation.size())));
    m_statements = {};
    switch (number(0) % 6)
    {
    case 0:
        insertFault(number(1), text);
        break;
    case 1:
        updateFault(number(1), number(2), text);
        break;
    case 2:
        insertStatistic(number(1), text);
        break;
    case 3:
        updateStatistic(number(1), number(2), text);
        break;
    case 4:
        insertVersion(number(1), text);
        break;
    default:
        move(static_cast<unsigned int>(number(1)) % kStartupIds, static_cast<unsigned int>(number(2)) % kStartupIds);
    }
    fuzz::require(m_statements.others == 0, "no other statement is reached");
    requireContent();
}

Fault Subject::newFault()
{
    ++m_serial;
    Fault fault;
    fault.FaultCode = static_cast<faultCode_t>(m_serial);
    fault.TimeStampUTC = 1772366400000000 + m_serial;
    fault.Status = m_serial % 2 == 0 ? FAULT_ACTIVE : FAULT_INACTIVE;
    fault.LoggerUpTime = m_serial;
    fault.LoggerLifeTime = ~m_serial;
    fault.RdbStartupId = m_serial % kStartupIds;
    return fault;
}

FaultStatistic Subject::newStatistic()
{
    ++m_serial;
    FaultStatistic statistic;
    statistic.FaultCode = static_cast<faultCode_t>(m_serial % 16); // Some codes occur twice.
    statistic.OccurenceCnt = static_cast<unsigned short>(m_serial);
    statistic.TimeFirstOccurredUTC = m_serial;
    statistic.TimeLastOccurredUTC = 1772366400000000 + m_serial;
    statistic.FaultActive = m_serial % 2 == 0 ? FAULT_ACTIVE : FAULT_INACTIVE;
    statistic.FaultEntryId = m_serial;
    statistic.RdbStartupId = m_serial % kStartupIds;
    return statistic;
}

void Subject::insertFault(std::size_t column, std::string const& text)
{
    constexpr unsigned long long kUntouched = 12345;
    auto const member = kFaultTexts[column % kFaultTexts.size()];
    Fault fault = newFault();
    fault.EntryId = kUntouched;
    fault.*member = text;
    int const result = m_db->insert(fault);
    auto const content = stored(text);
    fuzz::require(result == (content ? RESULT_OK : RESULT_FAILED), "the text decides whether the fault is stored");
    fuzz::require(m_statements.inserts == (content ? 1 : 0) && m_statements.selects == m_statements.inserts &&
                      m_statements.updates == 0,
                  "an insert is one statement and the reading of its key");
    if (!content)
    {
        fuzz::require(fault.EntryId == kUntouched, "a refused fault keeps its key");
        return;
    }
    fuzz::require(fault.EntryId == m_faults.size() + 1, "the key is the new row's");
    fault.*member = *content;
    m_faults.push_back(cellsOf(fault, fault.EntryId));
    Fault read;
    fuzz::require(m_db->getFaultById(read, fault.EntryId) == RESULT_OK, "the fault is found by its key");
    fuzz::require(cellsOf(read, read.EntryId) == m_faults.back(), "the fault is read as it was stored");
}

void Subject::updateFault(std::size_t column, std::size_t row, std::string const& text)
{
    auto const member = kFaultTexts[column % kFaultTexts.size()];
    Fault fault = newFault();
    fault.EntryId = row % (m_faults.size() + 1) + 1; // Includes a key without a row.
    fault.*member = text;
    int const result = m_db->update(fault);
    auto const content = stored(text);
    fuzz::require(result == (content ? RESULT_OK : RESULT_FAILED), "the text decides whether the fault is rewritten");
    fuzz::require(m_statements.updates == (content ? 1 : 0) && m_statements.inserts == 0 && m_statements.selects == 0,
                  "an update is one statement");
    if (content && fault.EntryId <= m_faults.size())
    {
        fault.*member = *content;
        m_faults[fault.EntryId - 1] = cellsOf(fault, fault.EntryId);
    }
}

void Subject::insertStatistic(std::size_t column, std::string const& text)
{
    auto const member = kStatisticTexts[column % kStatisticTexts.size()];
    FaultStatistic statistic = newStatistic();
    statistic.*member = text;
    int const result = m_db->insert(statistic);
    auto const content = stored(text);
    fuzz::require(result == (content ? RESULT_OK : RESULT_FAILED), "the text decides whether the statistic is stored");
    fuzz::require(m_statements.inserts == (content ? 1 : 0) && m_statements.updates == 0 && m_statements.selects == 0,
                  "an insert is one statement");
    if (content)
    {
        statistic.*member = *content;
        m_statistics.push_back(cellsOf(statistic, m_statistics.size() + 1));
    }
}

void Subject::updateStatistic(std::size_t column, std::size_t row, std::string const& text)
{
    auto const member = kStatisticTexts[column % kStatisticTexts.size()];
    FaultStatistic statistic = newStatistic();
    statistic.FaultCode = static_cast<faultCode_t>(row % 17); // Includes a code without a statistic.
    statistic.*member = text;
    int const result = m_db->update(statistic);
    auto const content = stored(text);
    fuzz::require(result == (content ? RESULT_OK : RESULT_FAILED),
                  "the text decides whether the statistic is rewritten");
    fuzz::require(m_statements.updates == (content ? 1 : 0) && m_statements.inserts == 0 && m_statements.selects == 0,
                  "an update is one statement");
    if (!content)
    {
        return;
    }
    statistic.*member = *content;
    for (std::size_t i = 0; i < m_statistics.size(); ++i)
    {
        if (m_statistics[i][kStatisticCodeColumn] == std::to_string(row % 17))
        {
            m_statistics[i] = cellsOf(statistic, i + 1);
        }
    }
}

void Subject::insertVersion(std::size_t column, std::string const& text)
{
    FdbVersion version;
    (column % 2 == 0 ? version.Component : version.Version) = text;
    int const result = m_db->insert(version);
    auto const content = stored(text);
    fuzz::require(result == (content ? RESULT_OK : RESULT_FAILED), "the text decides whether the version is stored");
    fuzz::require(m_statements.inserts == (content ? 1 : 0) && m_statements.updates == 0 && m_statements.selects == 0,
                  "an insert is one statement");
    if (content)
    {
        (column % 2 == 0 ? version.Component : version.Version) = *content;
        m_versions.push_back({std::to_string(m_versions.size() + 1), version.Component, version.Version});
    }
}

void Subject::move(unsigned int newId, unsigned int oldId)
{
    fuzz::require(m_db->updateRdbStartup(newId, oldId) == RESULT_OK, "moving succeeds");
    fuzz::require(m_statements.inserts == 0 && m_statements.selects == 2, "moving reads twice and inserts nothing");
    moveFaults(std::to_string(newId), std::to_string(oldId));
    moveStatistics(std::to_string(newId), std::to_string(oldId));
}

bool holdsQuote(fuzz::Cells const& row)
{
    return std::any_of(row.begin(), row.end(), [](auto const& cell) { return cell->find('\'') != std::string::npos; });
}

void Subject::moveFaults(std::string const& newId, std::string const& oldId)
{
    for (fuzz::Cells& row : m_faults)
    {
        if (row[14] == oldId && !holdsQuote(row)) // The library cannot write back a stored quote.
        {
            row[14] = newId;
        }
    }
}

void Subject::moveStatistics(std::string const& newId, std::string const& oldId)
{
    Rows const before = m_statistics;
    for (fuzz::Cells const& moved : before)
    {
        if (moved[11] != oldId || holdsQuote(moved))
        {
            continue;
        }
        for (fuzz::Cells& row : m_statistics)
        {
            if (row[kStatisticCodeColumn] == moved[kStatisticCodeColumn])
            {
                auto const key = row[0];
                row = moved;
                row[0] = key;
                row[11] = newId;
            }
        }
    }
}

std::unique_ptr<Subject> subject;

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    fuzz::silenceLog();
    subject = std::make_unique<Subject>();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    auto const operations = fuzz::split({reinterpret_cast<char const*>(data), size}, '\x1f');
    for (std::size_t i = 0; i < std::min(operations.size(), kMaxOperations); ++i)
    {
        subject->perform(operations[i]);
    }
    subject->replaceWhenGrown();
    return 0;
}
