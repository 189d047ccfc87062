#pragma once

#include <fdb/tables/SqlTbl.h>

#include "TestSupport.h"

#include <fdb/records/FdbVersion.h>

using Tbl = SqlTbl<FdbVersion>;

constexpr char kText[] = "VARCHAR";
constexpr char kNumber[] = "INTEGER";
constexpr char kKey[] = "INTEGER PRIMARY KEY AUTOINCREMENT NOT NULL";
constexpr char kNoKind[] = "BLOB";

constexpr Tbl::columnValueType_t columnType(unsigned int number)
{
    return static_cast<Tbl::columnValueType_t>(number);
}

constexpr Tbl::columnValueType_t kCustomTypes[] = {columnType(0), columnType(5), columnType(6), columnType(7),
                                                   columnType(4294967295U)};

/// A table to which a test adds columns; it has the default conversions.
class HandMadeTbl : public Tbl
{
public:
    HandMadeTbl() : Tbl("T") {}
    void init(std::string const&) override {}

    column_t& add(char const* name, columnValueType_t type, void* value, char const* sqlType)
    {
        auto const id = static_cast<unsigned short>(m_columns.size());
        addColumn(id, name, type, value, sqlType);
        return m_columns[id];
    }
};

/// A table whose conversions return the type and text that they were called with; its members are strings.
class ConvertingTbl : public HandMadeTbl
{
public:
    std::string convertValueToStr(columnValueType_t type, void* value) const override
    {
        return "type " + std::to_string(type) + " of " + *static_cast<std::string*>(value);
    }

    void convertValueFromStr(columnValueType_t type, std::string const& text, void* value) const override
    {
        *static_cast<std::string*>(value) = "type " + std::to_string(type) + " from " + text;
    }
};

/// A table with the columns of a test, and members for them.
template <class TblType>
class TblFixture : public testing::Test
{
protected:
    int decode(std::vector<char const*> row) { return tbl.setDatafromSqlResult(const_cast<char**>(row.data())); }

    TblType tbl;
    unsigned long long number64 = 1;
    unsigned int number32 = 2;
    unsigned short number16 = 3;
    std::string text = "old";
    std::string custom = "old";
    Console console;
};

using ColumnModel = TblFixture<HandMadeTbl>;
