#include "FaultWorkload.h"

#include "FailingVfs.h"
#include "LongRecords.h"

#include <db/LogUtil.h>
#include <db/Sqlite3Db.h>

#include <sqlite3.h>

#include <algorithm>
#include <iostream>
#include <new>

namespace
{

// These are not result codes of the library.
constexpr int kThrew = -1000;
constexpr int kWrong = -1001;

constexpr unsigned int kOldStartup = 4011;
constexpr unsigned int kNewStartup = 5000;
constexpr int kBusyTimeoutMs = 5000;

bool isActive(FaultStatistic const& statistic)
{
    return statistic.FaultActive == FAULT_ACTIVE;
}

/// Returns whether the lock is free. Unlocks it otherwise, so that the test does not hang.
bool isLogLockFree()
{
    pthread_mutex_t* const mutex = &LogUtil::mutex.m_mutex;
    bool const isFree = pthread_mutex_trylock(mutex) == 0;
    return pthread_mutex_unlock(mutex) == 0 && isFree;
}

} // namespace

FaultWorkload::FaultWorkload(FaultPlan& plan, Start start, Tolerance tolerance, int dbgLevel)
    : m_plan(plan), m_start(start), m_tolerance(tolerance)
{
    m_db.setDbgLevel(dbgLevel);
    prepareFile();
}

FaultWorkload::~FaultWorkload()
{
    m_plan.clear();
    Sqlite3Db::getInstance(0)->m_debug = 0;
}

void FaultWorkload::prepareFile()
{
    EarlierFile const& bytes = m_start == WAL_FILE ? EarlierFile::wal() : EarlierFile::crashed();
    writeFile(m_path, bytes.file);
    if (!bytes.journal.empty())
    {
        writeFile(m_path + "-journal", bytes.journal);
    }
    for (unsigned int const seed : {1U, 2U})
    {
        Fault fault = longFault(seed);
        fault.EntryId = seed;
        m_faults.inserted(fault, true);
        m_statistics.inserted(longStatistic(seed), true);
    }
    m_isCreated = m_start != NEW_FILE;
}

/// The result of the operation, or `kThrew`.
template <class Operation>
int FaultWorkload::attempt(char const* name, Operation operation)
{
    unsigned int const firedBefore = m_plan.fired();
    int code = kThrew;
    m_plan.resume();
    try
    {
        code = operation();
    }
    catch (std::bad_alloc const&)
    {
    }
    m_plan.pause();
    m_wasHit = m_plan.fired() != firedBefore;
    m_threw = code == kThrew;
    EXPECT_TRUE(isLogLockFree()) << name;
    EXPECT_LE(FailingVfs::takeSleptMs(), kBusyTimeoutMs) << name << " waits longer than the busy timeout";
    EXPECT_TRUE(std::cout.good()) << name;
    return code;
}

/// Returns true when the operation succeeds. It may fail only with one of the codes, and only if a call below it
/// failed.
template <class Operation>
bool FaultWorkload::succeeds(char const* name, std::initializer_list<int> failureCodes, Operation operation)
{
    int const code = attempt(name, operation);
    if (code >= 0)
    {
        return true;
    }
    EXPECT_TRUE(m_wasHit) << name << " failed although no call below it failed: " << code;
    EXPECT_NE(m_tolerance, TOLERATES) << name << ": " << code;
    bool const isDocumented = std::find(failureCodes.begin(), failureCodes.end(), code) != failureCodes.end();
    EXPECT_TRUE(isDocumented || (m_threw && m_tolerance == MAY_THROW)) << name << ": " << code;
    return false;
}

template <class Table, class Record, class Operation>
void FaultWorkload::readTable(char const* name, Ledger<Record> const& expected, Operation operation)
{
    Table found;
    Record before;
    before.FaultCodeName = "from before";
    found.push_back(before);
    int count = -1;
    bool const isRead = succeeds(name, {RESULT_FAILED}, [&] { return count = operation(found); });
    if (isRead)
    {
        EXPECT_EQ(static_cast<std::size_t>(count), found.size()) << name;
        expected.expectHolds(found);
    }
    else if (!m_threw)
    {
        EXPECT_TRUE(found.size() == 1 && members(found.front()) == members(before)) << name;
    }
}

template <class Record, class Operation>
void FaultWorkload::readRecord(char const* name, Ledger<Record> const& expected, Operation operation)
{
    Record found;
    found.FaultCodeName = "from before";
    Record const before = found;
    if (succeeds(name, {RESULT_FAILED}, [&] { return operation(found); }))
    {
        expected.expectHolds({found});
    }
    else if (!m_threw)
    {
        EXPECT_EQ(members(found), members(before)) << name;
    }
}

template <class Operation>
void FaultWorkload::readCount(char const* name, Ledger<FaultStatistic> const& expected, Operation operation)
{
    constexpr unsigned short kBefore = 999;
    unsigned short count = kBefore;
    if (succeeds(name, {RESULT_FAILED}, [&] { return operation(count); }))
    {
        expected.expectCount(count);
    }
    else
    {
        EXPECT_EQ(count, kBefore) << name;
    }
}

