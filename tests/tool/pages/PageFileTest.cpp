// Files of pages: their header, the size of their pages when the header is lost, and the log above them.

#include "pages/PageSupport.h"

#include <tool/pages/FileBytes.h>
#include <tool/pages/PageFile.h>
#include <tool/pages/TableTree.h>

#include "TestSupport.h"

#include <gtest/gtest.h>

#include <system_error>

namespace
{

using tool::FileBytes;
using tool::FileHeader;
using tool::PageFile;

/// A database with `rows` rows of 100 bytes in the table t, whose root is page 2.
std::string makeDatabase(TempDir const& dir, std::string const& pragmas, int rows = 1000)
{
    std::string path = dir.file("made.db");
    RawDb db(path);
    db.exec(pragmas +
            "CREATE TABLE t(i INTEGER PRIMARY KEY, a, b); WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i "
            "+ 1 FROM n WHERE i < " +
            std::to_string(rows) + ") INSERT INTO t(a, b) SELECT hex(zeroblob(50)), i FROM n");
    return path;
}

std::size_t countRows(PageFile const& file)
{
    std::size_t rows = 0;
    tool::TablePage page;
    std::string bytes;
    tool::TableTree const tree(file, 2, 3);
    for (tool::TableTree::Leaf const& leaf : tree.leaves())
    {
        rows += file.read(leaf.page, bytes) && page.parse(bytes, leaf.page, file.header().reserved)
                    ? page.cells().size()
                    : 0;
    }
    return rows;
}

} // namespace

TEST(PageFileTest, ReadsTheRowsOfPagesOfEachSize)
{
    for (std::uint32_t size = 512; size <= 65536; size *= 2)
    {
        TempDir const dir;
        FileBytes const bytes(makeDatabase(dir, "PRAGMA page_size=" + std::to_string(size) + ";"));
        PageFile const file(bytes);
        EXPECT_TRUE(file.isHeaderSound()) << size;
        EXPECT_EQ(file.pageSize(), size);
        EXPECT_EQ(file.pageCount(), file.statedPageCount());
        EXPECT_EQ(countRows(file), 1000u) << size;
    }
}

TEST(PageFileTest, FindsTheSizeOfThePagesWithoutPage1)
{
    for (std::uint32_t size = 512; size <= 32768; size *= 2)
    {
        TempDir const dir;
        std::string content = readFile(makeDatabase(dir, "PRAGMA page_size=" + std::to_string(size) + ";"));
        content.replace(0, size, size, '\x5a');
        MemoryBytes const bytes(content);
        PageFile const file(bytes);
        EXPECT_FALSE(file.isHeaderSound()) << size;
        EXPECT_EQ(file.pageSize(), size);
        EXPECT_EQ(countRows(file), 1000u) << size;
    }
}

TEST(PageFileTest, DoesNotBelieveAHeaderWhosePage1IsNoTable)
{
    TempDir const dir;
    std::string content = readFile(makeDatabase(dir, "PRAGMA page_size=1024;"));
    content[16] = 0x20; // Another size that exists.
    content[100] = 'x';
    MemoryBytes const bytes(content);
    EXPECT_EQ(PageFile(bytes).pageSize(), 1024u);
    EXPECT_EQ(PageFile(bytes).header().pageCount, 0u);
}

TEST(PageFileTest, CorrectsALayoutUnderWhichThereAreFewerRows)
{
    struct Case
    {
        std::size_t offset;
        char value;
    };
    TempDir const dir;
    std::string const sound = readFile(makeDatabase(dir, "PRAGMA page_size=1024;"));
    for (Case const& wrong : {Case{16, '\x02'}, Case{16, '\x08'}, Case{16, '\x80'}, Case{20, '\x08'}, Case{20, '\xff'}})
    {
        std::string content = sound;
        content[wrong.offset] = wrong.value;
        MemoryBytes const bytes(content);
        PageFile const file(bytes);
        EXPECT_TRUE(file.isLayoutCorrected()) << wrong.offset << ": " << int{wrong.value};
        EXPECT_TRUE(file.isHeaderSound());
        EXPECT_EQ(countRows(file), 1000u) << wrong.offset << ": " << int{wrong.value};
    }
    MemoryBytes const bytes(sound);
    EXPECT_FALSE(PageFile(bytes).isLayoutCorrected());
}

TEST(PageFileTest, FindsTheSizeOfThePagesBesideMoreOverflowPages)
{
    TempDir const dir;
    std::string const path = makeDatabase(dir, "PRAGMA page_size=1024;", 0);
    RawDb(path).exec("WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 40) "
                     "INSERT INTO t(a, b) SELECT hex(zeroblob(5000)), i FROM n");
    std::string content = readFile(path);
    content.replace(0, 1024, 1024, '\0');
    MemoryBytes const bytes(content);
    EXPECT_EQ(PageFile(bytes).pageSize(), 1024u);
}

