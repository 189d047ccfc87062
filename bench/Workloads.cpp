#include "Workloads.h"

#include "Files.h"

#include <fdb/FaultDb.h>
#include <fdb/tables/FdbSqlFaultStatisticTbl.h>
#include <fdb/tables/FdbSqlFaultTbl.h>

#include <array>
#include <map>
#include <optional>
#include <tuple>

#include <malloc.h>

namespace
{

constexpr unsigned int kRecords = 64;      ///< different records that are written in turn
constexpr unsigned int kUpdatedRows = 16;  ///< written in turn; an update that changes nothing writes nothing
constexpr unsigned int kSmallTable = 1000; ///< faults in a table of which one is read or written

enum Use
{
    READ,
    RECORD
};

/// A file of so many faults that all measurements of one use share: those that read find the same all the time.
std::string sharedFile(std::string const& folder, unsigned int faults, Use use)
{
    static std::map<std::tuple<std::string, unsigned int, Use>, std::unique_ptr<Folder>> folders;
    auto& owned = folders[{folder, faults, use}];
    if (!owned)
    {
        owned = std::make_unique<Folder>(folder);
        createFile(owned->file("faults.db"), faults);
    }
    return owned->file("faults.db");
}

/// The library's database, open for as long as the object lives.
class OpenDatabase
{
public:
    explicit OpenDatabase(std::string const& path) { require(db->openDb(path, false) == 0, "openDb"); }
    ~OpenDatabase() { db->closeDb(); }
    OpenDatabase(OpenDatabase const&) = delete;
    OpenDatabase& operator=(OpenDatabase const&) = delete;

    FaultDb* const db = FaultDb::getInstance();
};

/// A file for each side.
class TwoFiles
{
public:
    TwoFiles(std::string const& folder, unsigned int faults) : m_folder(folder)
    {
        createFile(ownFile(), faults);
        createFile(baselineFile(), faults);
    }

    std::string ownFile() const { return m_folder.file("library.db"); }
    std::string baselineFile() const { return m_folder.file("baseline.db"); }

private:
    Folder m_folder;
};

/// Both sides on files of their own.
class OnTwoFiles : public Workload
{
public:
    OnTwoFiles(std::string const& folder, unsigned int faults, BareConnection::Settings settings)
        : m_files(folder, faults), m_database(m_files.ownFile()), connection(m_files.baselineFile(), settings)
    {
    }

private:
    TwoFiles m_files;
    OpenDatabase m_database;

protected:
    FaultDb& db = *m_database.db;
    BareConnection connection;
};

/// Both sides on one file that holds the same all the time.
class OnOneFile : public Workload
{
public:
    explicit OnOneFile(std::string const& path) : m_database(path), connection(path, BareConnection::AS_THE_LIBRARY) {}

private:
    OpenDatabase m_database;

protected:
    FaultDb& db = *m_database.db;
    BareConnection connection;
};

/// Counts up to the number of records and begins anew.
class Turn
{
public:
    unsigned int next() { return m_turn = (m_turn + 1) % kRecords; }

private:
    unsigned int m_turn = 0;
};

template <class Tbl>
std::unique_ptr<Tbl> makeTbl(char const* name)
{
    auto tbl = std::make_unique<Tbl>(name);
    tbl->init("");
    return tbl;
}

char const* const kFaultTbl = "FdbFaultTbl";
char const* const kStatisticTbl = "FdbFaultStatisticTbl";

class RecordFault : public OnTwoFiles
{
public:
    explicit RecordFault(std::string const& folder) : OnTwoFiles(folder, kSmallTable, BareConnection::AS_THE_LIBRARY)
    {
        auto const tbl = makeTbl<FdbSqlFaultTbl>(kFaultTbl);
        for (unsigned int i = 0; i < kRecords; ++i)
        {
            m_faults[i] = deviceFault(i);
            m_statements[i] = tbl->getSqlInsertValuesQuery(m_faults[i]);
        }
    }

    void runLibrary() override { require(db.insert(m_faults[m_turn.next()]) == 0, "insert"); }

    void runBaseline() override
    {
        connection.exec(m_statements[m_turn.next()]);
        connection.getTable("SELECT * FROM FdbFaultTbl WHERE EntryId=(select max(EntryId) from FdbFaultTbl)");
    }

private:
    std::array<Fault, kRecords> m_faults;
    std::array<std::string, kRecords> m_statements;
    Turn m_turn;
};

/// The library alone, on a file that is given back the size that it had.
class RecordIntoFile : public OnOneFile
{
public:
    explicit RecordIntoFile(std::string const& path) : OnOneFile(path)
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

/// The code that a user would write without the library: a statement that is prepared once, on a connection left as it
/// is.
class RecordFaultDurably : public OnTwoFiles
{
public:
    explicit RecordFaultDurably(std::string const& folder)
        : OnTwoFiles(folder, kSmallTable, BareConnection::SQLITES_OWN)
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

    void runLibrary() override { require(db.insert(m_faults[m_turn.next()]) == 0, "insert"); }