void FaultWorkload::run()
{
    m_isCreated = m_isCreated || createFile();
    m_isOpen = m_isCreated && succeeds("openDb", {RESULT_FAILED}, [&] { return m_db.openDb(m_path, false); });
    if (!m_isOpen)
    {
        callWithoutDatabase();
        return;
    }
    write();
    read();
    if (m_start != NEW_FILE)
    {
        return; // Only opening, and the first write and read after it, differ from the other starts.
    }
    rewrite();
    readStatistics();
    move();
    read();
}

bool FaultWorkload::createFile()
{
    m_faults.clear();
    m_statistics.clear();
    if (!succeeds("createDb", {RESULT_FAILED}, [&] { return m_db.createDb(m_path, true); }))
    {
        return false;
    }
    static_cast<void>(succeeds("createDb of a file that exists", {},
                               [&]
                               { return m_db.createDb(m_path, false) == RESULT_FILE_EXISTS ? RESULT_OK : kWrong; }));
    return true;
}

void FaultWorkload::insert(Fault& fault)
{
    unsigned long long const keyBefore = fault.EntryId;
    bool const isStored = succeeds("insert of a fault", {RESULT_FAILED}, [&] { return m_db.insert(fault); });
    if (!isStored)
    {
        EXPECT_EQ(fault.EntryId, keyBefore);
    }
    m_faults.inserted(fault, isStored, true); // The row may be stored if only reading back its key failed.
}

void FaultWorkload::insert(FaultStatistic const& statistic)
{
    m_statistics.inserted(statistic,
                          succeeds("insert of a statistic", {RESULT_FAILED}, [&] { return m_db.insert(statistic); }));
}

void FaultWorkload::write()
{
    m_first = longFault(11);
    Fault second = longFault(12);
    insert(m_first);
    insert(second);
    insert(longStatistic(11));
    insert(longStatistic(12));
}

void FaultWorkload::rewrite()
{
    bool const isStored = m_first.EntryId != longFault(11).EntryId;
    m_first.Description.append(5000, '+');
    m_first.Parameter = "rewritten";
    bool const isRewritten = succeeds("update of a fault", {RESULT_FAILED}, [&] { return m_db.update(m_first); });
    if (isStored) // Otherwise the key is unknown, and no row was updated.
    {
        m_faults.updated(m_first, isRewritten);
    }
    FaultStatistic statistic = longStatistic(11);
    statistic.FaultCodeName.append(5000, '+');
    statistic.OccurenceCnt = 500;
    m_statistics.updated(statistic,
                         succeeds("update of a statistic", {RESULT_FAILED}, [&] { return m_db.update(statistic); }));
}

void FaultWorkload::read()
{
    readTable<FaultTbl>("getFaultTbl", m_faults, [&](FaultTbl& found) { return m_db.getFaultTbl(found); });
    readTable<FaultTbl>(
        "getFaultTbl by query", m_faults,
        [&](FaultTbl& found)
        { return m_db.getFaultTbl("SELECT * FROM FdbFaultTbl WHERE LoggerUpTime > 0 ORDER BY EntryId DESC", found); });
    auto const isFirst = [&](Fault const& fault) { return identityOf(fault) == identityOf(m_first); };
    if (m_first.EntryId != longFault(11).EntryId)
    {
        readRecord("getFaultById", m_faults.part(isFirst),
                   [&](Fault& found) { return m_db.getFaultById(found, m_first.EntryId); });
    }
    FdbVersion version;
    static_cast<void>(succeeds("getFormatVersion", {RESULT_FAILED},
                               [&]
                               {
                                   int const code = m_db.getFormatVersion(version);
                                   return code != RESULT_OK || version.Version == "1.0.0" ? code : kWrong;
                               }));
}

void FaultWorkload::readStatistics()
{
    readTable<FaultStatisticTbl>("getFaultStatisticTbl", m_statistics,
                                 [&](FaultStatisticTbl& found) { return m_db.getFaultStatisticTbl(found); });
    readTable<FaultStatisticTbl>(
        "getFaultStatisticTbl by query", m_statistics,
        [&](FaultStatisticTbl& found)
        { return m_db.getFaultStatisticTbl("SELECT * FROM FdbFaultStatisticTbl ORDER BY FaultCode DESC", found); });
    Ledger<FaultStatistic> const active = m_statistics.part(isActive);
    readTable<FaultStatisticTbl>("getFaultStatisticTblErrorActive", active,
                                 [&](FaultStatisticTbl& found) { return m_db.getFaultStatisticTblErrorActive(found); });
    auto const isFirst = [](FaultStatistic const& statistic)
    { return statistic.FaultCode == longStatistic(11).FaultCode; };
    Ledger<FaultStatistic> const first = m_statistics.part(isFirst);
    if (first.isSure())
    {
        readRecord("getFaultStatisticForFC", first,
                   [&](FaultStatistic& found)
                   { return m_db.getFaultStatisticForFC(found, longStatistic(11).FaultCode); });
    }
    readCount("getFaultStatisticTblErrorNr", m_statistics,
              [&](unsigned short& count) { return m_db.getFaultStatisticTblErrorNr(count); });
    readCount("getFaultStatisticTblErrorActiveNr", active,
              [&](unsigned short& count) { return m_db.getFaultStatisticTblErrorActiveNr(count); });
}

