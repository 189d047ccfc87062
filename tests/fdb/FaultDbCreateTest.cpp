#include "Fixtures.h"

#include <gmock/gmock.h>

#include <sys/stat.h>

using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

class CreateDb : public FaultDbTest
{
protected:
    std::string debug(std::string const& message) const { return "[DEBUG] FDB::createDb() " + message; }
};

} // namespace

TEST_F(CreateDb, NewFileHoldsTheThreeTablesInOrderAndOneVersionRow)
{
    EXPECT_EQ(db.createDb(path, false), 0);
    RawDb raw(path);
    EXPECT_THAT(
        raw.rows("SELECT name FROM sqlite_master WHERE name LIKE 'Fdb%' ORDER BY rowid"),
        ElementsAre(RawDb::Row{"FdbFaultTbl"}, RawDb::Row{"FdbFaultStatisticTbl"}, RawDb::Row{"FdbVersionTbl"}));
    EXPECT_THAT(raw.rows("SELECT * FROM FdbVersionTbl"), ElementsAre(RawDb::Row{"1", "FormatVersion", "1.0.0"}));
}

TEST_F(CreateDb, IsSilentAtDebugLevelZero)
{
    EXPECT_EQ(db.createDb(path, false), 0);
    EXPECT_EQ(console.take(), "");
}

TEST_F(CreateDb, LogsItsStepsAtDebugLevelOne)
{
    db.setDbgLevel(1);
    EXPECT_EQ(db.createDb(path, false), 0);
    EXPECT_THAT(console.takeLines(),
                ElementsAre(debug("Rdb File doesn't exist. file:" + path), debug("Create RDB File: " + path),
                            debug("Open DataBase as Sqlite3: " + path), debug("Create tbl:FdbFaultTbl"),
                            debug("Create tbl:FdbVersionTbl"),
                            "[DEBUG] FDB::insert() Insert:VersionEntryId=0, Component=FormatVersion, Version=1.0.0",
                            debug("Create database successfully finished.")));
}

TEST_F(CreateDb, LogsItsStatementsTooAtDebugLevelTwo)
{
    db.setDbgLevel(2);
    EXPECT_EQ(db.createDb(path, false), 0);
    std::vector<std::string> const lines = console.takeLines();
    RawDb raw(path);
    auto const created = [&raw](std::string const& table)
    { return "[DEBUG] SQL3::createTbl() " + raw.value("SELECT sql FROM sqlite_master WHERE name='" + table + "'"); };
    EXPECT_THAT(lines,
                ElementsAre(debug("Rdb File doesn't exist. file:" + path), debug("Create RDB File: " + path),
                            debug("Open DataBase as Sqlite3: " + path), debug("Create tbl:FdbFaultTbl"),
                            "[DEBUG] SQL3::createTbl() create Table: FdbFaultTbl", created("FdbFaultTbl"),
                            "[DEBUG] SQL3::createTbl() create Table: FdbFaultStatisticTbl",
                            created("FdbFaultStatisticTbl"), debug("Create tbl:FdbVersionTbl"),
                            "[DEBUG] SQL3::createTbl() create Table: FdbVersionTbl", created("FdbVersionTbl"),
                            "[DEBUG] FDB::insert() Insert:VersionEntryId=0, Component=FormatVersion, Version=1.0.0",
                            "[DEBUG] FDB::insert() SqlCmd: INSERT INTO FdbVersionTbl('VersionEntryId','Component',"
                            "'Version') VALUES(null,'FormatVersion','1.0.0')",
                            debug("Create database successfully finished.")));
}

TEST_F(CreateDb, LeavesTheFacadeClosedWithTheNumberOfTheClosedConnection)
{
    EXPECT_EQ(db.createDb(path, false), 0);
    EXPECT_FALSE(db.m_isOpen);
    EXPECT_GE(db.m_dbHandle, 0);
    EXPECT_THAT(sqlite->m_dbHandles, IsEmpty());
    EXPECT_EQ(db.closeDb(), -1);
}

