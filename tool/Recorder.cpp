#include "Recorder.h"

#include "FaultFile.h"
#include "Interrupt.h"

#include <db/Sqlite3Db.h>

#include <sqlite3.h>

#include <limits>
#include <sstream>
#include <stdexcept>

namespace tool
{

namespace
{

constexpr char kTimeZone[] = "UTC";

/// The library takes a quote inside a text as a pair of them.
std::string quoted(std::string const& text)
{
    std::string result;
    for (char const c : text)
    {
        result.append(c == '\'' ? 2 : 1, c);
    }
    return result;
}

void quoteTexts(Fault& fault)
{
    for (std::string* const text : {&fault.DateTimeString, &fault.FaultCodeName, &fault.Parameter, &fault.Description,
                                    &fault.DiagSignalsDumpFileName, &fault.ModuleName, &fault.TimeZone,
                                    &fault.CfgBackupFile, &fault.SystemDateTimeString})
    {
        *text = quoted(*text);
    }
}

void quoteTexts(FaultStatistic& statistic)
{
    for (std::string* const text :
         {&statistic.FaultCodeName, &statistic.TimeZoneFirstOccurred, &statistic.TimeZoneLastOccurred})
    {
        *text = quoted(*text);
    }
}

void countUp(unsigned short& count)
{
    if (count < std::numeric_limits<unsigned short>::max())
    {
        ++count;
    }
}

std::string nameOf(faultCode_t code)
{
    std::ostringstream name;
    name << code;
    return name.str();
}

/// The connection that the facade has opened: this process has no other one through the library.
short facadeConnection()
{
    for (auto const& [handle, entry] : Sqlite3Db::getInstance(0)->m_dbHandles)
    {
        if (Sqlite3Db::getInstance(0)->findOpen(handle) != nullptr)
        {
            return handle;
        }
    }
    return -1;
}

} // namespace

Recorder::Recorder(std::string const& path, TimeStyle const& style)
    : m_path(path), m_style(style), m_db(*FaultDb::getInstance())
{
    requireWritableFaultFile(path);
    require(m_db.openDb(path, false), "open it");
    m_connection = facadeConnection();
    m_sqlite = Sqlite3Db::getInstance(0)->findOpen(m_connection)->db;
    // As the library waits, but not beyond a signal.
    m_patience.applyTo(m_sqlite);
    execute(kJournalSizeLimit);
    sqlite3_commit_hook(m_sqlite, onCommit, this);
}

Recorder::~Recorder()
{
    // What was not committed is not wanted, and what was is on the storage.
    rollBack();
    sqlite3_commit_hook(m_sqlite, nullptr, nullptr);
    static_cast<void>(sqlite3_trace_v2(m_sqlite, 0, nullptr, nullptr));
    static_cast<void>(m_db.closeDb());
}

/// After some failures, a full disk among them, SQLite ends the transaction on its own. What the library would then
/// write, row by row, must not be stored either.
int Recorder::onCommit(void* self)
{
    return static_cast<Recorder*>(self)->m_isCommitting ? 0 : 1;
}

int Recorder::onStatement(unsigned int, void* self, void*, void*)
{
    auto* const recorder = static_cast<Recorder*>(self);
    if (interrupt::isPending() && !recorder->m_isCommitting)
    {
        sqlite3_interrupt(recorder->m_sqlite);
    }
    return 0;
}

void Recorder::endOnSignal()
{
    static_cast<void>(sqlite3_trace_v2(m_sqlite, SQLITE_TRACE_STMT, onStatement, this));
}

Statement Recorder::prepare(std::string const& sql) const
{
    return Statement(m_path, m_sqlite, sql);
}

void Recorder::require(int result, char const* action) const
{
    if (result < 0)
    {
        interrupt::check(); // Waiting for a lock ends with a signal.
        throw Problem(STATUS_BAD_FILE, m_path + ": the library could not " + action + " (" + std::to_string(result) +
                                           "); its line above says why");
    }
}

void Recorder::execute(char const* sql)
{
    require(Sqlite3Db::getInstance(0)->execute(m_connection, sql), "write to it");
}

void Recorder::begin()
{
    execute("BEGIN IMMEDIATE");
    m_isInTransaction = true;
}

void Recorder::commit()
{
    if (!m_isInTransaction)
    {
        return;
    }
    if (sqlite3_get_autocommit(m_sqlite) != 0)
    {
        throw Problem(STATUS_BAD_FILE, m_path +
                                           ": writing failed, and nothing of it was stored; the library's lines above "
                                           "say why");
    }
    m_isCommitting = true;
    int const result = Sqlite3Db::getInstance(0)->execute(m_connection, "COMMIT");
    m_isCommitting = false;
    require(result, "write to it");
    m_isInTransaction = false;
}

void Recorder::rollBack()
{
    // After some failures SQLite has rolled back on its own.
    if (m_isInTransaction && sqlite3_get_autocommit(m_sqlite) == 0)
    {
        static_cast<void>(Sqlite3Db::getInstance(0)->execute(m_connection, "ROLLBACK"));
    }
    m_isInTransaction = false;
}

unsigned long long Recorder::record(FaultRequest const& request)
{
    Fault const plain = complete(request);
    Fault stored = plain;
    quoteTexts(stored);
    try
    {
        require(m_db.insert(stored), "record the fault");
        Fault recorded = plain;
        recorded.EntryId = stored.EntryId;
        keepStatistic(recorded);
        return recorded.EntryId;
    }
    catch (...)
    {
        rollBack(); // Not the one without the other.
        throw;
    }
}

/// The fault with everything that was left open filled in.
Fault Recorder::complete(FaultRequest const& request)
{
    Fault fault = request.fault;
    TimeStyle const utc = {m_style.unit, false};
    std::optional<Fault> const newest = newestFault();
    std::int64_t const now = currentTime();
    fault.TimeStampUTC = stampFor(request, newest, now);
    if (fault.DateTimeString.empty() && fault.TimeStampUTC != 0)
    {
        fault.DateTimeString = stampText(fault.TimeStampUTC, utc);
    }
    if (fault.SystemDateTimeString.empty())
    {
        fault.SystemDateTimeString = isoText(now, utc);
    }
    if (fault.TimeZone.empty())
    {
        fault.TimeZone = kTimeZone;
    }
    if (fault.FaultCodeName.empty())
    {
        fault.FaultCodeName = nameOf(fault.FaultCode);
    }
    fault.RdbStartupId = request.startup.value_or(newest ? newest->RdbStartupId : 0);
    return fault;
}

/// The time of a fault as it is stored: in the unit of the file.
unsigned long long Recorder::stampFor(FaultRequest const& request, std::optional<Fault> const& newest,
                                      std::int64_t now) const
{
    if (request.stamp)
    {
        return *request.stamp;
    }
    timeUnit_t const unit = m_style.unit == timeUnit_t::GUESSED && newest ? unitOf(newest->TimeStampUTC) : m_style.unit;
    std::optional<unsigned long long> const stamp = stampOf(request.time.value_or(now), unit, m_style);
    if (!stamp)
    {
        throw std::invalid_argument(
            "this time cannot be stored: in the unit of the file it would be read as another one "
            "or as none; --time-unit chooses the unit");
    }
    return *stamp;
}

std::optional<Fault> Recorder::newestFault()
{
    FaultTbl faults;
    require(m_db.getFaultTbl("SELECT * FROM FdbFaultTbl ORDER BY EntryId DESC LIMIT 1", faults),
            "read the newest fault");
    return faults.empty() ? std::nullopt : std::optional(faults.front());
}

std::optional<FaultStatistic> Recorder::statisticOf(unsigned int code)
{
    FaultStatisticTbl statistics;
    require(m_db.getFaultStatisticTbl("SELECT * FROM FdbFaultStatisticTbl WHERE FaultCode = " + std::to_string(code),
                                      statistics),
            "read the statistic");
    return statistics.empty() ? std::nullopt : std::optional(statistics.front());
}

std::optional<Fault> Recorder::faultWith(unsigned long long key)
{
    FaultTbl faults;
    require(m_db.getFaultTbl("SELECT * FROM FdbFaultTbl WHERE EntryId = " + std::to_string(key), faults),
            "read a fault");
    return faults.empty() ? std::nullopt : std::optional(faults.front());
}

void Recorder::keepStatistic(Fault const& fault)
{
    std::optional<FaultStatistic> const found = statisticOf(fault.FaultCode);
    FaultStatistic statistic = found.value_or(FaultStatistic());
    statistic.FaultCode = fault.FaultCode;
    statistic.FaultCodeName = fault.FaultCodeName;
    statistic.FaultActive = fault.Status;
    statistic.FaultEntryId = fault.EntryId;
    statistic.RdbStartupId = fault.RdbStartupId;
    if (fault.Status == FAULT_ACTIVE)
    {
        if (statistic.OccurenceCnt == 0)
        {
            statistic.TimeFirstOccurredUTC = fault.TimeStampUTC;
            statistic.TimeZoneFirstOccurred = fault.TimeZone;
        }
        statistic.TimeLastOccurredUTC = fault.TimeStampUTC;
        statistic.TimeZoneLastOccurred = fault.TimeZone;
        countUp(statistic.OccurenceCnt);
        countUp(statistic.FaultActiveCycleCnt);
    }
    quoteTexts(statistic);
    require(found ? m_db.update(statistic) : m_db.insert(statistic), "write the statistic");
}

} // namespace tool
