#include "AllocationSupport.h"
#include "Fixtures.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cstring>
#include <new>
#include <type_traits>

using testing::IsEmpty;

namespace
{

/// Raw memory of the facade's size, filled with a pattern before the facade is built in it.
class PatternedFaultDb
{
public:
    PatternedFaultDb()
    {
        std::memset(m_memory, 0xA5, sizeof m_memory);
        db = new (m_memory) FaultDb;
    }
    ~PatternedFaultDb() { db->~FaultDb(); }
    PatternedFaultDb(PatternedFaultDb const&) = delete;
    PatternedFaultDb& operator=(PatternedFaultDb const&) = delete;

    FaultDb* db;

private:
    alignas(FaultDb) unsigned char m_memory[sizeof(FaultDb)];
};

std::ptrdiff_t offsetIn(FaultDb const& db, void const* member)
{
    return static_cast<char const*>(member) - reinterpret_cast<char const*>(&db);
}

} // namespace

static_assert(std::is_polymorphic_v<FaultDb>);
static_assert(std::has_virtual_destructor_v<FaultDb>);
static_assert(std::is_abstract_v<Sqlite3DbCallback>);
static_assert(sizeof(Sqlite3DbCallback) == sizeof(void*), "no data members");
static_assert(!std::is_copy_constructible_v<FaultDb>);
static_assert(std::is_same_v<decltype(FaultDb::m_ErrorNr), unsigned short>);
static_assert(std::is_same_v<decltype(FaultDb::m_ErrorActiveNr), unsigned short>);
static_assert(std::is_same_v<decltype(FaultDb::m_dbHandle), short>);
static_assert(std::is_same_v<decltype(FaultDb::m_dbgLevel), int>);

TEST_F(FaultDbTest, MembersHaveTheirDefaults)
{
    EXPECT_EQ(db.m_dbgLevel, 0);
    EXPECT_EQ(db.m_ErrorActiveNr, 0);
    EXPECT_FALSE(db.m_isOpen);
    EXPECT_FALSE(db.m_compatibleMode);
    EXPECT_EQ(db.m_dbHandle, -1);
    EXPECT_EQ(db.m_versionTbl.m_tblName, "FdbVersionTbl");
    EXPECT_EQ(db.m_faultTbl.m_tblName, "FdbFaultTbl");
    EXPECT_EQ(db.m_faultStatisticTbl.m_tblName, "FdbFaultStatisticTbl");
}

TEST_F(FaultDbTest, TablesAreInitialised)
{
    EXPECT_EQ(db.m_versionTbl.m_columns.size(), 3U);
    EXPECT_EQ(db.m_faultTbl.m_columns.size(), 16U);
    EXPECT_EQ(db.m_faultStatisticTbl.m_columns.size(), 12U);
}

TEST_F(FaultDbTest, MembersStandInTheirOrder)
{
    std::vector<std::ptrdiff_t> const offsets = {
        offsetIn(db, &db.m_dbgLevel), offsetIn(db, &db.m_ErrorActiveNr),     offsetIn(db, &db.m_ErrorNr),
        offsetIn(db, &db.m_isOpen),   offsetIn(db, &db.m_compatibleMode),    offsetIn(db, &db.m_versionTbl),
        offsetIn(db, &db.m_faultTbl), offsetIn(db, &db.m_faultStatisticTbl), offsetIn(db, &db.m_dbHandle)};
    EXPECT_TRUE(std::is_sorted(offsets.begin(), offsets.end()));
}

TEST_F(FaultDbTest, CallbackBaseStandsAtTheStartOfTheObject)
{
    // The base is private, so only a C-style cast reaches it.
    EXPECT_EQ((void*)(Sqlite3DbCallback*)&db, (void*)&db);
}

TEST_F(FaultDbTest, CountOfStatisticsIsNotWrittenByTheConstructor)
{
    PatternedFaultDb const patterned;
    EXPECT_EQ(patterned.db->m_ErrorNr, 0xA5A5);
    EXPECT_EQ(patterned.db->m_ErrorActiveNr, 0);
}