    void runBaseline() override
    {
        Fault const& fault = m_faults[m_turn.next()];
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
    Turn m_turn;
};

class ReadFaults : public OnOneFile
{
public:
    using OnOneFile::OnOneFile;

    void runLibrary() override { require(db.getFaultTbl(m_faults.emplace()) > 0, "getFaultTbl"); }
    void runBaseline() override { connection.getTable("SELECT * FROM \"FdbFaultTbl\""); }
    void clean() override
    {
        m_faults.reset();
        malloc_trim(0); // Every call finds the heap as the first one of a process does.
    }

private:
    std::optional<FaultTbl> m_faults;
};

class ReadFaultById : public OnOneFile
{
public:
    ReadFaultById(std::string const& path, unsigned int rows) : OnOneFile(path), m_rows(rows)
    {
        for (unsigned int i = 0; i < kRecords; ++i)
        {
            m_statements[i] = "SELECT * FROM \"FdbFaultTbl\" WHERE EntryId=" + std::to_string(id(i));
        }
    }

    void runLibrary() override { require(db.getFaultById(m_fault, id(m_turn.next())) == 0, "getFaultById"); }
    void runBaseline() override { connection.getTable(m_statements[m_turn.next()]); }

private:
    unsigned long long id(unsigned int turn) const { return 1 + 7919ULL * turn % m_rows; }

    unsigned int m_rows;
    std::array<std::string, kRecords> m_statements;
    Fault m_fault;
    Turn m_turn;
};

class ReadStatisticByCode : public OnOneFile
{
public:
    explicit ReadStatisticByCode(std::string const& path) : OnOneFile(path)
    {
        for (unsigned int i = 0; i < kRecords; ++i)
        {
            m_statements[i] = "SELECT * FROM \"FdbFaultStatisticTbl\" WHERE FaultCode=" + std::to_string(i + 1);
        }
    }

    void runLibrary() override
    {
        require(db.getFaultStatisticForFC(m_statistic, m_turn.next() + 1) == 0, "getFaultStatisticForFC");
    }
    void runBaseline() override { connection.getTable(m_statements[m_turn.next()]); }

private:
    std::array<std::string, kRecords> m_statements;
    FaultStatistic m_statistic;
    Turn m_turn;
};

class UpdateFault : public OnTwoFiles
{
public:
    explicit UpdateFault(std::string const& folder) : OnTwoFiles(folder, kSmallTable, BareConnection::AS_THE_LIBRARY)
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

    void runLibrary() override { require(db.update(m_faults[m_turn.next()]) == 0, "update"); }
    void runBaseline() override { connection.exec(m_statements[m_turn.next()]); }

private:
    std::array<Fault, kRecords> m_faults;
    std::array<std::string, kRecords> m_statements;
    Turn m_turn;
};

class UpdateStatistic : public OnTwoFiles
{
public:
    explicit UpdateStatistic(std::string const& folder)
        : OnTwoFiles(folder, kSmallTable, BareConnection::AS_THE_LIBRARY)
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

    void runLibrary() override { require(db.update(m_statistics[m_turn.next()]) == 0, "update"); }
    void runBaseline() override { connection.exec(m_statements[m_turn.next()]); }

private:
    std::array<FaultStatistic, kRecords> m_statistics;
    std::array<std::string, kRecords> m_statements;
    Turn m_turn;
};

class CountStatistics : public OnOneFile
{
public:
    using OnOneFile::OnOneFile;

    void runLibrary() override { require(db.getFaultStatisticTblErrorNr(m_count) == 0, "getFaultStatisticTblErrorNr"); }
    void runBaseline() override { connection.exec("SELECT COUNT(*) FROM FdbFaultStatisticTbl"); }

private:
    unsigned short m_count = 0;
};

class CountActiveStatistics : public OnOneFile
{
public:
    using OnOneFile::OnOneFile;

    void runLibrary() override
    {
        require(db.getFaultStatisticTblErrorActiveNr(m_count) == 0, "getFaultStatisticTblErrorActiveNr");
    }
    void runBaseline() override
    {
        connection.exec("SELECT COUNT() FROM FdbFaultStatisticTbl WHERE FaultActive LIKE 'active'");
    }

private:
    unsigned short m_count = 0;
};

/// The text of a statement; there is nothing that it could be compared with.
class WriteStatement : public Workload
{
public:
    using Generator = std::string (SqlTbl<Fault>::*)(Fault const&);

    explicit WriteStatement(Generator generator) : m_generator(generator)
    {
        for (unsigned int i = 0; i < kRecords; ++i)
        {
            m_faults[i] = deviceFault(i);
        }
    }

