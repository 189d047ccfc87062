// Damaged, foreign or hostile files: each is served in full or refused with a documented code. There is never a crash
// or an endless wait, and a refused file is never changed.

#include "DamagedFiles.h"

#include <random>

#include <sqlite3.h>

TEST_F(DamagedFiles, AnyDamagedPageIsServedOrRefused)
{
    constexpr std::size_t kPage = 4096;
    std::mt19937 random(1);
    for (std::size_t page = 0; page * kPage < healthy.size(); ++page)
    {
        std::string noise(kPage, '\0');
        for (char& byte : noise)
        {
            byte = static_cast<char>(random());
        }
        std::size_t const other = (page + 1) * kPage % healthy.size();
        for (std::string const& content :
             {std::string(kPage, '\0'), std::string(kPage, '\xff'), noise, healthy.substr(other, kPage)})
        {
            SCOPED_TRACE("page " + std::to_string(page));
            std::string bytes = healthy;
            openAndUseBytes(bytes.replace(page * kPage, kPage, content));
            // Keep the page's header, so that the page looks valid.
            bytes = healthy;
            openAndUseBytes(bytes.replace(page * kPage + 120, kPage - 120, content.substr(120)));
        }
    }
}

TEST_F(DamagedFiles, AnyFewChangedBytesAreServedOrRefused)
{
    std::mt19937 random(2);
    for (unsigned int i = 0; i < 400; ++i)
    {
        SCOPED_TRACE("change " + std::to_string(i));
        std::string bytes = healthy;
        for (unsigned int change = 0; change <= i % 4; ++change)
        {
            // Half of the changes are in the headers of the file and of the schema, where each byte matters most.
            bytes[random() % (i % 2 == 0 ? 256 : bytes.size())] = static_cast<char>(random());
        }
        openAndUseBytes(bytes);
    }
}

TEST_F(DamagedFiles, AFileTruncatedAnywhereIsServedOrRefused)
{
    for (std::size_t length = 0; length < healthy.size(); length += 509)
    {
        SCOPED_TRACE("length " + std::to_string(length));
        openAndUseBytes(healthy.substr(0, length));
    }
}

TEST_F(DamagedFiles, AFileWithoutContentIsRefusedAndStaysEmpty)
{
    EXPECT_EQ(openAndUseBytes(""), -2);
}

TEST_F(DamagedFiles, FilesOfOtherProgramsAreRefused)
{
    EXPECT_EQ(openAndUseBytes("a text\n"), -2);
    EXPECT_EQ(openAndUseBytes(std::string(5000, 'x')), -2);
    EXPECT_EQ(openAndUseBytes(std::string("\x7f"
                                          "ELF\2\1\1\0",
                                          8) +
                              healthy),
              -2);
    EXPECT_EQ(openAndUseBytes(std::string("SQLite format 3\0", 16)), -2);
    EXPECT_EQ(openAndUseBytes(std::string("SQLite format 3\0", 16) + std::string(8176, '\0')), -2);
    EXPECT_EQ(openAndUseChanged("DROP TABLE FdbVersionTbl"), -2);
    EXPECT_EQ(openAndUseChanged("DELETE FROM FdbVersionTbl"), -2);
    EXPECT_EQ(openAndUseChanged("INSERT INTO FdbVersionTbl VALUES(null,'FORMATVERSION','1.0.0')"), -2);
    EXPECT_EQ(openAndUseChanged("UPDATE FdbVersionTbl SET Version=x'00'"), -5);
}

TEST_F(DamagedFiles, AFileWithoutTheOtherTablesGivesCodes)
{
    EXPECT_EQ(openAndUseChanged("DROP TABLE FdbFaultTbl"), 0);
    EXPECT_EQ(openAndUseChanged("DROP TABLE FdbFaultStatisticTbl"), 0);
    EXPECT_EQ(openAndUseChanged("PRAGMA writable_schema=ON; DELETE FROM sqlite_master WHERE name='sqlite_sequence'"),
              0);
    EXPECT_EQ(openAndUseChanged("DELETE FROM sqlite_sequence"), 0);
    EXPECT_EQ(openAndUseChanged("UPDATE sqlite_sequence SET seq='text'"), 0);
}

TEST_F(DamagedFiles, WhenAllKeysAreUsedUpAnInsertFailsAndTheRestGoesOn)
{
    RawDb(path).exec("UPDATE sqlite_sequence SET seq=9223372036854775807");
    ASSERT_EQ(db.openDb(path, false), 0);
    Fault fault = makeFault(99);
    EXPECT_EQ(db.insert(fault), -2);
    EXPECT_EQ(fault.EntryId, makeFault(99).EntryId);
    fault.EntryId = 1;
    EXPECT_EQ(db.update(fault), 0);
    FaultTbl faults;
    EXPECT_EQ(db.getFaultTbl(faults), static_cast<int>(kRows));
}

