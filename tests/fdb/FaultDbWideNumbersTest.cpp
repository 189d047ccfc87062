// Numbers wider than 32 bits, which a 32-bit machine keeps in two registers, through the library into the file and
// back.

#include "Fixtures.h"

#include <gmock/gmock.h>

using testing::ElementsAre;

namespace
{

struct Wide
{
    unsigned long long number;
    char const* text;
};

void PrintTo(Wide const& wide, std::ostream* out)
{
    *out << wide.text;
}

constexpr Wide kZero = {0, "0"};
constexpr Wide kLargest = {0x7fffffffffffffff, "9223372036854775807"};

constexpr Wide kNumbers[] = {
    kZero,
    {0x7fffffff, "2147483647"},
    {0x80000000, "2147483648"},
    {0xffffffff, "4294967295"},
    {0x100000000, "4294967296"},
    {0x100000001, "4294967297"},
    {0x7fffffffffffffff - 0xffffffff, "9223372032559808512"},
    kLargest,
};

/// Two start-up ids that differ only when all 32 bits are compared.
constexpr unsigned int kOldId = 0x7fffffff;
constexpr unsigned int kNewId = 0xffffffff;

/// Every test must leave row 1 unchanged: a key cut to its low half could select it.
class WideNumbers : public FaultDbTest, public testing::WithParamInterface<Wide>
{
protected:
    WideNumbers()
    {
        createAndOpen();
        EXPECT_EQ(db.insert(m_bystander), 0);
        EXPECT_EQ(m_bystander.EntryId, 1U);
    }

    ~WideNumbers() override
    {
        Fault found;
        EXPECT_EQ(db.getFaultById(found, 1), 0);
        EXPECT_EQ(members(found), members(m_bystander));
    }

    /// Adds a fault with the key of the test's parameter. The database assigns the key, or for 0 another program writes
    /// it.
    Fault addFaultWithKey()
    {
        Fault fault = makeFault(2);
        fault.RdbStartupId = kOldId;
        if (GetParam().number != 0)
        {
            RawDb(path).exec(std::string("UPDATE sqlite_sequence SET seq=") + GetParam().text +
                             "-1 WHERE name='FdbFaultTbl'");
        }
        EXPECT_EQ(db.insert(fault), 0);
        if (GetParam().number == 0)
        {
            RawDb(path).exec("UPDATE FdbFaultTbl SET EntryId=0 WHERE EntryId<>1");
            fault.EntryId = 0;
        }
        return fault;
    }

    std::string const withKey = std::string(" WHERE EntryId=") + GetParam().text;

private:
    Fault m_bystander = makeFault(1);
};

INSTANTIATE_TEST_SUITE_P(Each, WideNumbers, testing::ValuesIn(kNumbers));

} // namespace

TEST_P(WideNumbers, KeyIsGivenBackAndFindsItsRow)
{
    Fault const fault = addFaultWithKey();
    EXPECT_EQ(fault.EntryId, GetParam().number);
    EXPECT_EQ(RawDb(path).value("SELECT Description FROM FdbFaultTbl" + withKey), fault.Description);
    Fault found;
    ASSERT_EQ(db.getFaultById(found, GetParam().number), 0);
    EXPECT_EQ(members(found), members(fault));
    FaultTbl faults;
    ASSERT_EQ(db.getFaultTbl("SELECT * FROM FdbFaultTbl WHERE EntryId<>1", faults), 1);
    EXPECT_EQ(members(faults.front()), members(fault));
}

TEST_P(WideNumbers, KeysBesideAreNotFound)
{
    addFaultWithKey();
    Fault found;
    for (unsigned long long const key : {GetParam().number - 1, GetParam().number + 1, GetParam().number ^ 1ULL << 32})
    {
        EXPECT_EQ(db.getFaultById(found, key), key == 1 ? 0 : -2) << key;
    }
}

TEST_P(WideNumbers, KeyIsTheOneThatIsUpdated)
{
    Fault fault = addFaultWithKey();
    fault.Description = "updated";
    ASSERT_EQ(db.update(fault), 0);
    EXPECT_EQ(RawDb(path).value("SELECT Description FROM FdbFaultTbl" + withKey), "updated");
    Fault found;
    ASSERT_EQ(db.getFaultById(found, GetParam().number), 0);
    EXPECT_EQ(members(found), members(fault));
}

