#include "WritingWorkloads.h"

#include "WorkloadSupport.h"

#include <fdb/tables/FdbSqlFaultStatisticTbl.h>
#include <fdb/tables/FdbSqlFaultTbl.h>

#include <array>
#include <vector>

namespace
{

constexpr unsigned int kUpdatedRows = 16; ///< fewer than the records, as SQLite skips an update that changes nothing

class RecordFault : public TwoFileWorkload
{
public:
    explicit RecordFault(std::string const& folder)
        : TwoFileWorkload(folder, kSmallTable, BareConnection::LIBRARY_SETTINGS)
    {
        auto const tbl = makeTbl<FdbSqlFaultTbl>(kFaultTbl);
        for (unsigned int i = 0; i < kRecords; ++i)
        {
            m_faults[i] = deviceFault(i);
            m_statements[i] = tbl->getSqlInsertValuesQuery(m_faults[i]);
        }
    }

    void runLibrary() override { require(db.insert(m_faults[m_rotation.next()]) == 0, "insert"); }

    void runBaseline() override
    {
        connection.exec(m_statements[m_rotation.next()]);
        connection.getTable("SELECT * FROM FdbFaultTbl WHERE EntryId=(select max(EntryId) from FdbFaultTbl)");
    }

private:
    std::array<Fault, kRecords> m_faults;
    std::array<std::string, kRecords> m_statements;
    Rotation m_rotation;
};

/// The baseline is the code that a user would write without the library: one prepared statement on a connection with
/// SQLite's defaults.
class RecordFaultDurably : public TwoFileWorkload
{
public:
    explicit RecordFaultDurably(std::string const& folder)
        : TwoFileWorkload(folder, kSmallTable, BareConnection::SQLITE_DEFAULTS)
    {
        for (unsigned int i = 0; i < kRecords; ++i)
        {
            m_faults[i] = deviceFault(i);
        }
        require(sqlite3_prepare_v2(connection.get(),
                                   "INSERT INTO FdbFaultTbl VALUES(null,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?)", -1,
                                   &m_statement, nullptr) == SQLITE_OK,
                "prepare");
    }
    ~RecordFaultDurably() override { sqlite3_finalize(m_statement); }

    void runLibrary() override { require(db.insert(m_faults[m_rotation.next()]) == 0, "insert"); }

    void runBaseline() override
    {
        Fault const& fault = m_faults[m_rotation.next()];
        bindText(1, fault.DateTimeString);
        sqlite3_bind_int64(m_statement, 2, fault.FaultCode);
        bindText(3, fault.FaultCodeName);
        bindText(4, fault.ModuleName);
        bindText(5, fault.Parameter);
        sqlite3_bind_int64(m_statement, 6, static_cast<sqlite3_int64>(fault.TimeStampUTC));
        bindText(7, fault.TimeZone);
        sqlite3_bind_text(m_statement, 8, "ErrorActive", -1, SQLITE_STATIC);
        bindText(9, fault.Description);
        bindText(10, fault.DiagSignalsDumpFileName);
        sqlite3_bind_int64(m_statement, 11, fault.LoggerUpTime);
        sqlite3_bind_int64(m_statement, 12, fault.LoggerLifeTime);
        bindText(13, fault.CfgBackupFile);
        sqlite3_bind_int64(m_statement, 14, fault.RdbStartupId);
        bindText(15, fault.SystemDateTimeString);
        require(sqlite3_step(m_statement) == SQLITE_DONE, "step");
        sqlite3_reset(m_statement);
    }

private:
    void bindText(int index, std::string const& text)
    {
        sqlite3_bind_text(m_statement, index, text.data(), static_cast<int>(text.size()), SQLITE_STATIC);
    }

    std::array<Fault, kRecords> m_faults;
    sqlite3_stmt* m_statement = nullptr;
    Rotation m_rotation;
};

/// The library alone. The destructor removes the added rows, so that the number of rows in the file stays the same.
class RecordIntoFile : public OneFileWorkload
{
public:
    explicit RecordIntoFile(std::string const& path) : OneFileWorkload(path)
    {
        require(db.insert(m_fault) == 0, "insert");
        m_firstKey = m_fault.EntryId;
    }
    ~RecordIntoFile() override
    {
        connection.exec("DELETE FROM FdbFaultTbl WHERE EntryId>=" + std::to_string(m_firstKey));
    }