TEST_F(CreateDb, NewFileOpensWithoutCompatibleMode)
{
    ASSERT_EQ(db.createDb(path, false), 0);
    EXPECT_EQ(db.openDb(path, false), 0);
    EXPECT_FALSE(db.m_compatibleMode);
}

TEST_F(CreateDb, ExistingFileIsLeftAloneWithoutOverwrite)
{
    writeFile(path, "precious");
    db.setDbgLevel(1);
    EXPECT_EQ(db.createDb(path, false), -3);
    EXPECT_EQ(readFile(path), "precious");
    EXPECT_EQ(db.m_dbHandle, -1);
    EXPECT_THAT(console.takeLines(), ElementsAre(debug("Rdb File already exists. file:" + path)));
}

TEST_F(CreateDb, ExistingFileIsReplacedWithOverwrite)
{
    createAndOpen();
    Fault fault = makeFault();
    ASSERT_EQ(db.insert(fault), 0);
    ASSERT_EQ(db.closeDb(), 0);
    db.setDbgLevel(1);
    EXPECT_EQ(db.createDb(path, true), 0);
    EXPECT_EQ(console.takeLines().front(), debug("Rdb File already exists. file:" + path));
    RawDb raw(path);
    EXPECT_EQ(raw.value("SELECT count(*) FROM FdbFaultTbl"), "0");
    EXPECT_EQ(raw.value("SELECT count(*) FROM FdbVersionTbl"), "1");
}

TEST_F(CreateDb, FileThatIsNoDatabaseIsReplacedWithOverwrite)
{
    writeFile(path, std::string(5000, 'x'));
    EXPECT_EQ(db.createDb(path, true), 0);
    EXPECT_EQ(db.openDb(path, false), 0);
}

TEST_F(CreateDb, FailsInADirectoryThatDoesNotExist)
{
    db.setDbgLevel(1);
    std::string const missing = dir.file("missing/faults.db");
    EXPECT_EQ(db.createDb(missing, true), -2);
    EXPECT_FALSE(exists(dir.file("missing")));
    EXPECT_EQ(db.m_dbHandle, -1);
    EXPECT_THAT(console.takeLines(),
                ElementsAre(debug("Rdb File doesn't exist. file:" + missing), debug("Create RDB File: " + missing)));
}

TEST_F(CreateDb, FailsOnADirectory)
{
    EXPECT_EQ(db.createDb(dir.path(), true), -2);
    EXPECT_TRUE(exists(dir.path()));
}

TEST_F(CreateDb, FailsOnANameWithAZeroByteAndLeavesTheFileBeforeItAlone)
{
    writeFile(path, "precious");
    EXPECT_EQ(db.createDb(path + std::string("\0tail", 5), true), -2);
    EXPECT_EQ(readFile(path), "precious");
}

TEST_F(CreateDb, FailsWhenTheOldFileCannotBeRemoved)
{
    writeFile(path, "precious");
    ASSERT_EQ(chmod(dir.path().c_str(), 0555), 0);
    db.setDbgLevel(1);
    {
        WithoutRoot const user;
        EXPECT_EQ(db.createDb(path, true), -2);
    }
    EXPECT_EQ(readFile(path), "precious");
    EXPECT_THAT(console.takeLines(), ElementsAre(debug("Rdb File already exists. file:" + path)));
}

TEST_F(CreateDb, FailsInADirectoryThatMayNotBeWritten)
{
    ASSERT_EQ(chmod(dir.path().c_str(), 0555), 0);
    {
        WithoutRoot const user;
        EXPECT_EQ(db.createDb(path, true), -2);
    }
    EXPECT_FALSE(exists(path));
}

