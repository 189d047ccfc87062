// Files beside journals or write-ahead logs that are hot, damaged or those of another file: each is served or refused,
// and no acknowledged record is lost.

#include "DamagedFiles.h"
#include "TableModel.h"

#include <algorithm>
#include <random>

namespace
{

constexpr char kHotJournalMagic[] = "\xd9\xd5\x05\xf9\x20\xa1\x63\xd7";

/// Copies the file and its journal in the middle of a large transaction of another connection.
void copyInMidTransaction(std::string const& from, std::string const& to)
{
    RawDb writer(from);
    writer.exec("PRAGMA cache_size=1; PRAGMA journal_mode=PERSIST");
    writer.exec("BEGIN; UPDATE FdbFaultTbl SET Description=hex(zeroblob(5000)); DELETE FROM FdbFaultStatisticTbl");
    writeFile(to, readFile(from));
    writeFile(to + "-journal", readFile(from + "-journal"));
    writer.exec("ROLLBACK");
}

} // namespace

TEST_F(DamagedFiles, AHotJournalIsRolledBackAndNothingAcknowledgedIsLost)
{
    std::string const copy = dir.file("copy.db");
    copyInMidTransaction(path, copy);
    ASSERT_EQ(readFile(copy + "-journal").substr(0, 8), kHotJournalMagic);
    ASSERT_TRUE(readFile(copy) != healthy) << "the transaction had not written the file yet";
    FaultDb other;
    ASSERT_EQ(other.openDb(copy, false), 0);
    Tables const found = readTables(other);
    EXPECT_EQ(other.closeDb(), 0);
    ASSERT_EQ(db.openDb(path, false), 0);
    Tables const expected = readTables(db);
    ASSERT_EQ(found.faults.size(), kRows);
    ASSERT_EQ(found.statistics.size(), kRows);
    for (std::size_t i = 0; i < kRows; ++i)
    {
        EXPECT_EQ(members(found.faults[i]), members(expected.faults[i]));
        EXPECT_EQ(members(found.statistics[i]), members(expected.statistics[i]));
    }
    expectFullService(copy);
}

TEST_F(DamagedFiles, AnyDamagedHotJournalIsServedOrRefused)
{
    std::string const copy = dir.file("copy.db");
    copyInMidTransaction(path, copy);
    std::string const file = readFile(copy);
    std::string const journal = readFile(copy + "-journal");
    std::mt19937 random(3);
    for (unsigned int i = 0; i < 150; ++i)
    {
        SCOPED_TRACE("damage " + std::to_string(i));
        std::string damaged = journal.substr(0, i % 3 == 0 ? random() % journal.size() : journal.size());
        for (unsigned int change = 0; change <= i % 4 && damaged.size() > 8; ++change)
        {
            // Change bytes after the magic number, without which it is no journal; half of the changes are in the
            // header.
            std::size_t const range = i % 2 == 0 ? std::min<std::size_t>(damaged.size(), 40) : damaged.size();
            damaged[8 + random() % (range - 8)] = static_cast<char>(random());
        }
        removeWithSidecars(copy);
        writeFile(copy, file);
        writeFile(copy + "-journal", damaged);
        openAndUse(copy);
    }
}

TEST_F(DamagedFiles, AJournalWithoutItsDatabaseDoesNotReachTheNextOne)
{
    std::string const copy = dir.file("copy.db");
    copyInMidTransaction(path, copy);
    std::string const journal = readFile(copy + "-journal");
    for (bool const isCreatedFirst : {true, false})
    {
        removeWithSidecars(copy);
        writeFile(copy + "-journal", journal);
        FaultDb other;
        // Opening a missing file creates an empty one, which is not a database yet.
        EXPECT_EQ(isCreatedFirst ? -2 : other.openDb(copy, false), -2);
        ASSERT_EQ(other.createDb(copy, true), 0);
        expectFullService(copy);
        EXPECT_EQ(RawDb(copy).value("SELECT count(*) FROM FdbFaultTbl"), "1");
    }
}

TEST_F(DamagedFiles, TheJournalOfAnotherDatabaseIsServedOrRefused)
{
    std::string const copy = dir.file("copy.db");
    copyInMidTransaction(path, copy);
    std::string const journal = readFile(copy + "-journal");
    std::string const another = dir.file("another.db");
    ASSERT_EQ(db.createDb(another, true), 0);
    for (std::string const& file : {readFile(another), healthy, std::string("a text\n"), std::string(8192, 'x')})
    {
        removeWithSidecars(copy);
        writeFile(copy, file);
        writeFile(copy + "-journal", journal);
        openAndUse(copy);
    }
}

TEST_F(DamagedFiles, AForeignOrDamagedWriteAheadLogIsServedOrRefused)
{
    std::string const source = dir.file("source.db");
    writeFile(source, healthy);
    RawDb writer(source);
    writer.exec("PRAGMA journal_mode=WAL; PRAGMA wal_autocheckpoint=0; UPDATE FdbFaultTbl SET Description='new'");
    std::string const log = readFile(source + "-wal");
    std::string const index = readFile(source + "-shm");
    std::string const file = readFile(source);
    std::string const copy = dir.file("copy.db");
    std::mt19937 random(4);
    for (unsigned int i = 0; i < 120; ++i)
    {
        SCOPED_TRACE("damage " + std::to_string(i));
        std::string damaged = log.substr(0, i % 3 == 0 ? random() % log.size() : log.size());
        for (unsigned int change = 0; change < i % 4 && !damaged.empty(); ++change)
        {
            damaged[random() % damaged.size()] = static_cast<char>(random());
        }
        removeWithSidecars(copy);
        writeFile(copy, i % 5 == 0 ? healthy : file);
        writeFile(copy + "-wal", damaged);
        if (i % 2 == 0)
        {
            writeFile(copy + "-shm", index);
        }
        openAndUse(copy);
    }
}

TEST_F(DamagedFiles, TheLogOfACrashedWriterInWriteAheadLogModeIsReadToTheEnd)
{
    std::string const copy = dir.file("copy.db");
    {
        RawDb writer(path);
        writer.exec("PRAGMA journal_mode=WAL; PRAGMA wal_autocheckpoint=0; UPDATE FdbFaultTbl SET Description='new'");
        writeFile(copy, readFile(path));
        writeFile(copy + "-wal", readFile(path + "-wal"));
    }
    expectFullService(copy);
    EXPECT_EQ(RawDb(copy).value("SELECT count(*) FROM FdbFaultTbl WHERE Description='new'"), std::to_string(kRows));
}
