#include "RecorderCutRun.h"

#include "PowerCutSupport.h"

#include <algorithm>
#include <iterator>
#include <utility>

using namespace firaim;

namespace
{

/// Otherwise the last connection to be closed copies the write-ahead log into the file and removes it.
void keepLog(sqlite3* db)
{
    EXPECT_EQ(sqlite3_db_config(db, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr), SQLITE_OK);
}

} // namespace

std::optional<Recorded> readRecorded(std::string const& path)
{
    auto const addFault = [](void* content, int count, char** cells, char**)
    {
        for (int i = 0; i < count; ++i)
        {
            static_cast<Recorded*>(content)->faults += (cells[i] != nullptr ? cells[i] : "NULL") + std::string("\x1f");
        }
        return 0;
    };
    auto const addStatistic = [](void* content, int count, char** cells, char**)
    {
        auto& recorded = *static_cast<Recorded*>(content);
        std::uint64_t const code = std::stoull(cells[0]);
        recorded.counts[code] += static_cast<unsigned int>(std::stoul(cells[1]));
        for (int i = 0; i < count; ++i)
        {
            recorded.statistics[code] += (cells[i] != nullptr ? cells[i] : "NULL") + std::string("\x1f");
        }
        return 0;
    };
    Recorded content;
    sqlite3* db = nullptr;
    int code = sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READWRITE, nullptr);
    keepLog(db);
    if (code == SQLITE_OK)
    {
        code = sqlite3_exec(db, "SELECT * FROM FdbFaultTbl ORDER BY EntryId", addFault, &content, nullptr);
    }
    if (code == SQLITE_OK)
    {
        code = sqlite3_exec(db, "SELECT FaultCode, OccurenceCnt, * FROM FdbFaultStatisticTbl ORDER BY EntryId",
                            addStatistic, &content, nullptr);
    }
    return sqlite3_close(db) == SQLITE_OK && code == SQLITE_OK ? std::optional(content) : std::nullopt;
}

bool RecorderCutRun::Call::allows(Recorded const& found) const
{
    if (found == before || found == after)
    {
        return true;
    }
    if (!stormCode || found.faults != before.faults || found.counts.count(*stormCode) == 0)
    {
        return false;
    }
    Recorded rest = found;
    rest.statistics[*stormCode] = before.statistics.at(*stormCode);
    unsigned int const count = found.counts.at(*stormCode);
    return rest == before && count >= before.counts.at(*stormCode) && count <= after.counts.at(*stormCode);
}

RecorderCutRun::RecorderCutRun(Journal journal, std::string pragma) : m_journal(journal), m_pragma(std::move(pragma)) {}

std::size_t RecorderCutRun::logStarts() const
{
    constexpr char kMagic[] = "\x37\x7f\x06"; // One bit of the byte that follows is the byte order of the checksums.
    auto const isStart = [&](DiskOperation const& operation)
    {
        return operation.kind == DiskOperation::WRITE && operation.position == 0 &&
               operation.bytes.compare(0, sizeof kMagic - 1, kMagic) == 0;
    };
    return static_cast<std::size_t>(std::count_if(m_operations.begin(), m_operations.end(), isStart));
}

std::size_t RecorderCutRun::databaseSynchronisations() const
{
    std::size_t count = 0;
    int database = -1;
    for (DiskOperation const& operation : m_operations)
    {
        if (operation.kind == DiskOperation::CREATE && operation.name == kFileName)
        {
            database = operation.file;
        }
        count += operation.kind == DiskOperation::SYNC_FILE && operation.file == database ? 1U : 0U;
    }
    return count;
}

FaultEvent RecorderCutRun::eventOf(std::uint64_t code, std::string const& module, faultStatus_t status)
{
    FaultEvent event;
    event.code = code;
    event.status = status;
    event.module = module;
    event.parameter = "parameter";
    // Some rows need overflow pages.
    constexpr std::size_t kLengths[] = {0, 40, 300, 6000};
    ++m_number;
    event.description = std::to_string(m_number) + std::string(kLengths[m_number % std::size(kLengths)], 'd');
    return event;
}

void RecorderCutRun::acknowledged(FaultEvent const& event, Receipt const& receipt)
{
    ASSERT_EQ(receipt.result, HISTORY_OK) << m_writer->lastProblem();
    EXPECT_TRUE(m_acknowledged.emplace(receipt.key, event).second) << "duplicate key: " << receipt.key;
    m_occurrences[event.code] += event.status == FAULT_ACTIVE ? 1 : 0;
    ++m_rows;
}

