#include "DamagedSet.h"

#include "TestSupport.h"

namespace
{

/// The sound file after another program has changed its schema or content.
DamagedFile rewrittenFile(SoundFile const& sound, std::string const& what, std::string const& damage,
                          std::string const& sql)
{
    TempDir const dir;
    std::string const path = dir.file("changed.db");
    writeFile(path, sound.bytes);
    RawDb(path).exec("PRAGMA writable_schema=ON; " + sql);
    return changedFile(sound, what, damage, readFile(path));
}

/// As `rewrittenFile`, for a change after which the file may still be called whole.
DamagedFile readableFile(SoundFile const& sound, std::string const& what, std::string const& damage,
                         std::string const& sql)
{
    DamagedFile file = rewrittenFile(sound, what, damage, sql);
    file.mayBeComplete = true;
    return file;
}

std::string setSchema(std::string const& table, std::string const& change)
{
    return "UPDATE sqlite_master SET " + change + " WHERE name='" + table + "';";
}

DamagedFile otherVersion(SoundFile const& sound)
{
    DamagedFile file = readableFile(sound, "other-version", "the file is of another version",
                                    "UPDATE FdbVersionTbl SET Version='2.0.0';");
    file.hasOtherVersion = true;
    return file;
}

/// The rows belong to a table of another program, by what the file says.
DamagedFile renamedTable(SoundFile const& sound)
{
    DamagedFile file = rewrittenFile(
        sound, "table-renamed", "the faults have another name",
        setSchema("FdbFaultTbl", "name='Other', tbl_name='Other', sql=replace(sql, 'FdbFaultTbl', 'Other')"));
    std::set<PageNumber> const pages = sound.faultPages.all();
    file.lostPages.insert(pages.begin(), pages.end());
    return file;
}

DamagedSet lyingSchemas()
{
    SoundFile const& plain = SoundFile::plain();
    std::string const faultRoot = std::to_string(plain.rootOf("FdbFaultTbl"));
    std::string const statisticRoot = std::to_string(plain.rootOf("FdbFaultStatisticTbl"));
    std::string const fault = "FdbFaultTbl";
    return {
        rewrittenFile(plain, "roots-swapped", "the schema swaps the tables' roots",
                      setSchema(fault, "rootpage=" + statisticRoot) +
                          setSchema("FdbFaultStatisticTbl", "rootpage=" + faultRoot)),
        rewrittenFile(plain, "roots-equal", "two tables have one root",
                      setSchema("FdbFaultStatisticTbl", "rootpage=" + faultRoot)),
        rewrittenFile(plain, "root-beyond", "a root lies behind the file", setSchema(fault, "rootpage=5000")),
        rewrittenFile(plain, "root-0", "a table has no root", setSchema(fault, "rootpage=0")),
        rewrittenFile(plain, "root-1", "a root is the first page", setSchema(fault, "rootpage=1")),
        rewrittenFile(plain, "root-leaf", "a root is one of the leaves",
                      setSchema(fault, "rootpage=" + std::to_string(*std::next(plain.faultPages.leaves.begin(), 9)))),
        rewrittenFile(plain, "root-text", "a root is a text", setSchema(fault, "rootpage='somewhere'")),
        readableFile(plain, "fewer-columns", "the schema leaves columns out",
                     setSchema(fault, "sql='CREATE TABLE FdbFaultTbl(EntryId INTEGER PRIMARY KEY, FaultCode)'")),
        readableFile(plain, "more-columns", "the schema has a column more",
                     setSchema(fault, "sql=replace(sql, ')', ', Extra TEXT)')")),
        readableFile(plain, "columns-moved", "the schema swaps two columns",
                     setSchema(fault, "sql=replace(replace(replace(sql, 'ModuleName', 'x'), 'Parameter', "
                                      "'ModuleName'), '\"x\"', '\"Parameter\"')")),
        rewrittenFile(plain, "no-table", "the schema lacks the faults",
                      "DELETE FROM sqlite_master WHERE name='FdbFaultTbl';"),
        renamedTable(plain),
        rewrittenFile(plain, "view", "the faults are a view",
                      setSchema(fault, "type='view', rootpage=0, sql='CREATE VIEW FdbFaultTbl AS SELECT 1'")),
        readableFile(plain, "no-sql", "the schema is no SQL", setSchema(fault, "sql='nothing that SQL knows'")),
        otherVersion(plain),
    };
}

std::string bytesOf(std::initializer_list<int> values)
{
    return {values.begin(), values.end()};
}

std::string overwritten(SoundFile const& sound, std::string bytes, PageNumber page, char filling)
{
    return bytes.replace((page - 1) * sound.pageSize, sound.pageSize, sound.pageSize, filling);
}

/// Free pages hold rows that look like faults: they must not come back.
DamagedSet removedRows()
{
    SoundFile const& sound = SoundFile::withRemovedRows();
    auto const trunk = static_cast<PageNumber>(numberAt(sound.bytes, 32, 4));
    std::size_t const trunkOffset = (trunk - 1) * sound.pageSize;
    PageNumber const root = sound.rootOf("FdbFaultTbl");
    std::string const parentLost = overwritten(sound, sound.bytes, root, '\0');
    auto const with = [&](std::string bytes, std::size_t offset, std::string const& content)
    { return bytes.replace(offset, content.size(), content); };
    std::string const self = sound.bytes.substr(32, 4);
    std::string const leaf = bytesOf({0, 0, 0, static_cast<int>(*sound.faultPages.leaves.begin())});
    std::string const huge(4, '\xff');
    DamagedSet files = {
        changedFile(sound, "parent-lost", "the parent of leaves is lost beside free pages with rows", parentLost),
        changedFile(sound, "first-page-lost", "the first page is lost beside free pages with rows",
                    overwritten(sound, sound.bytes, 1, '\0')),
        changedFile(sound, "free-list-loop", "the freelist is a loop", with(sound.bytes, trunkOffset, self)),
        changedFile(sound, "free-list-beyond", "the freelist leads out of the file",
                    with(sound.bytes, trunkOffset, huge)),
        changedFile(sound, "free-list-long", "a page of the freelist says that it has 2^32 entries",
                    with(sound.bytes, trunkOffset + 4, huge)),
        changedFile(sound, "free-list-has-leaf", "the freelist has a leaf of the faults",
                    with(sound.bytes, trunkOffset + 8, leaf)),
        changedFile(sound, "free-list-loop-parent-lost", "the freelist is a loop, and the parent of leaves is lost",
                    with(parentLost, trunkOffset, self)),
        changedFile(sound, "free-list-and-parent-lost", "the freelist and the parent of leaves are lost",
                    overwritten(sound, parentLost, trunk, '\0')),
        changedFile(sound, "first-page-and-parent-lost", "the first page and the parent of leaves are lost",
                    overwritten(sound, parentLost, 1, '\0')),
    };
    // Without the parent and the freelist, nothing tells the leaves of the table from free pages.
    for (DamagedFile& file : files)
    {
        bool const isParentLost = file.lostPages.count(root) != 0;
        bool const isListDamaged = file.lostPages.count(trunk) + file.lostPages.count(1) != 0;
        file.isAmbiguous = (isParentLost && isListDamaged) || file.name.find("has-leaf") != std::string::npos;
    }
    return files;
}

/// A walk from one key to the next must not visit the keys that do not exist.
DamagedSet distantKeys()
{
    SoundFile const& sound = SoundFile::withLargestKey();
    PageNumber const leaf = *std::next(sound.faultPages.leaves.begin(), 8);
    PageNumber const last = *sound.faultPages.leaves.rbegin();
    return {
        changedFile(sound, "leaf-lost", "a leaf is lost in a file with the largest key",
                    overwritten(sound, sound.bytes, leaf, '\0')),
        changedFile(sound, "last-leaf-lost", "the leaf with the largest key is lost",
                    overwritten(sound, sound.bytes, last, '\0')),
        changedFile(sound, "root-lost", "the root is lost in a file with the largest key",
                    overwritten(sound, sound.bytes, sound.rootOf("FdbFaultTbl"), '\0')),
        readableFile(SoundFile::plain(), "sequence-largest", "the last key is said to be the largest",
                     "UPDATE sqlite_sequence SET seq=9223372036854775807;"),
        readableFile(SoundFile::plain(), "sequence-negative", "the last key is said to be negative",
                     "UPDATE sqlite_sequence SET seq=-5;"),
    };
}

} // namespace

DamagedSet craftedFiles()
{
    DamagedSet all;
    for (DamagedSet const& files : {lyingSchemas(), removedRows(), distantKeys()})
    {
        all.insert(all.end(), files.begin(), files.end());
    }
    return all;
}