void FaultWorkload::move()
{
    bool const isMoved =
        succeeds("updateRdbStartup", {}, [&] { return m_db.updateRdbStartup(kNewStartup, kOldStartup); });
    m_faults.moved(kNewStartup, kOldStartup, isMoved && !m_wasHit);
    m_statistics.moved(kNewStartup, kOldStartup, isMoved && !m_wasHit);
}

template <class Operation>
void FaultWorkload::expectRefused(char const* name, Operation operation)
{
    int const code = attempt(name, operation);
    bool const isDocumented = code == RESULT_INVALID_STATE || code == RESULT_FAILED;
    EXPECT_TRUE(isDocumented || (m_threw && m_wasHit && m_tolerance == MAY_THROW))
        << name << " without a database: " << code;
}

void FaultWorkload::callWithoutDatabase()
{
    FaultTbl faults;
    unsigned short count = 0;
    Fault fault = longFault(11);
    expectRefused("insert", [&] { return m_db.insert(fault); });
    expectRefused("update", [&] { return m_db.update(longStatistic(11)); });
    expectRefused("getFaultTbl", [&] { return m_db.getFaultTbl(faults); });
    expectRefused("getFaultById", [&] { return m_db.getFaultById(fault, 1); });
    expectRefused("getFaultStatisticTblErrorNr", [&] { return m_db.getFaultStatisticTblErrorNr(count); });
    expectRefused("closeDb", [&] { return m_db.closeDb(); });
}

void FaultWorkload::goOn()
{
    if (!m_isCreated)
    {
        m_isCreated = createFile();
    }
    if (!m_isOpen)
    {
        reopen();
    }
    EXPECT_EQ(Sqlite3Db::getInstance(0)->m_dbHandles.size(), 1U) << "a connection leaked";
    Fault fault = longFault(21);
    insert(fault);
    insert(longStatistic(21));
    Fault stored;
    EXPECT_EQ(m_db.getFaultById(stored, fault.EntryId), 0);
    EXPECT_EQ(members(stored), members(fault));
    readStatistics();
    expectDurable();
}

/// Opens the file after a failed `openDb` or `createDb`, which may have left the object open by name.
void FaultWorkload::reopen()
{
    if (m_db.openDb(m_path, false) == RESULT_OK)
    {
        return;
    }
    EXPECT_EQ(m_db.createDb(m_dir.file("way back.db"), true), RESULT_OK);
    EXPECT_EQ(m_db.openDb(m_path, false), RESULT_OK);
}

/// Expects that a connection that was opened during failures has the settings that make it durable.
void FaultWorkload::expectDurable()
{
    EXPECT_EQ(readPragma("synchronous"), "2");
    EXPECT_EQ(readPragma("journal_mode"), m_start == WAL_FILE ? "wal" : "persist");
    EXPECT_EQ(readPragma("cell_size_check"), "1");
}

std::string FaultWorkload::readPragma(char const* name) const
{
    Sqlite3Db::DbHandle const* const entry = Sqlite3Db::getInstance(0)->findOpen(m_db.m_dbHandle);
    if (entry == nullptr)
    {
        return "no connection";
    }
    std::string value;
    auto const take = [](void* target, int, char** cells, char**)
    {
        *static_cast<std::string*>(target) = cells[0];
        return 0;
    };
    sqlite3_exec(entry->db, (std::string("PRAGMA ") + name).c_str(), take, &value, nullptr);
    return value;
}

void FaultWorkload::close()
{
    m_plan.arm(1, FaultPlan::UNTIL_CLEARED);
    bool const isClosed = succeeds("closeDb", {RESULT_INVALID_STATE}, [&] { return m_db.closeDb(); });
    m_plan.clear();
    EXPECT_TRUE(isClosed || m_db.closeDb() == RESULT_OK);
    EXPECT_TRUE(Sqlite3Db::getInstance(0)->m_dbHandles.empty());
    EXPECT_EQ(m_db.closeDb(), RESULT_INVALID_STATE);
    expectFileHolds();
}

void FaultWorkload::expectFileHolds()
{
    constexpr std::size_t kFormatByte = 18; // In the file's header: 1 with a journal, 2 with a write-ahead log.
    EXPECT_EQ(readFile(m_path).at(kFormatByte), m_start == WAL_FILE ? 2 : 1);
    RawDb raw(m_path);
    EXPECT_EQ(raw.value("PRAGMA integrity_check"), "ok");
    EXPECT_EQ(raw.value("SELECT group_concat(Component || Version) FROM FdbVersionTbl"), "FormatVersion1.0.0");
    std::vector<Fault> const faults = storedFaults(raw);
    std::vector<FaultStatistic> const statistics = storedStatistics(raw);
    m_faults.expectHolds(faults);
    m_statistics.expectHolds(statistics);
    m_unacknowledged = m_faults.countUnacknowledged(faults) + m_statistics.countUnacknowledged(statistics);
}
