#include "HistoryBaselines.h"

namespace
{

constexpr char kInsert[] = "INSERT INTO FdbFaultTbl VALUES(null,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?)";
constexpr int kBusyTimeoutMs = 60'000;

sqlite3_stmt* prepare(BareConnection const& connection, char const* sql)
{
    sqlite3_stmt* statement = nullptr;
    require(sqlite3_prepare_v2(connection.get(), sql, -1, &statement, nullptr) == SQLITE_OK, sql);
    return statement;
}

void bind(sqlite3_stmt* statement, int parameter, std::string const& text)
{
    sqlite3_bind_text(statement, parameter, text.data(), static_cast<int>(text.size()), SQLITE_STATIC);
}

void bind(sqlite3_stmt* statement, int parameter, unsigned long long number)
{
    sqlite3_bind_int64(statement, parameter, static_cast<sqlite3_int64>(number));
}

void bindFault(sqlite3_stmt* insert, Fault const& fault)
{
    bind(insert, 1, fault.DateTimeString);
    bind(insert, 2, fault.FaultCode);
    bind(insert, 3, fault.FaultCodeName);
    bind(insert, 4, fault.ModuleName);
    bind(insert, 5, fault.Parameter);
    bind(insert, 6, fault.TimeStampUTC);
    bind(insert, 7, fault.TimeZone);
    sqlite3_bind_text(insert, 8, fault.Status == FAULT_ACTIVE ? "ErrorActive" : "ErrorInactive", -1, SQLITE_STATIC);
    bind(insert, 9, fault.Description);
    bind(insert, 10, fault.DiagSignalsDumpFileName);
    bind(insert, 11, fault.LoggerUpTime);
    bind(insert, 12, fault.LoggerLifeTime);
    bind(insert, 13, fault.CfgBackupFile);
    bind(insert, 14, fault.RdbStartupId);
    bind(insert, 15, fault.SystemDateTimeString);
}

void runOnce(sqlite3_stmt* statement)
{
    require(sqlite3_step(statement) == SQLITE_DONE && sqlite3_reset(statement) == SQLITE_OK, sqlite3_sql(statement));
}

template <class Record>
std::vector<Record> makeAll(Record (*make)(unsigned int))
{
    std::vector<Record> records;
    for (unsigned int seed = 0; seed < kDifferentFaults; ++seed)
    {
        records.push_back(make(seed));
    }
    return records;
}

} // namespace

firaim::FaultEvent deviceEvent(unsigned int seed)
{
    Fault const fault = deviceFault(seed);
    firaim::FaultEvent event;
    event.code = fault.FaultCode;
    event.status = fault.Status;
    event.module = fault.ModuleName;
    event.parameter = fault.Parameter;
    event.description = fault.Description;
    event.signalsFile = fault.DiagSignalsDumpFileName;
    event.configBackup = fault.CfgBackupFile;
    event.lifeTime = fault.LoggerLifeTime;
    return event;
}

void RecordingSide::record(unsigned int faults)
{
    for (unsigned int i = 0; i < faults; ++i)
    {
        record();
    }
}

OpenRecorder::OpenRecorder(std::string const& path, firaim::RecorderOptions const& options)
{
    require(m_recorder.open(path, options) == firaim::HISTORY_OK, "FaultRecorder::open");
}

void OpenRecorder::fill(unsigned int faults)
{
    constexpr unsigned int kInCall = 1000;
    std::vector<firaim::FaultEvent> const different = makeAll(deviceEvent);
    std::vector<firaim::Receipt> receipts;
    for (unsigned int done = 0; done < faults; done += kInCall)
    {
        std::vector<firaim::FaultEvent> events;
        for (unsigned int i = done; i < faults && i < done + kInCall; ++i)
        {
            events.push_back(different[i % kDifferentFaults]);
        }
        require(m_recorder.recordAll(events, receipts) == firaim::HISTORY_OK, "recordAll");
    }
}

RecorderSide::RecorderSide(OpenRecorder& recorder) : m_recorder(recorder.get()), m_events(makeAll(deviceEvent)) {}

