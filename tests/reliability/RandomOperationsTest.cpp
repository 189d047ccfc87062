// Long random sequences of all operations of a client, on files of several origins. After each step the three tables
// are compared with a model in memory.

#include "Fixtures.h"
#include "OperationScript.h"
#include "TableModel.h"

#include <algorithm>
#include <cstdio>
#include <optional>

namespace
{

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || defined(FIRAIM_TEST_IS_EMULATED)
constexpr unsigned int kSteps = 500;
#else
constexpr unsigned int kSteps = 3000;
#endif
constexpr std::size_t kMaxFaults = 50;
constexpr unsigned int kFaultCodes = 13; ///< includes one that the script does not use

/// A kind of file on which a sequence of operations starts.
struct Origin
{
    char const* name;
    unsigned int seed;
    /// SQL by which another program changes a file of the library.
    char const* sql;
    bool compatibleMode;
};

Origin const kOrigins[] = {
    {"New", 1, nullptr, false},
    {"Filled", 2, "", false},
    {"OfAnotherVersion", 3, "UPDATE FdbVersionTbl SET Version='0.9.0'", true},
    {"WithSmallPages", 4, "PRAGMA page_size=512; VACUUM", false},
    {"InWriteAheadLogMode", 5, "PRAGMA journal_mode=WAL", false},
    {"InFullAutoVacuum", 6, "PRAGMA auto_vacuum=FULL; VACUUM", false},
    {"WithAnIndexAndAnotherTable", 7,
     "CREATE INDEX i ON FdbFaultTbl(RdbStartupId); CREATE UNIQUE INDEX u ON FdbFaultStatisticTbl(EntryId, FaultCode);"
     "CREATE TABLE Other(x); INSERT INTO Other VALUES(1)",
     false},
    {"ThatWasThinnedOut", 8, "DELETE FROM FdbFaultTbl WHERE EntryId%3; DELETE FROM FdbFaultStatisticTbl", false},
};

void PrintTo(Origin const& origin, std::ostream* out)
{
    *out << origin.name;
}

class RandomOperations : public FaultDbTest, public testing::WithParamInterface<Origin>
{
protected:
    void prepare();
    void step();
    void reopen();

    TableModel model;
    unsigned int writes = 0;
    unsigned int reads = 0;
    unsigned int refusals = 0;
    unsigned int reopenings = 0;

private:
    void beginAnew();
    void open();
    void close();
    void readModelFromFile();
    void write();
    void writeVersion();
    void writeRefused();
    void callWithoutDatabase();
    void callInWrongState();
    void removeSomeRows();
    void read();
    void readFault();
    void readStatistic();
    void readActive();
    void readByQuery();
    void readCounts();
    void expectIsModel();
    unsigned int below(unsigned int limit) { return static_cast<unsigned int>(m_random()) % limit; }