TEST_F(DamagedFiles, CellsOfOtherTypesAreReadAndWritten)
{
    EXPECT_EQ(
        openAndUseChanged("UPDATE FdbFaultTbl SET FaultCode='text', TimeStampUTC=-1.5, Status=7, Description=x'00ff',"
                          "RdbStartupId='1'; UPDATE FdbFaultStatisticTbl SET OccurenceCnt=70000, FaultActive=NULL"),
        0);
    EXPECT_EQ(openAndUseChanged("UPDATE FdbFaultTbl SET Description=NULL, FaultCode=NULL, Status=NULL"), 0);
    EXPECT_EQ(openAndUseChanged("UPDATE FdbFaultTbl SET Description=zeroblob(3000000)"), 0);
}

TEST_F(DamagedFiles, ExtraColumnsAreServedInFull)
{
    RawDb(path).exec("ALTER TABLE FdbFaultTbl ADD COLUMN Extra DEFAULT 'x';"
                     "ALTER TABLE FdbFaultTbl ADD COLUMN Twice AS (FaultCode * 2);"
                     "ALTER TABLE FdbFaultStatisticTbl ADD COLUMN Extra;"
                     "ALTER TABLE FdbVersionTbl ADD COLUMN Extra");
    expectFullService(path);
    EXPECT_EQ(RawDb(path).value("SELECT count(*) FROM FdbFaultTbl WHERE Extra='x' AND Twice=FaultCode*2"), "21");
}

TEST_F(DamagedFiles, AnExtraColumnThatMustBeFilledMakesInsertsFail)
{
    RawDb(path).exec("DROP TABLE FdbFaultTbl; CREATE TABLE FdbFaultTbl(EntryId INTEGER PRIMARY KEY, Must NOT NULL)");
    ASSERT_EQ(db.openDb(path, false), 0);
    Fault fault = makeFault();
    EXPECT_EQ(db.insert(fault), -2);
    EXPECT_EQ(RawDb(path).value("SELECT count(*) FROM FdbFaultTbl"), "0");
}

TEST_F(DamagedFiles, ConstraintsOfTheFileMakeWritesFailWhole)
{
    RawDb(path).exec("CREATE UNIQUE INDEX u ON FdbFaultTbl(Description);"
                     "CREATE INDEX i ON FdbFaultTbl(abs(FaultCode)) WHERE RdbStartupId=1");
    ASSERT_EQ(db.openDb(path, false), 0);
    Fault fault = makeFault(3);
    EXPECT_EQ(db.insert(fault), -2);
    fault.EntryId = 4;
    EXPECT_EQ(db.update(fault), -2);
    RawDb raw(path);
    EXPECT_EQ(raw.value("SELECT count(*) FROM FdbFaultTbl"), std::to_string(kRows));
    EXPECT_EQ(raw.value("SELECT Description FROM FdbFaultTbl WHERE EntryId=4"), makeFault(4).Description);
}

TEST_F(DamagedFiles, TriggersAreServedOrTheOperationFailsWhole)
{
    for (char const* body :
         {"SELECT RAISE(ABORT, 'no')", "SELECT RAISE(ROLLBACK, 'no')", "SELECT RAISE(IGNORE)",
          "DELETE FROM FdbFaultTbl", "DROP TABLE FdbFaultTbl", "INSERT INTO Nowhere VALUES(1)",
          "UPDATE FdbFaultTbl SET Description='x'", "SELECT load_extension('x')", "SELECT writefile('x', 'y')",
          "INSERT INTO FdbFaultTbl(Description) VALUES(NEW.Description)"})
    {
        for (char const* event : {"AFTER INSERT", "BEFORE INSERT", "AFTER UPDATE"})
        {
            std::string const trigger = std::string("CREATE TRIGGER t ") + event + " ON FdbFaultTbl BEGIN " + body;
            SCOPED_TRACE(trigger);
            std::string const file = dir.file("met.db");
            removeWithSidecars(file);
            writeFile(file, healthy);
            RawDb raw(file);
            // SQLite refuses some of these triggers, so no file can contain them.
            if (sqlite3_exec(raw.handle(), (trigger + "; END").c_str(), nullptr, nullptr, nullptr) == SQLITE_OK)
            {
                EXPECT_EQ(openAndUse(file), 0);
                EXPECT_EQ(raw.value("PRAGMA integrity_check"), "ok");
            }
        }
    }
}

TEST_F(DamagedFiles, ViewsInPlaceOfTablesGiveCodes)
{
    EXPECT_EQ(openAndUseChanged("ALTER TABLE FdbFaultTbl RENAME TO Old; CREATE VIEW FdbFaultTbl AS SELECT * FROM Old"),
              0);
    EXPECT_EQ(openAndUseChanged("DROP TABLE FdbFaultTbl; CREATE VIEW FdbFaultTbl AS SELECT * FROM FdbFaultTbl"), 0);
    EXPECT_EQ(openAndUseChanged("DROP TABLE FdbFaultTbl; CREATE VIEW FdbFaultTbl AS SELECT 1, 'two'"), 0);
    EXPECT_EQ(
        openAndUseChanged("DROP TABLE FdbFaultStatisticTbl; CREATE VIEW FdbFaultStatisticTbl AS SELECT * FROM nowhere"),
        0);
    int const asView =
        openAndUseChanged("DROP TABLE FdbVersionTbl; CREATE VIEW FdbVersionTbl AS "
                          "SELECT 1 AS VersionEntryId, 'FormatVersion' AS Component, '1.0.0' AS Version");
    expectCode(asView);
}

