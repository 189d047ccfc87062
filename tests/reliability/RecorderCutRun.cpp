#include "RecorderCutRun.h"

#include "PowerCutSupport.h"

#include <algorithm>
#include <iterator>

using namespace firaim;

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
    ASSERT_EQ(receipt.result, HISTORY_OK) << m_recorder.lastProblem();
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

void RecorderCutRun::open(RecorderOptions const& options)
{
    m_keepNewest = std::max(m_keepNewest, options.keepNewest);
    EXPECT_EQ(m_recorder.open(m_path, options), HISTORY_OK) << m_recorder.lastProblem();
    finish("open");
}

void RecorderCutRun::close()
{
    m_pruned += m_recorder.counters().pruned;
    EXPECT_EQ(m_recorder.close(), HISTORY_OK) << m_recorder.lastProblem();
    finish("close");
}

void RecorderCutRun::record(std::uint64_t code, std::string const& module, faultStatus_t status)
{
    FaultEvent const event = eventOf(code, module, status);
    acknowledged(event, m_recorder.record(event));
    finish("record");
}

void RecorderCutRun::raise(std::uint64_t code, std::string const& module)
{
    FaultEvent const event = eventOf(code, module);
    acknowledged(event, m_recorder.raise(event));
    finish("raise");
}

void RecorderCutRun::clear(std::uint64_t code, std::string const& module)
{
    FaultEvent const event = eventOf(code, module, FAULT_INACTIVE);
    acknowledged(event, m_recorder.clear(event));
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
    EXPECT_EQ(m_recorder.recordAll(events, receipts), HISTORY_OK) << m_recorder.lastProblem();
    ASSERT_EQ(receipts.size(), events.size());
    for (std::size_t i = 0; i < events.size(); ++i)
    {
        acknowledged(events[i], receipts[i]);
    }
    finish("recordAll");
}

void RecorderCutRun::endCycle()
{
    EXPECT_EQ(m_recorder.endCycle(), HISTORY_OK) << m_recorder.lastProblem();
    finish("endCycle");
}

void RecorderCutRun::clearCode(std::uint64_t code)
{
    FaultEvent const event = eventOf(code, "", FAULT_INACTIVE);
    Keys keys;
    EXPECT_EQ(m_recorder.clearCode(event, keys), HISTORY_OK) << m_recorder.lastProblem();
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
        EXPECT_EQ(m_recorder.record(eventOf(code, "storm")).result, HISTORY_COUNTED);
    }
    m_occurrences[code] += kCounted;
    std::uint64_t left = 0;
    EXPECT_EQ(m_recorder.flush(left), HISTORY_OK) << m_recorder.lastProblem();
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

void RecorderCutRun::run()
{
    m_vfs.start(m_directory.path());
    open({});
    mixture();
    close();
    RecorderOptions options;
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
}