    void runLibrary() override { require(db.insert(m_fault) == 0, "insert"); }
    void runBaseline() override {}

private:
    Fault m_fault = deviceFault(1);
    unsigned long long m_firstKey = 0;
};

class UpdateFault : public TwoFileWorkload
{
public:
    explicit UpdateFault(std::string const& folder)
        : TwoFileWorkload(folder, kSmallTable, BareConnection::LIBRARY_SETTINGS)
    {
        auto const tbl = makeTbl<FdbSqlFaultTbl>(kFaultTbl);
        for (unsigned int i = 0; i < kRecords; ++i)
        {
            m_faults[i] = deviceFault(i);
            m_faults[i].EntryId = 1 + i % kUpdatedRows;
            m_statements[i] =
                tbl->getSqlUpdateValuesQuery(m_faults[i]) + " WHERE EntryId = " + std::to_string(m_faults[i].EntryId);
        }
    }

    void runLibrary() override { require(db.update(m_faults[m_rotation.next()]) == 0, "update"); }
    void runBaseline() override { connection.exec(m_statements[m_rotation.next()]); }

private:
    std::array<Fault, kRecords> m_faults;
    std::array<std::string, kRecords> m_statements;
    Rotation m_rotation;
};

class UpdateStatistic : public TwoFileWorkload
{
public:
    explicit UpdateStatistic(std::string const& folder)
        : TwoFileWorkload(folder, kSmallTable, BareConnection::LIBRARY_SETTINGS)
    {
        auto const tbl = makeTbl<FdbSqlFaultStatisticTbl>(kStatisticTbl);
        for (unsigned int i = 0; i < kRecords; ++i)
        {
            m_statistics[i] = deviceStatistic(i);
            m_statistics[i].FaultCode = static_cast<faultCode_t>(1 + i % kUpdatedRows);
            m_statements[i] = tbl->getSqlUpdateValuesQuery(m_statistics[i]) +
                              " WHERE FaultCode = " + std::to_string(m_statistics[i].FaultCode);
        }
    }

    void runLibrary() override { require(db.update(m_statistics[m_rotation.next()]) == 0, "update"); }
    void runBaseline() override { connection.exec(m_statements[m_rotation.next()]); }

private:
    std::array<FaultStatistic, kRecords> m_statistics;
    std::array<std::string, kRecords> m_statements;
    Rotation m_rotation;
};

/// Gives all faults of one start-up another start-up id.
class Renumber : public TwoFileWorkload
{
public:
    Renumber(std::string const& folder, unsigned int rows)
        : TwoFileWorkload(folder, rows, BareConnection::LIBRARY_SETTINGS)
    {
        // Take the statistics out of the renumbering, so that it moves exactly `rows` rows.
        connection.exec("UPDATE FdbFaultStatisticTbl SET RdbStartupId=0");
        for (unsigned int i = 1; i <= kStatistics; ++i)
        {
            FaultStatistic statistic = deviceStatistic(i);
            statistic.RdbStartupId = 0;
            require(db.update(statistic) == 0, "update");
        }
        auto const tbl = makeTbl<FdbSqlFaultTbl>(kFaultTbl);
        for (unsigned int id : {1U, 2U})
        {
            for (unsigned int i = 1; i <= rows; ++i)
            {
                Fault fault = deviceFault(i);
                fault.RdbStartupId = id;
                m_statements[id - 1].push_back(tbl->getSqlUpdateValuesQuery(fault) +
                                               " WHERE EntryId = " + std::to_string(i));
            }
        }
    }

    void runLibrary() override
    {
        require(db.updateRdbStartup(3 - m_id, m_id) == 0, "updateRdbStartup");
        m_id = 3 - m_id;
    }

    void runBaseline() override
    {
        connection.getTable("SELECT * FROM FdbFaultTbl WHERE RdbStartupId = " + std::to_string(m_id));
        m_id = 3 - m_id;
        for (std::string const& statement : m_statements[m_id - 1])
        {
            connection.exec(statement);
        }
        connection.getTable("SELECT * FROM FdbFaultStatisticTbl WHERE RdbStartupId = 1");
    }

private:
    unsigned int m_id = 1;
    std::array<std::vector<std::string>, 2> m_statements;
};

} // namespace

std::unique_ptr<Workload> recordFault(std::string const& folder)
{
    return std::make_unique<RecordFault>(folder);
}

std::unique_ptr<Workload> recordFaultDurably(std::string const& folder)
{
    return std::make_unique<RecordFaultDurably>(folder);
}

std::unique_ptr<Workload> recordIntoFile(std::string const& path)
{
    return std::make_unique<RecordIntoFile>(path);
}

std::unique_ptr<Workload> updateFault(std::string const& folder)
{
    return std::make_unique<UpdateFault>(folder);
}

std::unique_ptr<Workload> updateStatistic(std::string const& folder)
{
    return std::make_unique<UpdateStatistic>(folder);
}

std::unique_ptr<Workload> renumber(std::string const& folder, unsigned int rows)
{
    return std::make_unique<Renumber>(folder, rows);
}