TEST_P(WideNumbers, KeyIsTheOneThatIsRenumbered)
{
    Fault fault = addFaultWithKey();
    ASSERT_EQ(db.updateRdbStartup(kNewId, kOldId), 0);
    EXPECT_EQ(console.take(), std::string("[INFO] FDB::updateRdbStartup() new ID=4294967295old ID=2147483647\n"
                                          "[INFO] FDB::updateRdbStartup() Update fault FC=1002 EntryID=") +
                                  GetParam().text + "\n");
    EXPECT_EQ(RawDb(path).value("SELECT RdbStartupId FROM FdbFaultTbl" + withKey), "4294967295");
    fault.RdbStartupId = kNewId;
    Fault found;
    ASSERT_EQ(db.getFaultById(found, GetParam().number), 0);
    EXPECT_EQ(members(found), members(fault));
}

TEST_P(WideNumbers, TimeStampOfAFaultIsInsertedUpdatedAndRenumberedWhole)
{
    Fault fault = makeFault(2);
    fault.RdbStartupId = kOldId;
    fault.TimeStampUTC = GetParam().number;
    ASSERT_EQ(db.insert(fault), 0);
    EXPECT_EQ(RawDb(path).value("SELECT TimeStampUTC FROM FdbFaultTbl WHERE EntryId=2"), GetParam().text);

    fault.TimeStampUTC = kLargest.number - GetParam().number;
    ASSERT_EQ(db.update(fault), 0);
    EXPECT_EQ(
        RawDb(path).value(std::string("SELECT TimeStampUTC+") + GetParam().text + " FROM FdbFaultTbl WHERE EntryId=2"),
        kLargest.text);

    fault.TimeStampUTC = GetParam().number;
    ASSERT_EQ(db.update(fault), 0);
    ASSERT_EQ(db.updateRdbStartup(kNewId, kOldId), 0);
    EXPECT_EQ(RawDb(path).value("SELECT TimeStampUTC FROM FdbFaultTbl WHERE EntryId=2"), GetParam().text);
    Fault found;
    ASSERT_EQ(db.getFaultById(found, 2), 0);
    EXPECT_EQ(found.TimeStampUTC, GetParam().number);
    EXPECT_EQ(found.RdbStartupId, kNewId);
}

TEST_P(WideNumbers, NumbersOfAStatisticAreInsertedUpdatedAndRenumberedWhole)
{
    constexpr char kCells[] = "SELECT TimeFirstOccurredUTC,TimeLastOccurredUTC,FaultEntryId,RdbStartupId"
                              " FROM FdbFaultStatisticTbl";
    FaultStatistic statistic = makeStatistic();
    statistic.RdbStartupId = kOldId;
    statistic.TimeFirstOccurredUTC = GetParam().number;
    statistic.TimeLastOccurredUTC = kLargest.number;
    statistic.FaultEntryId = 0;
    ASSERT_EQ(db.insert(statistic), 0);
    EXPECT_THAT(RawDb(path).rows(kCells),
                ElementsAre(RawDb::Row{GetParam().text, kLargest.text, kZero.text, "2147483647"}));

    statistic.TimeFirstOccurredUTC = 0;
    statistic.TimeLastOccurredUTC = GetParam().number;
    statistic.FaultEntryId = GetParam().number;
    ASSERT_EQ(db.update(statistic), 0);
    ASSERT_EQ(db.updateRdbStartup(kNewId, kOldId), 0);
    EXPECT_THAT(RawDb(path).rows(kCells),
                ElementsAre(RawDb::Row{kZero.text, GetParam().text, GetParam().text, "4294967295"}));

    FaultStatistic found;
    ASSERT_EQ(db.getFaultStatisticForFC(found, statistic.FaultCode), 0);
    statistic.EntryId = 1;
    statistic.RdbStartupId = kNewId;
    EXPECT_EQ(members(found), members(statistic));
}

TEST_P(WideNumbers, KeyOfAStatisticIsReadWhole)
{
    FaultStatistic const statistic = makeStatistic();
    ASSERT_EQ(db.insert(statistic), 0);
    RawDb(path).exec(std::string("UPDATE FdbFaultStatisticTbl SET EntryId=") + GetParam().text);
    FaultStatistic found;
    ASSERT_EQ(db.getFaultStatisticForFC(found, statistic.FaultCode), 0);
    EXPECT_EQ(found.EntryId, GetParam().number);
}

TEST_F(FaultDbTest, InsertBehindTheLargestKeyFailsAndLeavesTheRecord)
{
    createAndOpen();
    RawDb(path).exec(std::string("INSERT INTO FdbFaultTbl(EntryId,FaultCode) VALUES(") + kLargest.text + ",1)");
    Fault fault = makeFault();
    EXPECT_EQ(db.insert(fault), -2);
    EXPECT_EQ(members(fault), members(makeFault()));
    EXPECT_EQ(RawDb(path).value("SELECT count(*) FROM FdbFaultTbl"), "1");
}
