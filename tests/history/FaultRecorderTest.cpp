#include "TestSupport.h"

#include <fdb/FaultDb.h>
#include <history/FaultRecorder.h>

#include <gmock/gmock.h>

namespace
{

using namespace firaim;

class FaultRecorderTest : public testing::Test
{
protected:
    TempDir dir;
    std::string const path = dir.file("faults.db");
    FaultRecorder recorder;
};

TEST_F(FaultRecorderTest, CreatesTheFileThatTheFacadeCreates)
{
    Console const console;
    std::string const other = dir.file("facade.db");
    ASSERT_EQ(FaultDb::getInstance()->createDb(other, false), RESULT_OK);
    ASSERT_EQ(recorder.open(path), HISTORY_OK) << recorder.lastProblem();
    for (char const* const query : {"SELECT type, name, tbl_name, sql FROM sqlite_master ORDER BY rowid",
                                    "SELECT * FROM FdbVersionTbl", "SELECT * FROM sqlite_sequence"})
    {
        EXPECT_EQ(RawDb(path).rows(query), RawDb(other).rows(query)) << query;
    }
}

} // namespace
