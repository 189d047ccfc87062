// The new file of a rescue: rows that are there twice, and rows that share a key.

#include "TestSupport.h"

#include <tool/rescue/RescuedFile.h>

#include <gtest/gtest.h>

namespace
{

using tool::FoundRow;
using tool::RecordCell;
using tool::RescuedFile;

/// A fault with this description; all numbers are 0.
class SoundFault
{
public:
    SoundFault(std::int64_t key, std::string_view description) : m_key(key), m_cells(16)
    {
        for (std::size_t column = 1; column < m_cells.size(); ++column)
        {
            bool const isText = tool::faultSchema().columns[column].kind != tool::ColumnKind::NUMBER;
            m_cells[column].type = isText ? RecordCell::TEXT : RecordCell::INTEGER;
        }
        m_cells[9].bytes = description;
    }

    FoundRow row(tool::PageNumber page = 7) const { return {m_key, page, m_cells, nullptr}; }

private:
    std::int64_t m_key;
    std::vector<RecordCell> m_cells;
};

class RescuedFileTest : public testing::Test
{
protected:
    /// "1 text|..." of the faults.
    std::string faults() const
    {
        return RawDb(path).value(
            "SELECT ifnull(group_concat(EntryId || ' ' || Description, '|'), '') FROM FdbFaultTbl");
    }
    std::string doubtful() const
    {
        return RawDb(path).value(
            "SELECT ifnull(group_concat(EntryId || ' ' || Description || ' ' || Reason, '|'), '') FROM "
            "(SELECT * FROM RescuedDoubtfulTbl ORDER BY EntryId, Description)");
    }

    TempDir dir;
    std::string const path = dir.file("new.db");
    RescuedFile file{path};
};

} // namespace

TEST_F(RescuedFileTest, HasNoTableOfDoubtfulRowsWithoutThem)
{
    file.addFault(SoundFault(5, "a").row());
    file.finish();
    EXPECT_EQ(faults(), "5 a");
    EXPECT_EQ(RawDb(path).value("SELECT count(*) FROM sqlite_master"), "4");
}

TEST_F(RescuedFileTest, AFaultThatIsThereTwiceCountsOnce)
{
    file.addFault(SoundFault(5, "a").row());
    file.addFault(SoundFault(5, "a").row(8));
    file.addDoubtful(SoundFault(5, "a").row(9), "reason");
    EXPECT_EQ(file.faults(), 1u);
    EXPECT_EQ(file.doubtful(), 0u);
    file.finish();
    EXPECT_EQ(faults(), "5 a");
}

TEST_F(RescuedFileTest, FaultsThatShareAKeyAreAllDoubtful)
{
    file.addFault(SoundFault(4, "x").row());
    for (char const* const text : {"a", "b", "c"})
    {
        file.addFault(SoundFault(5, text).row());
    }
    EXPECT_EQ(file.faults(), 1u);
    EXPECT_EQ(file.doubtful(), 3u);
    file.finish();
    EXPECT_EQ(faults(), "4 x");
    EXPECT_EQ(doubtful(), "5 a another row has the same key|5 b another row has the same key|5 c another row has the "
                          "same key");
}

TEST_F(RescuedFileTest, ADoubtfulRowDoesNotMakeAFaultDoubtful)
{
    file.addFault(SoundFault(5, "a").row());
    file.addDoubtful(SoundFault(5, "b").row(), "reason");
    file.finish();
    EXPECT_EQ(faults(), "5 a");
    EXPECT_EQ(doubtful(), "5 b reason");
}

TEST_F(RescuedFileTest, NewFaultsGetLargerKeys)
{
    file.addFault(SoundFault(5, "a").row());
    file.raiseSequence(tool::faultSchema(), 3);
    EXPECT_EQ(file.lastKey(tool::faultSchema()), 5);
    file.raiseSequence(tool::faultSchema(), 30);
    file.raiseSequence(tool::statisticSchema(), 4);
    file.finish();
    EXPECT_EQ(RawDb(path).value("SELECT group_concat(name || seq) FROM (SELECT * FROM sqlite_sequence WHERE name <> "
                                "'FdbVersionTbl' ORDER BY name)"),
              "FdbFaultStatisticTbl4,FdbFaultTbl30");
}
