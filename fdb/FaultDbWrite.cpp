// Writing: versions, faults, statistics, and moving rows from one start-up id to another.

#include <fdb/FaultDb.h>

#include <db/Sqlite3Db.h>
#include <db/internal/TimeLimits.h>
#include <fdb/internal/FaultDbLog.h>

#include <sqlite3.h>

#include <algorithm>

namespace
{

/// Whether `text` between single quotes is exactly one literal: no zero byte cuts the statement short, and every run of
/// quotes consists of pairs.
bool staysInsideLiteral(std::string const& text)
{
    if (text.find('\0') != std::string::npos)
    {
        return false;
    }
    std::size_t runEnd = 0;
    for (std::size_t run = text.find('\''); run != std::string::npos; run = text.find('\'', runEnd))
    {
        runEnd = std::min(text.find_first_not_of('\'', run), text.size());
        if ((runEnd - run) % 2 != 0)
        {
            return false;
        }
    }
    return true;
}

/// A check of a record's texts before its statement is run.
struct TextRule
{
    bool (*holds)(std::string const&);
    char const* refusal;
};

/// A caller's text has each quote doubled.
constexpr TextRule kCallersTexts = {staysInsideLiteral, "unpaired quote or zero byte in column "};

/// A text that was read has each quote once. Written back, even a pair would come out changed.
constexpr TextRule kStoredTexts = {[](std::string const& text) { return text.find('\'') == std::string::npos; },
                                   "quote of a stored text cannot be written back in column "};

/// Whether all texts of the working record of `tbl` pass `rule`; if not, writes an ERROR line that names the column.
template <class T>
bool textsHold(SqlTbl<T> const& tbl, TextRule const& rule)
{
    for (auto const& [id, column] : tbl.m_columns)
    {
        if (column.valid && column.value != nullptr && column.type == SqlTbl<T>::COLUMN_TYPE_STRING &&
            !rule.holds(*static_cast<std::string const*>(column.value)))
        {
            // The line has the form of a statement that SQLite refused, although SQLite would accept some of these.
            LogUtil::write(LogUtil::SEVERITY_ERROR, "SQL3", "execute", "Sql Execute failed: ", rule.refusal,
                           column.name, " Err=", SQLITE_ERROR);
            return false;
        }
    }
    return true;
}

/// Runs the statement that `tbl` wrote last; its texts are still in the working record.
template <class T>
int runStatementOf(SqlTbl<T> const& tbl, short handle, std::string const& sql)
{
    if (!textsHold(tbl, kCallersTexts))
    {
        return RESULT_FAILED;
    }
    return Sqlite3Db::getInstance(0)->execute(handle, sql.c_str()) == 0 ? RESULT_OK : RESULT_FAILED;
}

/// Whether an update with `record`, as it was read, stores its texts unchanged.
template <class T>
bool canBeWrittenBack(SqlTbl<T>& tbl, T const& record)
{
    tbl.m_record = record;
    return textsHold(tbl, kStoredTexts);
}

} // namespace

int FaultDb::insert(FdbVersion& version)
{
    constexpr char kFunction[] = "insert";
    if (!m_isOpen)
    {
        return RESULT_INVALID_STATE;
    }
    std::string const sql = m_versionTbl.getSqlInsertValuesQuery(version);
    if (m_dbgLevel > 0)
    {
        faultDbLog::debug(kFunction, "Insert:", "VersionEntryId=", version.VersionEntryId,
                          ", Component=", version.Component, ", Version=", version.Version);
    }
    if (m_dbgLevel > 1)
    {
        faultDbLog::debug(kFunction, "SqlCmd: ", sql);
    }
    return runStatementOf(m_versionTbl, m_dbHandle, sql);
}

int FaultDb::insert(Fault& fault)
{
    constexpr char kFunction[] = "insert";
    if (!m_isOpen)
    {
        return RESULT_INVALID_STATE;
    }
    std::string const sql = m_faultTbl.getSqlInsertValuesQuery(fault);
    if (m_dbgLevel > 0)
    {
        faultDbLog::debug(kFunction, "Insert:", fault);
    }
    if (m_dbgLevel > 1)
    {
        faultDbLog::debug(kFunction, "SqlCmd: ", sql);
    }
    if (runStatementOf(m_faultTbl, m_dbHandle, sql) != RESULT_OK)
    {
        return RESULT_FAILED;
    }
    std::string const key = m_faultTbl.getColumnNameById(FdbSqlFaultTbl::kEntryIdColumn);
    std::string const& tbl = m_faultTbl.m_tblName;
    std::string const query = "SELECT * FROM " + tbl + " WHERE " + key + "=(select max(" + key + ") from " + tbl + ")";
    FaultTbl stored;
    // If there is no row, another process has emptied the table in between.
    if (Sqlite3Db::getInstance(0)->getTbl<Fault, Fault>(m_dbHandle, query, stored, &m_faultTbl) <= 0)
    {
        return RESULT_FAILED;
    }
    fault.EntryId = stored.front().EntryId;
    return RESULT_OK;
}

