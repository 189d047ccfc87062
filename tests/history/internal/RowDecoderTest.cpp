// Cells that our programs do not write: the reader and the facade must decode them alike.

#include "history/HistorySupport.h"

#include <fdb/FaultDb.h>

#include <gmock/gmock.h>

using namespace firaim;

namespace
{

char const* const kOddCells[] = {"NULL",
                                 "-1",
                                 "-5",
                                 "0",
                                 "7",
                                 "65535",
                                 "65536",
                                 "4294967295",
                                 "4294967296",
                                 "9223372036854775807",
                                 "-9223372036854775808",
                                 "1.5",
                                 "-1.5",
                                 "1e300",
                                 "-0.0",
                                 "1e15",
                                 "''",
                                 "' 12'",
                                 "'12 '",
                                 "'12abc'",
                                 "'abc'",
                                 "'+7'",
                                 "'-7'",
                                 "'99999999999999999999'",
                                 "x''",
                                 "x'3132'",
                                 "x'FF00FE'",
                                 "x'313200'",
                                 "'a' || char(0) || 'b'",
                                 "'active'",
                                 "'active' || char(0)",
                                 "'ErrorActive'",
                                 "'ErrorActive '",
                                 "'errorActive'",
                                 "x'4572726F72416374697665'",
                                 "'gr\xc3\xbc\xc3\x9f'",
                                 "'\xff\xfe'"};

class RowDecoding : public HistoryTest
{
protected:
    /// The names of all columns but the key. Call this while the file's encoding is UTF-8, as RawDb expects that.
    std::vector<std::string> columnsOf(std::string const& table) const
    {
        std::vector<std::string> names;
        for (auto const& row : RawDb(path).rows("SELECT name FROM pragma_table_info('" + table + "') WHERE cid > 0"))
        {
            names.push_back(*row[0]);
        }
        return names;
    }

    /// Adds a sound row with one odd cell, for each combination of an odd cell and a column.
    void addOddRows(std::string const& table, std::vector<std::string> const& columns, std::string const& sound) const
    {
        RawDb raw(path);
        raw.exec("BEGIN");
        for (std::string const& column : columns)
        {
            for (char const* const cell : kOddCells)
            {
                raw.exec("INSERT INTO " + table + " SELECT " + sound);
                raw.exec("UPDATE " + table + " SET " + column + " = " + cell + " WHERE rowid = last_insert_rowid()");
            }
        }
        raw.exec("COMMIT");
    }

    void addOddFaults() const
    {
        addOddRows("FdbFaultTbl", faultColumns,
                   "NULL,'date',1,'name','module','parameter',2,'zone','ErrorInactive','description',"
                   "'dump',3,4,'backup',5,'system'");
    }

    std::vector<std::string> const faultColumns = columnsOf("FdbFaultTbl");

    /// The log lines about odd cells since the last call.
    std::vector<std::string> reports()
    {
        std::vector<std::string> found;
        for (std::string const& line : console.takeLines())
        {
            if (line.find("Casting value") != std::string::npos || line.find("Unknown type") != std::string::npos)
            {
                found.push_back(line);
            }
        }
        return found;
    }

    void expectSameFaults()
    {
        FaultDb db;
        ASSERT_EQ(db.openDb(path, true), 0);
        FaultTbl expected;
        ASSERT_GT(db.getFaultTbl("SELECT * FROM FdbFaultTbl", expected), 0);
        EXPECT_EQ(db.closeDb(), 0);
        std::vector<std::string> const expectedReports = reports();

        ASSERT_EQ(reader.open(path), HISTORY_OK) << reader.lastProblem();
        FaultQuery query;
        query.order = FaultQuery::OLDEST_FIRST;
        FaultCursor cursor = reader.faults(query);
        for (Fault const& fault : expected)
        {
            Fault read;
            ASSERT_EQ(cursor.next(read), HISTORY_OK) << reader.lastProblem();
            EXPECT_EQ(members(read), members(fault));
        }
        Fault none;
        EXPECT_EQ(cursor.next(none), HISTORY_END);
        EXPECT_EQ(reports(), expectedReports);
        EXPECT_FALSE(expectedReports.empty());
    }
};

} // namespace

TEST_F(RowDecoding, OfFaultsIsThatOfTheLibraryInEveryOddCell)
{
    addOddFaults();
    expectSameFaults();
}

TEST_F(RowDecoding, OfFaultsIsThatOfTheLibraryWhereTextsAreUtf16)
{
    std::vector<std::string> texts;
    for (auto const& row : RawDb(path).rows("SELECT sql FROM sqlite_master WHERE name LIKE 'Fdb%' AND sql NOT NULL"))
    {
        texts.push_back(*row[0]);
    }
    std::remove(path.c_str());
    {
        RawDb raw(path);
        raw.exec("PRAGMA encoding='UTF-16le'");
        for (std::string const& text : texts)
        {
            raw.exec(text);
        }
        raw.exec("INSERT INTO FdbVersionTbl VALUES(NULL,'FormatVersion','1.0.0')");
    }
    addOddFaults();
    EXPECT_NE(readFile(path).find(std::string("m\0o\0d\0u\0l\0e\0", 12)), std::string::npos);
    expectSameFaults();
}

TEST_F(RowDecoding, OfStatisticsIsThatOfTheLibraryInEveryOddCell)
{
    addOddRows("FdbFaultStatisticTbl", columnsOf("FdbFaultStatisticTbl"),
               "NULL,1,'name',2,3,4,'first','last','inactive',5,6,7");
    FaultDb db;
    ASSERT_EQ(db.openDb(path, true), 0);
    FaultStatisticTbl expected;
    ASSERT_GT(db.getFaultStatisticTbl("SELECT * FROM FdbFaultStatisticTbl", expected), 0);
    EXPECT_EQ(db.closeDb(), 0);
    std::vector<std::string> const expectedReports = reports();

    ASSERT_EQ(reader.open(path), HISTORY_OK) << reader.lastProblem();
    std::vector<FaultStatistic> statistics;
    ASSERT_EQ(reader.statistics(statistics), HISTORY_OK) << reader.lastProblem();
    ASSERT_EQ(statistics.size(), expected.size());
    for (std::size_t i = 0; i < statistics.size(); ++i)
    {
        EXPECT_EQ(members(statistics[i]), members(expected[i]));
    }
    EXPECT_EQ(reports(), expectedReports);
}

TEST_F(RowDecoding, ReadsAStatusThatIsNullAsInactiveWhateverWasBefore)
{
    exec("INSERT INTO FdbFaultTbl(FaultCode, Status) VALUES(1, 'ErrorActive'), (2, NULL)");
    ASSERT_EQ(reader.open(path), HISTORY_OK);
    FaultQuery query;
    query.isActiveOnly = true;
    EXPECT_THAT(keys(query), testing::ElementsAre(1));
}