    void runLibrary() override
    {
        m_length += (static_cast<SqlTbl<Fault>&>(*m_tbl).*m_generator)(m_faults[m_turn.next()]).size();
    }
    void runBaseline() override {}

private:
    Generator m_generator;
    std::unique_ptr<FdbSqlFaultTbl> m_tbl = makeTbl<FdbSqlFaultTbl>(kFaultTbl);
    std::array<Fault, kRecords> m_faults;
    Turn m_turn;
    std::size_t volatile m_length = 0;
};

/// One row of cells into the working record, and into one string each.
class DecodeFault : public Workload
{
public:
    explicit DecodeFault(std::string const& path)
    {
        BareConnection const connection(path, BareConnection::SQLITES_OWN);
        std::string const sql = "SELECT * FROM FdbFaultTbl LIMIT " + std::to_string(kRecords);
        require(sqlite3_get_table(connection.get(), sql.c_str(), &m_cells, &m_rows, &m_columns, nullptr) == SQLITE_OK,
                "sqlite3_get_table");
        m_copies.resize(static_cast<std::size_t>(m_columns));
        for (int i = 0; i < m_rows; ++i)
        {
            runLibrary();
            runBaseline();
        }
    }
    ~DecodeFault() override { sqlite3_free_table(m_cells); }

    void runLibrary() override { require(m_tbl->setDatafromSqlResult(nextRow()) == m_columns, "setDatafromSqlResult"); }

    void runBaseline() override
    {
        char** const row = nextRow();
        for (std::size_t i = 0; i < m_copies.size(); ++i)
        {
            m_copies[i] = row[i];
        }
    }

private:
    char** nextRow()
    {
        m_row = m_row % m_rows + 1;
        return m_cells + m_row * m_columns;
    }

    std::unique_ptr<FdbSqlFaultTbl> m_tbl = makeTbl<FdbSqlFaultTbl>(kFaultTbl);
    std::vector<std::string> m_copies;
    char** m_cells = nullptr;
    int m_rows = 0;
    int m_columns = 0;
    int m_row = 0;
};

/// All faults of one start-up get another start-up id.
class Renumber : public OnTwoFiles
{
public:
    Renumber(std::string const& folder, unsigned int rows) : OnTwoFiles(folder, rows, BareConnection::AS_THE_LIBRARY)
    {
        // Without the statistics, so that there are as many rows as the name says.
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

std::vector<WorkloadRow> makeWorkloads(Setting const& setting)
{
    std::string const memory = setting.memoryFolder;
    std::string const disk = setting.diskFolder;
    unsigned int const rows = setting.tableRows;
    unsigned int const renumberRows = setting.renumberRows;
    auto const small = [memory] { return sharedFile(memory, kSmallTable, READ); };
    std::string const same = "the same text";
    return {
        {"record one fault", same, CPU_TIME, 1.10, false, [=] { return std::make_unique<RecordFault>(memory); }},
        {"record one fault, durable", "DELETE, FULL, bound", WALL_TIME, 0.50, false,
         [=] { return std::make_unique<RecordFaultDurably>(disk); }},
        {"read " + std::to_string(rows) + " faults", "get_table", CPU_TIME, 1.20, true,
         [=] { return std::make_unique<ReadFaults>(sharedFile(memory, rows, READ)); }},
        {"read one fault by id", "get_table", CPU_TIME, 1.10, false,
         [=] { return std::make_unique<ReadFaultById>(small(), kSmallTable); }},
        {"read one statistic by code", "get_table", CPU_TIME, 1.10, false,
         [=] { return std::make_unique<ReadStatisticByCode>(small()); }},
        {"update one fault", same, CPU_TIME, 1.10, false, [=] { return std::make_unique<UpdateFault>(memory); }},
        {"update one statistic", same, CPU_TIME, 1.10, false,
         [=] { return std::make_unique<UpdateStatistic>(memory); }},
        {"count statistics", same, CPU_TIME, 1.10, false, [=] { return std::make_unique<CountStatistics>(small()); }},
        {"count active statistics", same, CPU_TIME, 1.10, false,
         [=] { return std::make_unique<CountActiveStatistics>(small()); }},
        {"write an INSERT text", "", CPU_TIME, 0, false,
         [=] { return std::make_unique<WriteStatement>(&SqlTbl<Fault>::getSqlInsertValuesQuery); }},
        {"write an UPDATE text", "", CPU_TIME, 0, false,
         [=] { return std::make_unique<WriteStatement>(&SqlTbl<Fault>::getSqlUpdateValuesQuery); }},
        {"decode one fault row", "copies of its cells", CPU_TIME, 2.0, false,
         [=] { return std::make_unique<DecodeFault>(small()); }},
        {"renumber " + std::to_string(renumberRows) + " faults", same, CPU_TIME, 1.10, true,
         [=] { return std::make_unique<Renumber>(memory, renumberRows); }},
    };
}

std::vector<Growth> makeGrowths(Setting const& setting)
{
    Growth record = {"record one fault", 1.3, {}};
    Growth read = {"read one fault by id", 1.3, {}};
    Growth count = {"count statistics", 0, {}};
    for (unsigned int const rows : setting.growthRows)
    {
        auto const file = [memory = setting.memoryFolder, rows](Use use) { return sharedFile(memory, rows, use); };
        record.points.push_back({rows, [=] { return std::make_unique<RecordIntoFile>(file(RECORD)); }});
        read.points.push_back({rows, [=] { return std::make_unique<ReadFaultById>(file(READ), rows); }});
        count.points.push_back({rows, [=] { return std::make_unique<CountStatistics>(file(READ)); }});
    }
    return {record, read, count};
}
