// Writes seed files into the folder argv[1]: databases of the library, and files that resemble them.

#include "FuzzSupport.h"

#include <fdb/FaultDb.h>

#include <filesystem>

namespace
{

/// Runs `sql`, one or more statements, on the file.
void exec(std::string const& path, char const* sql)
{
    sqlite3* db = nullptr;
    bool const isOpen = sqlite3_open(path.c_str(), &db) == SQLITE_OK;
    bool const isDone = isOpen && sqlite3_exec(db, sql, nullptr, nullptr, nullptr) == SQLITE_OK;
    fuzz::require(sqlite3_close(db) == SQLITE_OK && isDone, sql);
}

void create(std::string const& path)
{
    FaultDb db;
    fuzz::require(db.createDb(path, true) == RESULT_OK, "a seed file can be created");
}

void fill(std::string const& path)
{
    create(path);
    FaultDb db;
    fuzz::require(db.openDb(path, false) == RESULT_OK, "a seed file can be opened");
    for (unsigned int i = 1; i <= 8; ++i)
    {
        Fault fault;
        fault.FaultCode = static_cast<faultCode_t>(1000 + i);
        fault.Description = i == 3 ? "it''s hot" : "description";
        fault.Status = i % 2 == 0 ? FAULT_ACTIVE : FAULT_INACTIVE;
        fault.RdbStartupId = 6 + i % 2;
        FaultStatistic statistic;
        statistic.FaultCode = fault.FaultCode;
        statistic.FaultActive = fault.Status;
        statistic.RdbStartupId = fault.RdbStartupId;
        fuzz::require(db.insert(fault) == RESULT_OK && db.insert(statistic) == RESULT_OK, "a seed file can be filled");
    }
    fuzz::require(db.closeDb() == RESULT_OK, "a seed file can be closed");
}

/// Creates a filled file and changes it with `sql`.
void variant(std::string const& path, char const* sql)
{
    fill(path);
    exec(path, sql);
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2)
    {
        return 2;
    }
    fuzz::silenceLog();
    fuzz::MemoryDir const dir;
    create(dir.file("fresh"));
    fill(dir.file("filled"));
    variant(dir.file("other_version"), "UPDATE FdbVersionTbl SET Version='2.0.0'");
    variant(dir.file("two_versions"), "INSERT INTO FdbVersionTbl VALUES(null,'formatversion','1.0.0')");
    variant(dir.file("write_ahead_log"), "PRAGMA journal_mode=WAL");
    // With small pages, a changed byte is more likely to matter.
    variant(dir.file("small_pages"), "PRAGMA page_size=512; VACUUM");
    variant(dir.file("small_auto_vacuum"), "PRAGMA page_size=512; PRAGMA auto_vacuum=FULL; VACUUM");
    variant(dir.file("small_overflow"),
            "PRAGMA page_size=512; UPDATE FdbFaultTbl SET Description=hex(zeroblob(900)); VACUUM");
    variant(dir.file("small_free_pages"),
            "PRAGMA page_size=512; UPDATE FdbFaultTbl SET Description=hex(zeroblob(900)); VACUUM;"
            "DELETE FROM FdbFaultTbl WHERE EntryId%2");
    variant(dir.file("foreign_cells"),
            "PRAGMA page_size=512; VACUUM; UPDATE FdbFaultTbl SET FaultCode='text', Status=NULL, Description=x'00ff',"
            "TimeStampUTC=1.5 WHERE EntryId<4; UPDATE FdbFaultStatisticTbl SET OccurenceCnt=-1, FaultActive='ACTIVE'");
    variant(dir.file("index_and_trigger"),
            "PRAGMA page_size=512; VACUUM; CREATE INDEX i ON FdbFaultTbl(RdbStartupId);"
            "CREATE TRIGGER t AFTER UPDATE ON FdbFaultTbl BEGIN DELETE FROM FdbFaultStatisticTbl; END");
    variant(dir.file("view"), "PRAGMA page_size=512; VACUUM; ALTER TABLE FdbFaultTbl RENAME TO Old;"
                              "CREATE VIEW FdbFaultTbl AS SELECT * FROM Old");
    variant(dir.file("columns"), "PRAGMA page_size=512; VACUUM; ALTER TABLE FdbFaultTbl ADD COLUMN Extra DEFAULT 5;"
                                 "ALTER TABLE FdbFaultStatisticTbl ADD COLUMN Twice AS (OccurenceCnt * 2)");
    // Not created by the library, as the first table fixes the encoding.
    exec(dir.file("utf16"), "PRAGMA encoding='UTF-16'; PRAGMA page_size=512;"
                            "CREATE TABLE FdbVersionTbl(a INTEGER PRIMARY KEY, Component TEXT, Version TEXT);"
                            "INSERT INTO FdbVersionTbl VALUES(1,'FormatVersion','1.0.0');"
                            "CREATE TABLE FdbFaultTbl(EntryId INTEGER PRIMARY KEY, RdbStartupId);"
                            "INSERT INTO FdbFaultTbl VALUES(1,7)");
    fuzz::writeFile(dir.file("truncated"), fuzz::readFile(dir.file("small_pages")).substr(0, 700));
    fuzz::writeFile(dir.file("empty"), "");
    fuzz::writeFile(dir.file("text"), "no database, but a text that is longer than the header of one: some more words, "
                                      "and some more, until there are a hundred bytes and then a few.\n");

    std::filesystem::create_directories(argv[1]);
    std::filesystem::path const source = std::filesystem::path(dir.file("fresh")).parent_path();
    for (auto const& entry : std::filesystem::directory_iterator(source))
    {
        std::string const name = entry.path().filename().string();
        if (name.find('-') == std::string::npos) // Journals and write-ahead logs are no seeds.
        {
            std::filesystem::copy_file(entry.path(), std::filesystem::path(argv[1]) / name,
                                       std::filesystem::copy_options::overwrite_existing);
        }
    }
    return 0;
}
