// The root pages that the table of contents names.

#include "pages/PageSupport.h"

#include <tool/pages/FileBytes.h>
#include <tool/pages/SchemaRoots.h>

#include "TestSupport.h"

#include <gmock/gmock.h>

namespace
{

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::SizeIs;
using tool::FileBytes;
using tool::PageFile;

} // namespace

TEST(SchemaRootsTest, NamesTheTablesOnly)
{
    TempDir const dir;
    std::string const path = dir.file("made.db");
    RawDb(path).exec("CREATE TABLE a(x); CREATE INDEX i ON a(x); CREATE TABLE b(x); CREATE VIEW v AS SELECT 1");
    FileBytes const bytes(path);
    EXPECT_THAT(tool::readSchemaRoots(PageFile(bytes)), ElementsAre(Pair("a", 2), Pair("b", 4)));
}

TEST(SchemaRootsTest, ReadsALongTableOfContents)
{
    TempDir const dir;
    std::string const path = dir.file("made.db");
    RawDb db(path);
    db.exec("PRAGMA page_size=512");
    for (int number = 0; number < 50; ++number)
    {
        // The statements are longer than a page.
        db.exec("CREATE TABLE t" + std::to_string(number) + "(x /* " + std::string(600, '-') + " */)");
    }
    FileBytes const bytes(path);
    EXPECT_THAT(tool::readSchemaRoots(PageFile(bytes)), SizeIs(50));
}

TEST(SchemaRootsTest, NamesNothingThatIsNoPage)
{
    std::string page = firstPage(1);
    std::string const record = std::string("\x06\x17\x0f\x0f\x06\x0d", 6) + "tablett" + bigEndianBytes(1ull << 40, 8);
    std::string const cell = leafCell(1, record);
    page.replace(kPageSize - cell.size(), cell.size(), cell);
    page.replace(103, 4, bigEndianBytes(1, 2) + bigEndianBytes(kPageSize - cell.size(), 2));
    page.replace(108, 2, bigEndianBytes(kPageSize - cell.size(), 2));
    MemoryBytes const bytes(page);
    PageFile const file(bytes);
    ASSERT_TRUE(file.isHeaderSound());
    EXPECT_THAT(tool::readSchemaRoots(file), IsEmpty());
}