/// Checks that the file holds the acknowledged events, and notes its content after the call.
void RecorderCutRun::finish(std::string const& name, std::optional<std::uint64_t> stormCode)
{
    auto const& operations = m_vfs.operations();
    for (std::size_t i = m_operations.size(); i < operations.size(); ++i)
    {
        m_disk.apply(operations[i]);
        m_operations.push_back(operations[i]);
    }
    // Every change of the files must have been recorded, as otherwise the cuts would be at wrong places.
    EXPECT_TRUE(m_disk.current() == filesIn(m_directory.path())) << name;
    std::optional<Recorded> const content = readRecorded(m_path);
    ASSERT_TRUE(content) << name;
    m_calls.push_back({name, m_operations.size(), m_content, *content, stormCode});
    m_content = *content;
    SCOPED_TRACE(name);
    expectAcknowledged();
}

void RecorderCutRun::expectAcknowledged()
{
    RawDb raw(m_path);
    keepLog(raw.handle());
    for (auto const& row : raw.rows("SELECT FaultCode, OccurenceCnt FROM FdbFaultStatisticTbl"))
    {
        EXPECT_EQ(row[1], std::to_string(m_occurrences[std::stoull(*row[0])])) << "code " << *row[0];
    }
    std::map<unsigned long long, RawDb::Row> rows;
    for (auto const& row : raw.rows("SELECT EntryId, FaultCode, ModuleName, Description, Status FROM FdbFaultTbl"))
    {
        rows[std::stoull(*row[0])] = row;
    }
    unsigned long long const newest = rows.empty() ? 0 : rows.rbegin()->first;
    for (auto const& [key, event] : m_acknowledged)
    {
        auto const row = rows.find(key);
        if (row == rows.end())
        {
            EXPECT_TRUE(m_keepNewest != 0 && key + m_keepNewest <= newest) << "row " << key << " is missing";
            continue;
        }
        char const* const status = event.status == FAULT_ACTIVE ? "ErrorActive" : "ErrorInactive";
        EXPECT_EQ(row->second, (RawDb::Row{std::to_string(key), std::to_string(event.code), event.module,
                                           event.description, status}));
    }
}

void RecorderCutRun::checkpointEarly() const
{
    constexpr int kPages = 30;
    EXPECT_EQ(sqlite3_wal_autocheckpoint(m_newest.get(), kPages), SQLITE_OK);
}

void RecorderCutRun::open(RecorderOptions const& options)
{
    m_keepNewest = std::max(m_keepNewest, options.keepNewest);
    EXPECT_EQ(m_writer->open(m_path, options), HISTORY_OK) << m_writer->lastProblem();
    EXPECT_EQ(sqlite3_exec(m_newest.get(), m_pragma.c_str(), nullptr, nullptr, nullptr), SQLITE_OK);
    checkpointEarly();
    finish("open");
}

void RecorderCutRun::close()
{
    m_pruned += m_writer->counters().pruned;
    EXPECT_EQ(m_writer->close(), HISTORY_OK) << m_writer->lastProblem();
    finish("close");
}

void RecorderCutRun::record(std::uint64_t code, std::string const& module, faultStatus_t status)
{
    FaultEvent const event = eventOf(code, module, status);
    acknowledged(event, m_writer->record(event));
    finish("record");
}

void RecorderCutRun::raise(std::uint64_t code, std::string const& module)
{
    FaultEvent const event = eventOf(code, module);
    acknowledged(event, m_writer->raise(event));
    finish("raise");
}

void RecorderCutRun::clear(std::uint64_t code, std::string const& module)
{
    FaultEvent const event = eventOf(code, module, FAULT_INACTIVE);
    acknowledged(event, m_writer->clear(event));
    finish("clear");
}

void RecorderCutRun::recordGroup()
{
    constexpr unsigned int kEvents = 20;
    std::vector<FaultEvent> events;
    for (unsigned int i = 0; i < kEvents; ++i)
    {
        events.push_back(
            eventOf(200 + i % 3, "group " + std::to_string(m_number), i % 4 != 0 ? FAULT_ACTIVE : FAULT_INACTIVE));
    }
    std::vector<Receipt> receipts;
    EXPECT_EQ(m_writer->recordAll(events, receipts), HISTORY_OK) << m_writer->lastProblem();
    ASSERT_EQ(receipts.size(), events.size());
    for (std::size_t i = 0; i < events.size(); ++i)
    {
        acknowledged(events[i], receipts[i]);
    }
    finish("recordAll");
}

void RecorderCutRun::endCycle()
{
    EXPECT_EQ(m_writer->endCycle(), HISTORY_OK) << m_writer->lastProblem();
    finish("endCycle");
}