TEST_F(CreateDb, KeepsTheNegativeHandleWhenTheAccessLayerCannotOpen)
{
    for (int handle = 0; handle < 32768; ++handle)
    {
        sqlite->m_dbHandles[static_cast<short>(handle)].state = 0;
    }
    db.setDbgLevel(1);
    EXPECT_EQ(db.createDb(path, false), -2);
    EXPECT_THAT(console.takeLines(),
                ElementsAre(debug("Rdb File doesn't exist. file:" + path), debug("Create RDB File: " + path),
                            debug("Open DataBase as Sqlite3: " + path),
                            "[ERROR] SQL3::openDb() Failed to open: " + path + " all handles are in use"));
    EXPECT_LT(db.m_dbHandle, 0);
    EXPECT_FALSE(db.m_isOpen);
    sqlite->m_dbHandles.clear();
}

TEST_F(CreateDb, LeavesTheFacadeClosedWhenAnotherDatabaseWasOpenAndTheNewOneCannotBe)
{
    createAndOpen();
    for (int handle = 0; handle < 32768; ++handle)
    {
        sqlite->m_dbHandles.try_emplace(static_cast<short>(handle));
    }
    EXPECT_EQ(db.createDb(dir.file("second.db"), false), -2);
    EXPECT_FALSE(db.m_isOpen);
    EXPECT_LT(db.m_dbHandle, 0);
}

TEST_F(CreateDb, FailedFaultTableEndsWithItsCodeAndWithoutALineOfItsOwn)
{
    db.m_faultTbl.m_columns.erase(3);
    EXPECT_EQ(db.createDb(path, false), -1);
    EXPECT_THAT(console.takeLines(),
                ElementsAre("[ERROR] SQL3::createTbl() failed to get column: 3 from tbl: FdbFaultTbl"));
    EXPECT_FALSE(db.m_isOpen);
    EXPECT_THAT(sqlite->m_dbHandles, IsEmpty());
    EXPECT_TRUE(exists(path));
}

TEST_F(CreateDb, FailedStatisticTableEndsWithItsCodeAndKeepsWhatWasCreated)
{
    db.m_faultStatisticTbl.m_tblName = "FdbFaultTbl";
    EXPECT_EQ(db.createDb(path, false), -2);
    EXPECT_EQ(console.take(),
              "[ERROR] SQL3::execute() Sql Execute failed: table \"FdbFaultTbl\" already exists Err=1\n");
    EXPECT_FALSE(db.m_isOpen);
    EXPECT_EQ(RawDb(path).value("SELECT count(*) FROM sqlite_master WHERE name LIKE 'Fdb%'"), "1");
}

TEST_F(CreateDb, FailedVersionTableIsReportedAtEveryLevel)
{
    db.m_versionTbl.m_tblName = "FdbFaultTbl";
    EXPECT_EQ(db.createDb(path, false), -2);
    EXPECT_THAT(console.takeLines(),
                ElementsAre("[ERROR] SQL3::execute() Sql Execute failed: table \"FdbFaultTbl\" already exists Err=1",
                            "[ERROR] FDB::createDb() Failed to create:FdbFaultTbl"));
    EXPECT_FALSE(db.m_isOpen);
}

TEST_F(CreateDb, FailedVersionRowLeavesTheTablesWithoutARow)
{
    db.m_versionTbl.m_columns.at(1).sqlType = "VARCHAR CHECK(0)";
    EXPECT_EQ(db.createDb(path, false), -2);
    EXPECT_FALSE(db.m_isOpen);
    EXPECT_THAT(sqlite->m_dbHandles, IsEmpty());
    EXPECT_EQ(RawDb(path).value("SELECT count(*) FROM FdbVersionTbl"), "0");
}

TEST_F(CreateDb, WhileADatabaseIsOpenLosesTheOlderConnection)
{
    createAndOpen();
    short const older = db.m_dbHandle;
    EXPECT_EQ(db.createDb(dir.file("second.db"), false), 0);
    EXPECT_NE(db.m_dbHandle, older);
    EXPECT_FALSE(db.m_isOpen);
    EXPECT_NE(sqlite->findOpen(older), nullptr);
}