    std::mt19937 m_random{GetParam().seed};
    std::optional<OperationScript> m_script;
};

void RandomOperations::beginAnew()
{
    ASSERT_EQ(db.createDb(path, true), 0);
    model = TableModel();
    FdbVersion version;
    version.Component = "FormatVersion";
    version.Version = FaultDb::SUPPORTED_VERSION;
    model.insert(version);
    m_script.emplace(below(1U << 30U), model.lastFaultKey);
}

void RandomOperations::open()
{
    ASSERT_EQ(db.openDb(path, GetParam().compatibleMode), 0);
}

void RandomOperations::close()
{
    ASSERT_EQ(db.closeDb(), 0);
}

/// Reads the file's content into the model, after a change by another program.
void RandomOperations::readModelFromFile()
{
    auto const take = [](auto const& found, auto& rows)
    {
        rows.clear();
        for (auto const& record : found)
        {
            rows[record.EntryId] = record;
        }
    };
    open();
    Tables const found = readTables(db);
    close();
    take(found.faults, model.faults);
    take(found.statistics, model.statistics);
    model.versions[1] = found.versions.at(0);
}

void RandomOperations::prepare()
{
    beginAnew();
    if (GetParam().sql != nullptr)
    {
        ASSERT_EQ(db.openDb(path, false), 0);
        for (unsigned int i = 0; i < 40; ++i)
        {
            write();
        }
        close();
        RawDb(path).exec(GetParam().sql);
        readModelFromFile();
    }
    open();
    expectIsModel();
}

void RandomOperations::expectIsModel()
{
    ASSERT_EQ(difference(model, readTables(db)), "");
}

void RandomOperations::step()
{
    unsigned int const choice = below(100);
    if (choice < 50)
    {
        write();
    }
    else if (choice < 85)
    {
        read();
    }
    else if (choice < 93)
    {
        below(2) == 0 ? writeRefused() : callInWrongState();
    }
    else
    {
        choice < 95 ? writeVersion() : reopen();
    }
    expectIsModel();
    console.take();
}

void RandomOperations::write()
{
    ++writes;
    Operation operation = m_script->next();
    ASSERT_EQ(perform(db, operation), 0);
    ASSERT_TRUE(model.apply(operation));
    if (operation.kind == Operation::INSERT_FAULT)
    {
        ASSERT_EQ(operation.fault.EntryId, model.lastFaultKey);
    }
}

void RandomOperations::writeVersion()
{
    ++writes;
    FdbVersion version;
    version.Component = "part " + std::to_string(below(1000)); // Never a second row with the format version.
    version.Version = "o''clock";
    ASSERT_EQ(db.insert(version), 0);
    model.insert(version);
}

void RandomOperations::writeRefused()
{
    ++refusals;
    Operation operation = m_script->next();
    operation.fault.EntryId = 1;
    operation.fault.Description += below(2) == 0 ? "x'" : std::string(1, '\0');
    operation.statistic.FaultCodeName = "x'''y";
    ASSERT_EQ(db.insert(operation.fault), -2);
    ASSERT_EQ(operation.fault.EntryId, 1U);
    ASSERT_EQ(db.update(operation.fault), -2);
    ASSERT_EQ(db.insert(operation.statistic), -2);
    ASSERT_EQ(db.update(operation.statistic), -2);
    // The script counts its inserts, so create a new one with the present number.
    m_script.emplace(below(1U << 30U), model.lastFaultKey);
}

void RandomOperations::callInWrongState()
{
    ++refusals;
    FaultTbl faults;
    faults.resize(1);
    ASSERT_EQ(db.openDb(path, true), -1);
    ASSERT_EQ(db.createDb(path, false), -3);
    ASSERT_EQ(db.getFaultTbl("SELECT nothing", faults), -2);
    ASSERT_EQ(faults.size(), 1U);
    db.setDbgLevel(static_cast<int>(below(3)));
}

void RandomOperations::callWithoutDatabase()
{
    Fault fault = makeFault();
    FaultStatistic statistic = makeStatistic();
    FdbVersion version;
    FaultTbl faults;
    unsigned short count = 7;
    ASSERT_EQ(db.closeDb(), -1);
    ASSERT_EQ(db.insert(fault), -1);
    ASSERT_EQ(db.update(fault), -1);
    ASSERT_EQ(db.insert(statistic), -1);
    ASSERT_EQ(db.update(statistic), -1);
    ASSERT_EQ(db.insert(version), -1);
    ASSERT_EQ(db.updateRdbStartup(1, 2), -1);
    ASSERT_EQ(db.getFaultTbl(faults), -1);
    ASSERT_EQ(db.getFormatVersion(version), -1);
    ASSERT_EQ(db.getFaultStatisticTblErrorNr(count), -1);
    ASSERT_EQ(db.getFaultStatisticTblErrorActiveNr(count), -1);
    ASSERT_EQ(count, 7);
    ASSERT_EQ(db.getFaultById(fault, 1), -2);
    ASSERT_EQ(db.getFaultStatisticForFC(statistic, 1), -2);
    ASSERT_EQ(members(statistic), members(makeStatistic()));
}

/// Removes rows, as another program would, to keep the tables short. Their keys are not used again.
void RandomOperations::removeSomeRows()
{
    auto const half = std::next(model.faults.begin(), static_cast<std::ptrdiff_t>(model.faults.size() / 2));
    RawDb raw(path);
    raw.exec("DELETE FROM FdbFaultTbl WHERE EntryId<" + std::to_string(half->first));
    raw.exec("DELETE FROM FdbFaultStatisticTbl WHERE EntryId%2");
    model.faults.erase(model.faults.begin(), half);
    for (auto row = model.statistics.begin(); row != model.statistics.end();)
    {
        row = row->first % 2 != 0 ? model.statistics.erase(row) : std::next(row);
    }
}

void RandomOperations::reopen()
{
    ++reopenings;
    close();
    callWithoutDatabase();
    if (model.faults.size() > kMaxFaults)
    {
        below(8) == 0 && !GetParam().compatibleMode ? beginAnew() : removeSomeRows();
    }
    open();
}

void RandomOperations::read()
{
    ++reads;
    switch (below(5))
    {
    case 0:
        readFault();
        break;
    case 1:
        readStatistic();
        break;
    case 2:
        readActive();
        break;
    case 3:
        readByQuery();
        break;
    default:
        readCounts();
    }
}

void RandomOperations::readFault()
{
    unsigned long long const key = below(static_cast<unsigned int>(model.lastFaultKey) + 2);
    Fault fault = makeFault();
    auto const row = model.faults.find(key);
    ASSERT_EQ(db.getFaultById(fault, key), row != model.faults.end() ? 0 : -2);
    Fault const expected = row != model.faults.end() ? row->second : makeFault();
    ASSERT_EQ(members(fault), members(expected));
}

void RandomOperations::readStatistic()
{
    unsigned int const code = below(kFaultCodes);
    FaultStatistic statistic = makeStatistic();
    auto const row = std::find_if(model.statistics.begin(), model.statistics.end(),
                                  [code](auto const& entry) { return entry.second.FaultCode == code; });
    ASSERT_EQ(db.getFaultStatisticForFC(statistic, code), row != model.statistics.end() ? 0 : -2);
    FaultStatistic const expected = row != model.statistics.end() ? row->second : makeStatistic();
    ASSERT_EQ(members(statistic), members(expected));
}

void RandomOperations::readActive()
{
    Tables active = readTables(db);
    ASSERT_GE(db.getFaultStatisticTblErrorActive(active.statistics), 0);
    TableModel expected = model;
    for (auto row = expected.statistics.begin(); row != expected.statistics.end();)
    {
        row = row->second.FaultActive != FAULT_ACTIVE ? expected.statistics.erase(row) : std::next(row);
    }
    ASSERT_EQ(difference(expected, active), "");
}

void RandomOperations::readByQuery()
{
    Tables selected = readTables(db);
    ASSERT_GE(db.getFaultTbl("SELECT * FROM FdbFaultTbl WHERE RdbStartupId=2 AND Status='ErrorActive' ORDER BY EntryId",
                             selected.faults),
              0);
    TableModel expected = model;
    for (auto row = expected.faults.begin(); row != expected.faults.end();)
    {
        bool const isSelected = row->second.RdbStartupId == 2 && row->second.Status == FAULT_ACTIVE;
        row = isSelected ? std::next(row) : expected.faults.erase(row);
    }
    ASSERT_EQ(difference(expected, selected), "");
}

void RandomOperations::readCounts()
{
    auto const active = std::count_if(model.statistics.begin(), model.statistics.end(),
                                      [](auto const& entry) { return entry.second.FaultActive == FAULT_ACTIVE; });
    unsigned short count = 0;
    ASSERT_EQ(db.getFaultStatisticTblErrorNr(count), 0);
    ASSERT_EQ(count, model.statistics.size());
    ASSERT_EQ(db.getFaultStatisticTblErrorActiveNr(count), 0);
    ASSERT_EQ(count, active);
    FdbVersion version;
    ASSERT_EQ(db.getFormatVersion(version), 0);
    ASSERT_EQ(members(version), members(model.versions.at(1)));
}

} // namespace

TEST_P(RandomOperations, LeaveInTheFileWhatAModelHolds)
{
    ASSERT_NO_FATAL_FAILURE(prepare());
    for (unsigned int i = 0; i < kSteps && !HasFailure(); ++i)
    {
        SCOPED_TRACE("step " + std::to_string(i));
        step();
    }
    ASSERT_FALSE(HasFailure());
    // The rows outlive this object, and SQLite reads them without the library.
    FaultDb another;
    reopen();
    ASSERT_EQ(db.closeDb(), 0);
    ASSERT_EQ(another.openDb(path, GetParam().compatibleMode), 0);
    EXPECT_EQ(difference(model, readTables(another)), "");
    EXPECT_EQ(another.closeDb(), 0);
    EXPECT_EQ(RawDb(path).value("PRAGMA integrity_check"), "ok");
    std::printf("random operations: %-27s seed %u, %u steps: %u writes, %u reads, %u refusals, %u reopenings\n",
                GetParam().name, GetParam().seed, kSteps, writes, reads, refusals, reopenings);
}

INSTANTIATE_TEST_SUITE_P(OnAFile, RandomOperations, testing::ValuesIn(kOrigins),
                         [](auto const& origin) { return origin.param.name; });