void RecorderCutRun::clearCode(std::uint64_t code)
{
    FaultEvent const event = eventOf(code, "", FAULT_INACTIVE);
    Keys keys;
    EXPECT_EQ(m_writer->clearCode(event, keys), HISTORY_OK) << m_writer->lastProblem();
    EXPECT_GT(keys.size(), 1U);
    m_rows += keys.size();
    finish("clearCode");
}

/// Records the rows of the burst and events that are counted, then lets the recorder write the row with the count.
void RecorderCutRun::storm(std::uint64_t code)
{
    record(code, "storm", FAULT_ACTIVE);
    record(code, "storm", FAULT_ACTIVE);
    constexpr unsigned int kCounted = 6;
    for (unsigned int i = 0; i < kCounted; ++i)
    {
        EXPECT_EQ(m_writer->record(eventOf(code, "storm")).result, HISTORY_COUNTED);
    }
    m_occurrences[code] += kCounted;
    std::uint64_t left = 0;
    EXPECT_EQ(m_writer->flush(left), HISTORY_OK) << m_writer->lastProblem();
    ++m_rows;
    finish("flush of a storm", code);
}

void RecorderCutRun::mixture()
{
    for (unsigned int i = 0; i < 4; ++i)
    {
        record(100 + i % 2, "module " + std::to_string(i), i == 3 ? FAULT_INACTIVE : FAULT_ACTIVE);
    }
    raise(7, "a");
    raise(7, "b");
    endCycle();
    clear(7, "a");
    raise(7, "a");
    recordGroup();
    clearCode(7);
    endCycle();
}

/// Two recorders take turns, so that each reads what the other one has written.
void RecorderCutRun::twoWriters()
{
    m_writer = &m_second;
    open({});
    for (unsigned int i = 0; i < 4; ++i)
    {
        m_writer = i % 2 == 0 ? &m_recorder : &m_second;
        record(400, "of both", FAULT_ACTIVE);
    }
    raise(8, "of both");
    m_writer = &m_recorder;
    clear(8, "of both");
    m_writer = &m_second;
    close();
    m_writer = &m_recorder;
}

/// Another program changes the journal mode of the file, and a recorder keeps it.
void RecorderCutRun::changeJournal(std::string const& mode)
{
    EXPECT_EQ(RawDb(m_path).value("PRAGMA journal_mode=" + mode), mode);
    finish("change of the journal mode to " + mode);
    open({});
    record(500, mode, FAULT_ACTIVE);
    close();
}

/// Another program empties the log, or copies it into the file so that it begins again with the next commit.
void RecorderCutRun::checkpoint(std::string const& mode)
{
    RawDb(m_path).exec("PRAGMA wal_checkpoint(" + mode + ')');
    finish("checkpoint " + mode);
    record(500, mode, FAULT_ACTIVE);
}

/// Checkpoints copy no frame that is newer than the reader's, so the log grows and holds frames that are in the file.
void RecorderCutRun::recordBesideReader()
{
    RawDb reader(m_path);
    reader.exec("BEGIN");
    EXPECT_NE(reader.value("SELECT count(*) FROM FdbFaultTbl"), "0");
    recordGroup();
    recordGroup();
    reader.exec("COMMIT");
    record(500, "after the reader", FAULT_ACTIVE);
}

/// Another program is the last one to close the file: SQLite copies the log into it and removes the log.
void RecorderCutRun::closeElsewhere()
{
    EXPECT_NE(RawDb(m_path).value("SELECT count(*) FROM FdbFaultTbl"), "0");
    EXPECT_FALSE(exists(m_path + "-wal"));
    finish("close of another program");
}

void RecorderCutRun::recordOnInNewLog()
{
    closeElsewhere();
    open({});
    record(500, "new log", FAULT_ACTIVE);
    close();
}

void RecorderCutRun::useLogInEachWay()
{
    checkpoint("PASSIVE");
    recordBesideReader();
    checkpoint("TRUNCATE");
    close();
    recordOnInNewLog();
    changeJournal("delete");
    changeJournal("wal");
    open({});
}

void RecorderCutRun::run()
{
    m_vfs.start(m_directory.path());
    RecorderOptions options;
    options.journal = m_journal;
    open(options);
    mixture();
    twoWriters();
    if (hasLog())
    {
        useLogInEachWay();
    }
    close();
    options.stormBurst = 2;
    options.stormRowsPerMinute = 1;
    options.keepNewest = 15;
    open(options);
    storm(300);
    mixture();
    storm(301);
    close();
    open({});
    close();
    m_vfs.stop();
    EXPECT_GT(m_pruned, 0U);
    if (hasLog())
    {
        // Otherwise cuts in a checkpoint and in the first commit of a log would be too few.
        EXPECT_GT(databaseSynchronisations(), 8U);
        EXPECT_GT(logStarts(), 8U);
    }
}
