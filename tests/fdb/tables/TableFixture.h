#pragma once

#include "TestSupport.h"

#include <fdb/tables/SqlTbl.h>

#include <gtest/gtest.h>

#include <vector>

/// An initialised `Tbl`, the table that describes `Record`.
template <class Tbl, class Record>
class TableTest : public testing::Test
{
protected:
    static constexpr char kKey[] = "INTEGER PRIMARY KEY AUTOINCREMENT NOT NULL";
    static constexpr char kNumber[] = "INTEGER";
    static constexpr char kText[] = "VARCHAR";

    struct ExpectedColumn
    {
        char const* name;
        typename SqlTbl<Record>::columnValueType_t type;
        void const* value;
        char const* sqlType;
    };

    explicit TableTest(char const* name) : tbl(name) { tbl.init(""); }

    int decode(std::vector<char const*> row) { return tbl.setDatafromSqlResult(const_cast<char**>(row.data())); }

    /// Expects exactly these columns, in this order.
    void expectColumns(std::vector<ExpectedColumn> const& expected)
    {
        unsigned short id = 0;
        for (auto const& [name, type, value, sqlType] : expected)
        {
            SCOPED_TRACE(name);
            auto const& column = tbl.m_columns.at(id);
            EXPECT_EQ(column.name, name);
            EXPECT_EQ(column.id, id);
            EXPECT_TRUE(column.valid);
            EXPECT_EQ(column.type, type);
            EXPECT_EQ(column.value, value);
            EXPECT_EQ(column.sqlType, sqlType);
            ++id;
        }
        EXPECT_EQ(tbl.m_columns.size(), id);
    }

    Tbl tbl;
    Console console;
};