TEST_F(FaultDbTest, SupportedVersionIsFixed)
{
    EXPECT_EQ(FaultDb::SUPPORTED_VERSION, "1.0.0");
}

TEST_F(FaultDbTest, InstanceIsCreatedOnce)
{
    FaultDb* const first = FaultDb::getInstance();
    EXPECT_EQ(FaultDb::m_pInstance, first);
    RefusedAllocations const nothingIsConstructed;
    EXPECT_EQ(FaultDb::getInstance(), first);
}

TEST_F(FaultDbTest, InstanceThatCannotBeAllocatedIsNotKept)
{
    FaultDb* const previous = FaultDb::m_pInstance;
    FaultDb::m_pInstance = nullptr;
    bool isThrown = false;
    {
        RefusedAllocations const outOfMemory;
        try
        {
            FaultDb::getInstance();
        }
        catch (std::bad_alloc const&)
        {
            isThrown = true;
        }
    }
    EXPECT_TRUE(isThrown);
    EXPECT_EQ(FaultDb::m_pInstance, nullptr);
    FaultDb::m_pInstance = previous;
}

TEST_F(FaultDbTest, MonitorDeletesTheInstanceAndLeavesThePointer)
{
    FaultDb* const previous = FaultDb::m_pInstance;
    FaultDb* const own = new FaultDb;
    FaultDb::m_pInstance = own;
    {
        FaultDb::Monitor const monitor;
        static_cast<void>(monitor);
    }
    EXPECT_EQ(FaultDb::m_pInstance, own); // The address sanitizer's leak check finds out if it was not destroyed.
    FaultDb::m_pInstance = previous;
}

TEST_F(FaultDbTest, DebugLevelOneLeavesTheConnectionLayerSilent)
{
    db.setDbgLevel(1);
    EXPECT_EQ(db.m_dbgLevel, 1);
    EXPECT_EQ(sqlite->m_debug, 0);
}

TEST_F(FaultDbTest, DebugLevelTwoAndAboveSwitchesTheConnectionLayerOn)
{
    for (int const level : {2, 3})
    {
        sqlite->m_debug = 0;
        db.setDbgLevel(level);
        EXPECT_EQ(sqlite->m_debug, 1) << level;
    }
}

TEST_F(FaultDbTest, LowerDebugLevelDoesNotSwitchTheConnectionLayerOff)
{
    db.setDbgLevel(2);
    db.setDbgLevel(0);
    EXPECT_EQ(db.m_dbgLevel, 0);
    EXPECT_EQ(sqlite->m_debug, 1);
}

TEST_F(FaultDbTest, CloseOfAClosedDatabaseFailsSilently)
{
    db.setDbgLevel(2);
    EXPECT_EQ(db.closeDb(), -1);
    EXPECT_EQ(console.take(), "");
}

TEST_F(FaultDbTest, CloseForgetsTheHandleSilently)
{
    createAndOpen();
    db.setDbgLevel(2);
    EXPECT_EQ(db.closeDb(), 0);
    EXPECT_FALSE(db.m_isOpen);
    EXPECT_EQ(db.m_dbHandle, -1);
    EXPECT_EQ(console.take(), "");
    EXPECT_THAT(sqlite->m_dbHandles, IsEmpty());
}

TEST_F(FaultDbTest, CloseThatIsRefusedLeavesTheDatabaseOpen)
{
    createAndOpen();
    short const handle = db.m_dbHandle;
    sqlite->m_dbHandles.at(handle).state = 0;
    EXPECT_EQ(db.closeDb(), -1);
    EXPECT_TRUE(db.m_isOpen);
    EXPECT_EQ(db.m_dbHandle, handle);
    sqlite->m_dbHandles.at(handle).state = 1;
    EXPECT_EQ(db.closeDb(), 0);
}

TEST_F(FaultDbTest, DestructionDoesNotCloseTheDatabase)
{
    FaultDb* const own = new FaultDb;
    ASSERT_EQ(own->createDb(path, false), 0);
    ASSERT_EQ(own->openDb(path, false), 0);
    short const handle = own->m_dbHandle;
    delete own;
    EXPECT_NE(sqlite->findOpen(handle), nullptr);
}