TEST_F(DamagedFiles, EndlessViewsAndTriggersAreInterrupted)
{
    // These yield no row, so they take only time.
    std::string const endless =
        "(WITH RECURSIVE c(x) AS (SELECT 1 UNION ALL SELECT x+1 FROM c) SELECT x FROM c WHERE x<0)";
    std::string const hugeJoin = "(SELECT a.rowid AS x FROM FdbVersionTbl a, FdbFaultStatisticTbl b, "
                                 "FdbFaultStatisticTbl c, FdbFaultStatisticTbl d, FdbFaultStatisticTbl e, "
                                 "FdbFaultStatisticTbl f, FdbFaultStatisticTbl g, FdbFaultStatisticTbl h "
                                 "WHERE b.EntryId+c.EntryId+d.EntryId+e.EntryId+f.EntryId+g.EntryId+h.EntryId<0)";
    for (std::string const& source : {endless, hugeJoin})
    {
        std::string const file = dir.file("met.db");
        removeWithSidecars(file);
        writeFile(file, healthy);
        RawDb(file).exec("CREATE TRIGGER t AFTER INSERT ON FdbFaultTbl BEGIN "
                         "DELETE FROM FdbFaultTbl WHERE EntryId IN " +
                         source + "; END; CREATE VIEW v AS SELECT * FROM " + source);
        FaultDb other;
        ASSERT_EQ(other.openDb(file, false), 0);
        Fault fault = makeFault(kRows + 1);
        FaultTbl faults;
        EXPECT_EQ(other.insert(fault), -2);
        EXPECT_EQ(other.getFaultTbl("SELECT * FROM v", faults), -2);
        EXPECT_EQ(other.getFaultTbl(faults), static_cast<int>(kRows)) << "other statements are not interrupted";
        EXPECT_EQ(other.closeDb(), 0);
    }
}

TEST_F(DamagedFiles, AnEndlessTriggerDelaysARenumberingOnce)
{
    // So many rows that the test would exceed its ctest timeout if the trigger were interrupted once for each row.
    RawDb raw(path);
    raw.exec("WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i+1 FROM n WHERE i<1000) "
             "INSERT INTO FdbFaultTbl(RdbStartupId) SELECT 77 FROM n;"
             "CREATE TRIGGER t AFTER UPDATE ON FdbFaultTbl BEGIN SELECT count(*) FROM "
             "(WITH RECURSIVE c(x) AS (SELECT 1 UNION ALL SELECT x+1 FROM c) SELECT x FROM c); END");
    ASSERT_EQ(db.openDb(path, false), 0);
    EXPECT_EQ(db.updateRdbStartup(78, 77), 0);
    EXPECT_EQ(raw.value("SELECT count(*) FROM FdbFaultTbl WHERE RdbStartupId=77"), "1000");
}

TEST_F(DamagedFiles, AnEndlessViewInPlaceOfTheVersionsIsRefused)
{
    RawDb(path).exec("DROP TABLE FdbVersionTbl; CREATE VIEW FdbVersionTbl AS "
                     "WITH RECURSIVE c(x) AS (SELECT 1 UNION ALL SELECT x+1 FROM c) "
                     "SELECT x AS VersionEntryId, x||'' AS Component, x||'' AS Version FROM c WHERE x<0");
    EXPECT_EQ(db.openDb(path, false), -2);
}

TEST_F(DamagedFiles, ViewsOfViewsThatKeepTheCompilerBusyAreRefused)
{
    for (unsigned int depth : {10U, 13U})
    {
        std::string sql = "ALTER TABLE FdbFaultTbl RENAME TO v0";
        for (unsigned int i = 1; i <= depth; ++i)
        {
            std::string const inner = i == 1 ? "v0" : "v" + std::to_string(i - 1);
            sql += "; CREATE VIEW v" + std::to_string(i) + " AS SELECT x.* FROM " + inner + " x JOIN " + inner + " y";
        }
        sql += "; CREATE VIEW FdbFaultTbl AS SELECT * FROM v" + std::to_string(depth);
        std::string const file = dir.file("met.db");
        removeWithSidecars(file);
        writeFile(file, healthy);
        RawDb(file).exec(sql);
        FaultDb other;
        FaultTbl faults;
        ASSERT_EQ(other.openDb(file, false), 0);
        EXPECT_EQ(other.getFaultTbl(faults), -2) << depth;
        EXPECT_EQ(other.closeDb(), 0);
    }
}
