// Reading: faults, statistics and counts.

#include <fdb/FaultDb.h>

#include <db/Sqlite3Db.h>
#include <fdb/internal/FaultDbLog.h>
#include <fdb/tables/SqlTblUtil.h>

namespace
{

/// The counting statement that a row belongs to.
enum QueryKind : int
{
    QUERY_CB_ERROR_ACTIVE_NR = 1,
    QUERY_CB_ERROR_NR = 2
};

/// Copies the first record found; RESULT_FAILED if there is none.
template <class T>
int takeFirst(std::vector<T> const& found, T& record)
{
    if (found.empty())
    {
        return RESULT_FAILED;
    }
    record = found.front();
    return RESULT_OK;
}

} // namespace

int FaultDb::getFaultTbl(FaultTbl& faults)
{
    return getFaultTbl("SELECT * FROM \"" + m_faultTbl.m_tblName + "\"", faults);
}

int FaultDb::getFaultTbl(std::string const& query, FaultTbl& faults)
{
    return Sqlite3Db::getInstance(0)->getTbl<Fault, Fault>(m_dbHandle, query, faults, &m_faultTbl);
}

int FaultDb::getFaultStatisticTbl(std::string const& query, FaultStatisticTbl& statistics)
{
    return Sqlite3Db::getInstance(0)->getTbl<FaultStatistic, FaultStatistic>(m_dbHandle, query, statistics,
                                                                             &m_faultStatisticTbl);
}

int FaultDb::getFaultStatisticTbl(FaultStatisticTbl& statistics)
{
    return getFaultStatisticTbl("SELECT * FROM \"" + m_faultStatisticTbl.m_tblName + "\"", statistics);
}

int FaultDb::getFaultStatisticTblErrorActive(FaultStatisticTbl& statistics)
{
    return getFaultStatisticTbl("SELECT * FROM " + m_faultStatisticTbl.m_tblName + " WHERE " +
                                    m_faultStatisticTbl.getColumnNameById(FdbSqlFaultStatisticTbl::kFaultActiveColumn) +
                                    " LIKE '" + FdbSqlFaultStatisticTbl::kActiveText + "'",
                                statistics);
}

int FaultDb::getFaultById(Fault& fault, unsigned long long id)
{
    FaultTbl found;
    // A failed query leaves `found` empty; the caller learns no more than that.
    static_cast<void>(getFaultTbl("SELECT * FROM \"" + m_faultTbl.m_tblName + "\" WHERE " +
                                      m_faultTbl.getColumnNameById(FdbSqlFaultTbl::kEntryIdColumn) + "=" +
                                      std::to_string(id),
                                  found));
    return takeFirst(found, fault);
}

int FaultDb::getFaultStatisticForFC(FaultStatistic& statistic, unsigned int faultCode)
{
    FaultStatisticTbl found;
    // As in getFaultById.
    static_cast<void>(
        getFaultStatisticTbl("SELECT * FROM \"" + m_faultStatisticTbl.m_tblName + "\" WHERE " +
                                 m_faultStatisticTbl.getColumnNameById(FdbSqlFaultStatisticTbl::kFaultCodeColumn) +
                                 "=" + std::to_string(faultCode),
                             found));
    return takeFirst(found, statistic);
}

int FaultDb::getFaultStatisticTblErrorNr(unsigned short& count)
{
    if (!m_isOpen)
    {
        return RESULT_INVALID_STATE;
    }
    int const result = runCount("getFaultStatisticTblErrorNr", "SELECT COUNT(*) FROM " + m_faultStatisticTbl.m_tblName,
                                QUERY_CB_ERROR_NR);
    if (result == RESULT_OK)
    {
        count = m_ErrorNr;
    }
    return result;
}

int FaultDb::getFaultStatisticTblErrorActiveNr(unsigned short& count)
{
    if (!m_isOpen)
    {
        return RESULT_INVALID_STATE;
    }
    static std::string const activeColumn =
        m_faultStatisticTbl.getColumnNameById(FdbSqlFaultStatisticTbl::kFaultActiveColumn);
    int const result = runCount("getFaultStatisticTblErrorActiveNr",
                                "SELECT COUNT() FROM " + m_faultStatisticTbl.m_tblName + " WHERE " + activeColumn +
                                    " LIKE '" + FdbSqlFaultStatisticTbl::kActiveText + "'",
                                QUERY_CB_ERROR_ACTIVE_NR);
    if (result == RESULT_OK)
    {
        count = m_ErrorActiveNr;
    }
    return result;
}

/// Runs a counting statement; `dataBaseQueryCb` stores the count in the member that `kind` selects.
int FaultDb::runCount(char const* function, std::string const& sql, int kind)
{
    if (m_dbgLevel > 0)
    {
        faultDbLog::debug(function, "Execute SqlCmd: ", sql);
    }
    int const rc = Sqlite3Db::getInstance(0)->execute(m_dbHandle, sql.c_str(), {this, &kind});
    if (rc != 0)
    {
        // Both counts deliberately share this text.
        faultDbLog::error(function, "SQL for Get Error active nr failed:", rc);
        return RESULT_FAILED;
    }
    return RESULT_OK;
}

int FaultDb::dataBaseQueryCb(Sqlite3DbCallback::sqlite3DbCbCgf_t* cfg, int, char** argv, char**)
{
    constexpr char kFunction[] = "dataBaseQueryCb";
    if (m_dbgLevel > 0)
    {
        faultDbLog::debug(kFunction, "Process call back data...");
    }
    if (cfg == nullptr)
    {
        if (m_dbgLevel > 0)
        {
            faultDbLog::debug(kFunction, "Not handled because cfg is NULL");
        }
    }
    else
    {
        storeCount(*cfg->sqlCmdQueryCb, argv);
    }
    if (m_dbgLevel > 0)
    {
        faultDbLog::debug(kFunction, "Process call back data done");
    }
    return 0;
}

/// Stores the count in the row `argv`. A cell that is no 16-bit number is reported and leaves the last count unchanged.
void FaultDb::storeCount(int kind, char** argv)
{
    constexpr char kFunction[] = "dataBaseQueryCb";
    if (m_dbgLevel > 1)
    {
        faultDbLog::debug(kFunction, "sqlCmdQueryCb=", kind);
    }
    switch (kind)
    {
    case QUERY_CB_ERROR_ACTIVE_NR:
        static_cast<void>(SqlTblUtil::setValueFromSqlResult(argv, &m_ErrorActiveNr));
        if (m_dbgLevel > 1)
        {
            faultDbLog::debug(kFunction, "m_ErrorActiveNr=", m_ErrorActiveNr);
        }
        break;
    case QUERY_CB_ERROR_NR:
        static_cast<void>(SqlTblUtil::setValueFromSqlResult(argv, &m_ErrorNr));
        if (m_dbgLevel > 1)
        {
            faultDbLog::debug(kFunction, "m_ErrorNr=", m_ErrorNr);
        }
        break;
    default:
        faultDbLog::error(kFunction, "Unknown sqlCmdQueryCb=", kind);
    }
}