TEST(PageFileTest, StatesThePagesThatACutFileShouldHave)
{
    TempDir const dir;
    std::string const content = readFile(makeDatabase(dir, "PRAGMA page_size=1024;"));
    MemoryBytes const bytes(content.substr(0, 10 * 1024 + 100));
    PageFile const file(bytes);
    EXPECT_EQ(file.pageCount(), 10u);
    EXPECT_EQ(file.statedPageCount(), content.size() / 1024);
    std::string page;
    EXPECT_TRUE(file.read(10, page));
    EXPECT_FALSE(file.read(11, page));
    EXPECT_FALSE(file.read(0, page));
    EXPECT_FALSE(file.read(0xffffffff, page));
}

TEST(PageFileTest, HasNoPagesInOtherFiles)
{
    for (std::string const& content : {std::string(), std::string("text"), std::string(100000, '\0'),
                                       std::string(100000, 'x'), std::string("SQLite format 3\0", 16)})
    {
        MemoryBytes const bytes(content);
        PageFile const file(bytes);
        EXPECT_EQ(file.pageSize(), 0u) << content.size();
        EXPECT_EQ(file.pageCount(), 0u);
    }
}

TEST(PageFileTest, TakesTheCommittedFramesOfTheLog)
{
    TempDir const dir;
    std::string const path = makeDatabase(dir, "PRAGMA page_size=1024; PRAGMA journal_mode=WAL;");
    RawDb db(path); // Keeps the log from being removed.
    db.exec("PRAGMA wal_autocheckpoint=0; DELETE FROM t WHERE i > 900; INSERT INTO t(a) VALUES('new')");
    FileBytes const bytes(path);
    FileBytes const log(path + "-wal");
    EXPECT_EQ(countRows(PageFile(bytes, &log)), 901u);

    std::string cut = readFile(path + "-wal");
    cut.resize(cut.size() - 1); // The last transaction is not whole any more.
    MemoryBytes const cutLog(cut);
    EXPECT_EQ(countRows(PageFile(bytes, &cutLog)), 900u);

    cut[24] = static_cast<char>(cut[24] ^ 1); // The checksum of the header.
    MemoryBytes const badLog(cut);
    EXPECT_EQ(tool::LogFrames(badLog).pageSize(), 0u);
}

TEST(PageFileTest, IgnoresALogOfAnotherFile)
{
    std::string log(100000, 'w');
    log.replace(0, 4, "\x37\x7f\x06\x82");
    MemoryBytes const bytes(firstPage(1));
    MemoryBytes const logBytes(log);
    EXPECT_EQ(PageFile(bytes, &logBytes).pageCount(), 1u);
}

TEST(FileHeaderTest, RefusesValuesThatCannotBeRight)
{
    std::string const good = firstPage(7);
    ASSERT_TRUE(FileHeader::parse(good).isDatabase);
    EXPECT_EQ(FileHeader::parse(good).pageCount, 7u);
    for (auto const& [offset, value] :
         std::vector<std::pair<std::size_t, std::string>>{{0, "s"},
                                                          {16, std::string("\x01\x01", 2)},
                                                          {16, std::string("\x02\x01", 2)},
                                                          {16, std::string(2, '\0')},
                                                          {20, "\x40"}})
    {
        std::string bad = good;
        bad.replace(offset, value.size(), value);
        EXPECT_FALSE(FileHeader::parse(bad).isDatabase) << offset;
        EXPECT_EQ(FileHeader::parse(bad).pageSize, 0u) << offset;
    }
    EXPECT_FALSE(FileHeader::parse(good.substr(0, 99)).isDatabase);
}

TEST(FileHeaderTest, IgnoresAPageCountThatTheLastWriterDidNotMaintain)
{
    std::string bytes = firstPage(7);
    bytes[27] = 1;
    EXPECT_EQ(FileHeader::parse(bytes).pageCount, 0u);
}

TEST(FileBytesTest, ReadsInsideOfTheFileOnly)
{
    TempDir const dir;
    writeFile(dir.file("f"), "0123456789");
    FileBytes const bytes(dir.file("f"));
    std::string text(4, '\0');
    EXPECT_EQ(bytes.size(), 10u);
    EXPECT_TRUE(bytes.read(6, text.data(), 4));
    EXPECT_EQ(text, "6789");
    EXPECT_FALSE(bytes.read(7, text.data(), 4));
    EXPECT_THROW(FileBytes(dir.file("none")), std::system_error);
}
