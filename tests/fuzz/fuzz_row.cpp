// Decodes rows with any number of cells, for every record type: as the result of a caller's own SELECT, and as an array
// of exactly the required number of cells.
//
// Input: the low two bits of the first byte are the number of rows; the rest are the cells of a row, one on each line.
// The first byte of a line is the type of the cell: n for NULL, b for a blob, i for an integer, r for a real number;
// any other line is a text.

#include "FuzzSupport.h"

#include <db/Sqlite3Db.h>
#include <fdb/tables/FdbSqlFaultStatisticTbl.h>
#include <fdb/tables/FdbSqlFaultTbl.h>
#include <fdb/tables/FdbSqlVersionTbl.h>

#include <algorithm>
#include <cstring>
#include <locale>
#include <memory>
#include <sstream>

namespace
{

constexpr std::size_t kMaxColumns = 2000; ///< SQLite's limit for one result

sqlite3* connection = nullptr;
short handle = -1;

std::string hex(std::string_view bytes)
{
    constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (char const byte : bytes)
    {
        auto const value = static_cast<unsigned char>(byte);
        text += kDigits[value >> 4U];
        text += kDigits[value & 15U];
    }
    return text;
}

template <class Number>
std::string number(std::string_view bytes)
{
    Number value = 0;
    std::memcpy(&value, bytes.data(), std::min(bytes.size(), sizeof value));
    std::ostringstream text;
    text.precision(17);
    text << value;
    // SQL has no literals for the smallest integer, for infinity and for NaN.
    return "(0+'" + text.str() + "')";
}

std::string literal(std::string_view cell)
{
    char const kind = cell.empty() ? 't' : cell.front();
    std::string_view const content = cell.empty() ? cell : cell.substr(1);
    switch (kind)
    {
    case 'n':
        return "NULL";
    case 'b':
        return "x'" + hex(content) + "'";
    case 'i':
        return number<long long>(content);
    case 'r':
        return number<double>(content);
    default:
        return "CAST(x'" + hex(content) + "' AS TEXT)";
    }
}

std::string selectOf(std::vector<std::string_view> const& cells, unsigned int rowCount)
{
    std::string row = "SELECT ";
    for (std::string_view const cell : cells)
    {
        row += literal(cell) + ",";
    }
    row.pop_back();
    std::string select = rowCount == 0 ? row + " WHERE 0" : row;
    for (unsigned int i = 1; i < rowCount; ++i)
    {
        select += " UNION ALL " + row;
    }
    return select;
}

template <class Integer>
std::string decodedNumber(std::optional<std::string> const& cell)
{
    std::istringstream stream(cell.value_or("0"));
    stream.imbue(std::locale::classic());
    Integer value = 0;
    return std::to_string(stream >> value ? value : Integer{0});
}

/// The expected value of a column after `cell` was decoded; `before` is its previous value.
template <class T>
std::string expected(SqlTbl<T> const& tbl, typename SqlTbl<T>::column_t const& column,
                     std::optional<std::string> const& cell, std::string const& before)
{
    switch (column.type)
    {
    case SqlTbl<T>::COLUMN_TYPE_UINT64:
        return decodedNumber<unsigned long long>(cell);
    case SqlTbl<T>::COLUMN_TYPE_UINT32:
        return decodedNumber<unsigned int>(cell);
    case SqlTbl<T>::COLUMN_TYPE_UINT16:
        return decodedNumber<unsigned short>(cell);
    case SqlTbl<T>::COLUMN_TYPE_STRING:
        return cell.value_or("n/a");
    default:
        break;
    }
    faultStatus_t active = FAULT_ACTIVE;
    std::string const word = tbl.convertValueToStr(column.type, &active);
    return cell ? std::to_string(*cell == word ? FAULT_ACTIVE : FAULT_INACTIVE) : before;
}

/// The value of a column in the working record.
template <class T>
std::string actual(typename SqlTbl<T>::column_t const& column)
{
    switch (column.type)
    {
    case SqlTbl<T>::COLUMN_TYPE_UINT64:
        return std::to_string(*static_cast<unsigned long long const*>(column.value));
    case SqlTbl<T>::COLUMN_TYPE_UINT16:
        return std::to_string(*static_cast<unsigned short const*>(column.value));
    case SqlTbl<T>::COLUMN_TYPE_STRING:
        return *static_cast<std::string const*>(column.value);
    default:
        break; // An enumeration or a 32-bit number.
    }
    unsigned int value = 0;
    std::memcpy(&value, column.value, sizeof value);
    return std::to_string(value);
}

template <class T>
std::vector<std::string> workingRecord(SqlTbl<T> const& tbl)
{
    std::vector<std::string> values;
    for (auto const& [id, column] : tbl.m_columns)
    {
        values.push_back(actual<T>(column));
    }
    return values;
}

template <class T>
void requireDecoded(SqlTbl<T> const& tbl, fuzz::Cells const& row, std::vector<std::string> const& before)
{
    for (auto const& [id, column] : tbl.m_columns)
    {
        std::optional<std::string> cell = id < row.size() ? row[id] : std::nullopt;
        if (cell)
        {
            cell = cell->c_str(); // Cells are C strings, which end at the first zero byte.
        }
        fuzz::require(actual<T>(column) == expected(tbl, column, cell, before[id]), "the column holds its cell");
    }
}

template <class T>
void readBySelect(SqlTbl<T>& tbl, std::string const& select, std::size_t columnCount)
{
    auto const before = workingRecord(tbl);
    std::vector<T> records(1);
    int const count = Sqlite3Db::getInstance(0)->getTbl<T, T>(handle, select, records, &tbl);
    if (columnCount > kMaxColumns)
    {
        fuzz::require(count == RESULT_FAILED && records.size() == 1, "a refused query leaves the records alone");
        return;
    }
    auto const rows = fuzz::rawRows(connection, select);
    fuzz::require(count == static_cast<int>(rows.size()) && records.size() == rows.size(), "each row is a record");
    if (!rows.empty())
    {
        requireDecoded(tbl, rows.back(), before); // All rows are equal.
    }
}

template <class T>
void decodeArray(SqlTbl<T>& tbl, std::vector<std::string_view> const& cells)
{
    std::size_t const count = tbl.m_columns.size();
    auto const row = std::make_unique<char*[]>(count);
    std::vector<std::unique_ptr<char[]>> texts(count);
    fuzz::Cells given(count);
    for (std::size_t i = 0; i < count; ++i)
    {
        if (i < cells.size() && (cells[i].empty() || cells[i].front() != 'n'))
        {
            given[i] = std::string(cells[i]);
            texts[i] = std::make_unique<char[]>(cells[i].size() + 1);
            std::copy(cells[i].begin(), cells[i].end(), texts[i].get());
        }
        row[i] = texts[i].get();
    }
    auto const before = workingRecord(tbl);
    fuzz::require(tbl.setDatafromSqlResult(row.get()) == static_cast<int>(count), "each column is counted");
    requireDecoded(tbl, given, before);
}

template <class Tbl>
void decode(std::vector<std::string_view> const& cells, unsigned int rowCount)
{
    static Tbl tbl("Tbl"); // Kept between inputs, as a NULL leaves a custom member unchanged.
    tbl.init("");
    readBySelect(tbl, selectOf(cells, rowCount), cells.size());
    decodeArray(tbl, cells);
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    fuzz::silenceLog();
    static fuzz::MemoryDir const dir;
    handle = Sqlite3Db::getInstance(0)->openDb(dir.file("empty.db"));
    fuzz::require(handle >= 0, "there is a connection");
    connection = Sqlite3Db::getInstance(0)->findOpen(handle)->db;
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    std::string_view const input(reinterpret_cast<char const*>(data), size);
    unsigned int const rowCount = input.empty() ? 1 : static_cast<unsigned char>(input.front()) & 3U;
    auto const cells = fuzz::split(input.substr(input.empty() ? 0 : 1), '\n');
    decode<FdbSqlFaultTbl>(cells, rowCount);
    decode<FdbSqlFaultStatisticTbl>(cells, rowCount);
    decode<FdbSqlVersionTbl>(cells, rowCount);
    return 0;
}
