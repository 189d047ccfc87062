#pragma once

#include <fdb/tables/FdbSqlFaultStatisticTbl.h>
#include <fdb/tables/FdbSqlFaultTbl.h>
#include <history/RowCursor.h>

#include <cstddef>
#include <string>
#include <vector>

/// The file format as the library's own tables describe it.
namespace tool
{

/// The kind of values in a column.
enum class ColumnKind
{
    KEY,
    NUMBER,
    TEXT,
    STATUS ///< a text that is one of `words`, among them the one that is written for an invalid status
};

struct Column
{
    std::string name;
    std::string sqlType; ///< without key constraints
    ColumnKind kind;
    unsigned int bits = 0;          ///< of a number
    std::vector<std::string> words; ///< of a status
};

struct TableSchema
{
    firaim::HistoryTable table;
    std::string name;
    std::vector<Column> columns; ///< in the order of the file; the key is the first
    std::string createStatement; ///< as sqlite_master holds it
};

TableSchema const& faultSchema();
TableSchema const& statisticSchema();
TableSchema const& versionSchema();

/// The three, in the order in which they are created.
std::vector<TableSchema const*> const& allSchemas();

/// The position of the column of that name, which must exist.
std::size_t positionOf(TableSchema const& schema, std::string const& column);

/// Positions of columns in the schemas above.
namespace faultColumn
{
constexpr std::size_t CODE = FdbSqlFaultTbl::kFaultCodeColumn;
constexpr std::size_t CODE_NAME = 3;
constexpr std::size_t TIME_STAMP = FdbSqlFaultTbl::kTimeStampUtcColumn;
} // namespace faultColumn

namespace statisticColumn
{
constexpr std::size_t CODE = FdbSqlFaultStatisticTbl::kFaultCodeColumn;
constexpr std::size_t CODE_NAME = 2;
constexpr std::size_t TIME_FIRST = 3;
constexpr std::size_t TIME_LAST = 4;
} // namespace statisticColumn

} // namespace tool
