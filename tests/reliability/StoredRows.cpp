#include "StoredRows.h"

#include <stdexcept>

#include <sqlite3.h>

namespace
{

/// Type, length and bytes of each cell, so that different cells never give the same text.
std::string cellsOf(sqlite3_stmt* row)
{
    std::string cells;
    for (int i = 0; i < sqlite3_column_count(row); ++i)
    {
        int const type = sqlite3_column_type(row, i); // Ask before the conversion to bytes.
        auto const* const bytes = static_cast<char const*>(sqlite3_column_blob(row, i));
        auto const size = static_cast<std::size_t>(sqlite3_column_bytes(row, i));
        cells += std::to_string(type) + ':' + std::to_string(size) + ':';
        cells.append(bytes != nullptr ? bytes : "", bytes != nullptr ? size : 0);
        cells += '|';
    }
    return cells;
}

} // namespace

StoredRows storedRows(sqlite3* db, std::string const& table)
{
    StoredRows rows;
    sqlite3_stmt* statement = nullptr;
    std::string const sql = "SELECT * FROM " + table;
    int result = sqlite3_prepare_v2(db, sql.c_str(), -1, &statement, nullptr);
    while (result == SQLITE_OK && sqlite3_step(statement) == SQLITE_ROW)
    {
        rows[sqlite3_column_int64(statement, 0)] = cellsOf(statement);
    }
    result = sqlite3_finalize(statement);
    if (result != SQLITE_OK || statement == nullptr)
    {
        throw std::runtime_error(sql + ": " + sqlite3_errmsg(db));
    }
    return rows;
}