int FaultDb::update(Fault const& fault)
{
    constexpr char kFunction[] = "update";
    if (!m_isOpen)
    {
        return RESULT_INVALID_STATE;
    }
    std::string const set = m_faultTbl.getSqlUpdateValuesQuery(fault);
    if (m_dbgLevel > 0)
    {
        faultDbLog::debug(kFunction, "Update:", fault);
    }
    std::string const sql = set + " WHERE " + m_faultTbl.getColumnNameById(FdbSqlFaultTbl::kEntryIdColumn) + " = " +
                            std::to_string(fault.EntryId);
    if (m_dbgLevel > 1)
    {
        faultDbLog::debug(kFunction, "SqlCmd: ", set); // Deliberately without the WHERE clause.
    }
    return runStatementOf(m_faultTbl, m_dbHandle, sql);
}

int FaultDb::insert(FaultStatistic const& statistic)
{
    constexpr char kFunction[] = "insert";
    if (!m_isOpen)
    {
        return RESULT_INVALID_STATE;
    }
    std::string const sql = m_faultStatisticTbl.getSqlInsertValuesQuery(statistic);
    if (m_dbgLevel > 0)
    {
        faultDbLog::debug(kFunction, "Insert:", statistic);
    }
    if (m_dbgLevel > 1)
    {
        faultDbLog::debug(kFunction, "SqlCmd: ", sql);
    }
    return runStatementOf(m_faultStatisticTbl, m_dbHandle, sql);
}

int FaultDb::update(FaultStatistic const& statistic)
{
    constexpr char kFunction[] = "update";
    if (!m_isOpen)
    {
        return RESULT_INVALID_STATE;
    }
    std::string const set = m_faultStatisticTbl.getSqlUpdateValuesQuery(statistic);
    if (m_dbgLevel > 0)
    {
        faultDbLog::debug(kFunction, "Update:", statistic);
    }
    std::string const sql = set + " WHERE " +
                            m_faultStatisticTbl.getColumnNameById(FdbSqlFaultStatisticTbl::kFaultCodeColumn) + " = " +
                            std::to_string(static_cast<unsigned int>(statistic.FaultCode));
    if (m_dbgLevel > 1)
    {
        faultDbLog::debug(kFunction, "SqlCmd: ", set); // Deliberately without the WHERE clause.
    }
    return runStatementOf(m_faultStatisticTbl, m_dbHandle, sql);
}

int FaultDb::updateRdbStartup(unsigned int newId, unsigned int oldId)
{
    if (!m_isOpen)
    {
        return RESULT_INVALID_STATE;
    }
    // Otherwise each row would wait again while another process keeps the file locked or a trigger does not end.
    timeLimits::TimeOutOnce const timeOutOnce;
    // The two numbers deliberately run together.
    faultDbLog::info("updateRdbStartup", "new ID=", newId, "old ID=", oldId);
    moveFaults(newId, oldId);
    moveStatistics(newId, oldId);
    return RESULT_OK;
}

void FaultDb::moveFaults(unsigned int newId, unsigned int oldId)
{
    constexpr char kFunction[] = "updateRdbStartup";
    std::string const query = "SELECT * FROM " + m_faultTbl.m_tblName + " WHERE " +
                              m_faultTbl.getColumnNameById(FdbSqlFaultTbl::kRdbStartupIdColumn) + " = " +
                              std::to_string(oldId);
    if (m_dbgLevel > 0)
    {
        faultDbLog::debug(kFunction, "SqlCmd: ", query);
    }
    FaultTbl faults;
    static_cast<void>(getFaultTbl(query, faults)); // A failed read has logged, and leaves no row to move.
    if (m_dbgLevel > 0)
    {
        faultDbLog::debug(kFunction, "No RDB id Fault itemNr=", faults.size());
    }
    for (Fault& fault : faults)
    {
        // Logged at every level, unlike the statistics: each moved fault shall be visible.
        faultDbLog::info(kFunction, "Update fault FC=", static_cast<unsigned int>(fault.FaultCode),
                         " EntryID=", fault.EntryId);
        fault.RdbStartupId = newId;
        if (canBeWrittenBack(m_faultTbl, fault))
        {
            static_cast<void>(update(fault)); // A row that cannot be written keeps its id; continue with the others.
        }
    }
}

void FaultDb::moveStatistics(unsigned int newId, unsigned int oldId)
{
    constexpr char kFunction[] = "updateRdbStartup";
    std::string const query = "SELECT * FROM " + m_faultStatisticTbl.m_tblName + " WHERE " +
                              m_faultStatisticTbl.getColumnNameById(FdbSqlFaultStatisticTbl::kRdbStartupIdColumn) +
                              " = " + std::to_string(oldId);
    if (m_dbgLevel > 0)
    {
        faultDbLog::debug(kFunction, "SqlCmd: ", query);
    }
    FaultStatisticTbl statistics;
    static_cast<void>(getFaultStatisticTbl(query, statistics)); // As in moveFaults.
    if (m_dbgLevel > 0)
    {
        faultDbLog::debug(kFunction, "No RDB id FaultStat itemNr=", statistics.size());
    }
    for (FaultStatistic& statistic : statistics)
    {
        if (m_dbgLevel > 0)
        {
            faultDbLog::debug(kFunction, "Update Statistic FC=", static_cast<unsigned int>(statistic.FaultCode),
                              " EntryID=", statistic.EntryId);
        }
        statistic.RdbStartupId = newId;
        if (canBeWrittenBack(m_faultStatisticTbl, statistic))
        {
            static_cast<void>(update(statistic)); // As in moveFaults.
        }
    }
}