void RecorderSide::record()
{
    // Long enough for a busy machine: a call that gives up measures nothing.
    constexpr std::chrono::minutes kTimeout(1);
    firaim::Receipt const receipt = m_recorder.record(m_events[nextIndex()], kTimeout);
    require(receipt.result == firaim::HISTORY_OK, "FaultRecorder::record");
}

BoundStatementSide::BoundStatementSide(std::string const& path)
    : m_connection(path, BareConnection::LIBRARY_SETTINGS), m_faults(makeAll(deviceFault))
{
    m_connection.exec("PRAGMA journal_size_limit=65536"); // The recorder's setting.
    sqlite3_busy_timeout(m_connection.get(), kBusyTimeoutMs);
    m_begin = prepare(m_connection, "BEGIN IMMEDIATE");
    m_insert = prepare(m_connection, kInsert);
    m_countActive = prepare(m_connection, "UPDATE FdbFaultStatisticTbl SET FaultCodeName=?1, TimeLastOccurredUTC=?2,"
                                          " TimeZoneLastOccurred=?3, OccurenceCnt=min(OccurenceCnt+1,65535),"
                                          " FaultActive='ErrorActive',"
                                          " FaultActiveCycleCnt=min(FaultActiveCycleCnt+1,65535),"
                                          " FaultEntryId=?4, RdbStartupId=?5 WHERE FaultCode=?6");
    m_noteInactive = prepare(m_connection, "UPDATE FdbFaultStatisticTbl SET FaultCodeName=?1,"
                                           " FaultActive='ErrorInactive', FaultEntryId=?4, RdbStartupId=?5"
                                           " WHERE FaultCode=?6");
    m_commit = prepare(m_connection, "COMMIT");
}

BoundStatementSide::~BoundStatementSide()
{
    for (sqlite3_stmt* const statement : {m_begin, m_insert, m_countActive, m_noteInactive, m_commit})
    {
        sqlite3_finalize(statement);
    }
}

void BoundStatementSide::record()
{
    Fault const& fault = m_faults[nextIndex()];
    runOnce(m_begin);
    bindFault(m_insert, fault);
    runOnce(m_insert);
    sqlite3_stmt* const update = fault.Status == FAULT_ACTIVE ? m_countActive : m_noteInactive;
    bind(update, 1, fault.FaultCodeName);
    if (fault.Status == FAULT_ACTIVE)
    {
        bind(update, 2, fault.TimeStampUTC);
        bind(update, 3, fault.TimeZone);
    }
    sqlite3_bind_int64(update, 4, sqlite3_last_insert_rowid(m_connection.get()));
    bind(update, 5, fault.RdbStartupId);
    bind(update, 6, fault.FaultCode);
    runOnce(update);
    runOnce(m_commit);
}

FacadeSide::FacadeSide(std::string const& path)
    : m_db(*FaultDb::getInstance()), m_faults(makeAll(deviceFault)), m_statistics(makeAll(deviceStatistic))
{
    require(m_db.openDb(path, false) == RESULT_OK, "openDb");
}

FacadeSide::~FacadeSide()
{
    m_db.closeDb();
}

void FacadeSide::record()
{
    unsigned int const turn = nextIndex();
    Fault& fault = m_faults[turn];
    FaultStatistic& statistic = m_statistics[turn];
    require(m_db.insert(fault) == RESULT_OK, "insert");
    // Change the row: SQLite writes nothing when an update changes nothing.
    ++statistic.OccurenceCnt;
    statistic.FaultEntryId = fault.EntryId;
    require(m_db.update(statistic) == RESULT_OK, "update");
}

void addFaults(std::string const& path, unsigned int faults)
{
    BareConnection const connection(path, BareConnection::SQLITE_DEFAULTS);
    sqlite3_stmt* const insert = prepare(connection, kInsert);
    connection.exec("PRAGMA synchronous=OFF");
    connection.exec("BEGIN");
    for (unsigned int seed = 1; seed <= faults; ++seed)
    {
        Fault const fault = deviceFault(seed);
        bindFault(insert, fault);
        runOnce(insert);
    }
    connection.exec("COMMIT");
    sqlite3_finalize(insert);
}
