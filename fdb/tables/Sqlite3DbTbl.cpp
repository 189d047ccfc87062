// Creating and reading tables: the only code that uses both a connection and a column model.

#include <db/LogUtil.h>
#include <db/Sqlite3Db.h>
#include <db/internal/TimeLimits.h>
#include <fdb/tables/FdbSqlFaultStatisticTbl.h>
#include <fdb/tables/FdbSqlFaultTbl.h>
#include <fdb/tables/FdbSqlVersionTbl.h>

#include <sqlite3.h>

#include <algorithm>
#include <cstddef>
#include <sstream>

namespace
{

constexpr char kTag[] = "SQL3";

/// The cells of one query; freed at the end of the scope.
class ResultTable
{
public:
    ResultTable(Sqlite3Db& db, short handle) : m_db(db), m_handle(handle) {}
    ResultTable(ResultTable const&) = delete;
    ResultTable& operator=(ResultTable const&) = delete;

    ~ResultTable()
    {
        // Free the memory only while the connection is open; a decoding function may have closed it.
        if (m_db.findOpen(m_handle) != nullptr)
        {
            sqlite3_free_table(m_cells);
        }
        static_cast<void>(m_db.free(m_handle, m_message));
    }

    int query(sqlite3* db, char const* sql)
    {
        timeLimits::StatementWatch const watch(db);
        return sqlite3_get_table(db, sql, &m_cells, &m_rowCount, &m_columnCount, &m_message);
    }

    std::size_t rowCount() const { return static_cast<std::size_t>(m_rowCount); }
    std::size_t columnCount() const { return static_cast<std::size_t>(m_columnCount); }
    char const* message() const { return m_message != nullptr ? m_message : "no message"; }

    /// The first cell of a row; row 0 holds the column names.
    char** row(std::size_t index) const { return m_cells + index * columnCount(); }

private:
    Sqlite3Db& m_db;
    short m_handle;
    char** m_cells = nullptr;
    int m_rowCount = 0;
    int m_columnCount = 0;
    char* m_message = nullptr;
};

/// The number of cells a row needs so that every column of `tbl` has its own.
template <class T>
std::size_t neededCells(SqlTbl<T> const& tbl)
{
    std::size_t count = 0;
    for (auto const& [key, column] : tbl.m_columns)
    {
        count = std::max<std::size_t>(count, column.id + 1U);
    }
    return count;
}

/// The column with that id; null if there is none.
template <class T>
typename SqlTbl<T>::column_t const* findColumn(SqlTbl<T> const& tbl, unsigned short id)
{
    for (auto const& [key, column] : tbl.m_columns)
    {
        if (column.id == id)
        {
            return &column;
        }
    }
    return nullptr;
}

} // namespace

template <class T>
int Sqlite3Db::createTbl(short handle, SqlTbl<T> const& tbl)
{
    // Static: the last column written outlives the call.
    static typename SqlTbl<T>::column_t column;

    if (m_debug != 0)
    {
        LogUtil::write(LogUtil::SEVERITY_DEBUG, kTag, "createTbl", "create Table: ", tbl.m_tblName);
    }
    std::stringstream statement;
    statement.exceptions(std::ios::badbit); // Let an allocation failure pass instead of cutting the text.
    statement << "CREATE TABLE \"" << tbl.m_tblName << "\" (";
    std::size_t const count = tbl.m_columns.size();
    for (unsigned short idx = 0; idx < count; ++idx)
    {
        auto const* const found = findColumn(tbl, idx);
        if (found == nullptr)
        {
            LogUtil::write(LogUtil::SEVERITY_ERROR, kTag, "createTbl", "failed to get column: ", idx,
                           " from tbl: ", tbl.m_tblName);
            return RESULT_INVALID_STATE;
        }
        column = *found;
        statement << '"' << column.name << "\" " << column.sqlType;
        if (idx < count - 1)
        {
            statement << ',';
        }
    }
    statement << ')';
    if (m_debug != 0)
    {
        LogUtil::write(LogUtil::SEVERITY_DEBUG, kTag, "createTbl", statement.str());
    }
    return execute(handle, statement.str().c_str());
}

template <class T, class U>
// NOLINTNEXTLINE(performance-unnecessary-value-param): callers are compiled for a value.
int Sqlite3Db::getTbl(short handle, std::string query, std::vector<T>& out, SqlTbl<U>* tbl)
{
    DbHandle const* const entry = findOpen(handle);
    if (entry == nullptr)
    {
        return RESULT_INVALID_STATE;
    }
    {
        ResultTable result(*this, handle);
        int const code = result.query(entry->db, query.c_str());
        if (code != SQLITE_OK)
        {
            LogUtil::write(LogUtil::SEVERITY_ERROR, kTag, "getTbl", "Sql Query failed: ", result.message(),
                           " Err=", code);
            return RESULT_FAILED;
        }
        out.clear();
        out.reserve(result.rowCount());

        // A caller's SELECT may return fewer columns than the table has; read the missing ones as NULL.
        std::size_t const columnCount = result.columnCount();
        std::size_t const needed = neededCells(*tbl);
        std::vector<char*> paddedRow(needed > columnCount ? needed : 0, nullptr);
        for (std::size_t row = 1; row <= result.rowCount() && columnCount != 0; ++row)
        {
            char** cells = result.row(row);
            if (!paddedRow.empty())
            {
                std::copy_n(cells, columnCount, paddedRow.begin());
                cells = paddedRow.data();
            }
            static_cast<void>(tbl->setDatafromSqlResult(cells));
            out.push_back(tbl->m_record);
        }
    }
    if (m_debug > 1)
    {
        LogUtil::write(LogUtil::SEVERITY_DEBUG, kTag, "getTbl", "Done");
    }
    return static_cast<int>(out.size());
}

template int Sqlite3Db::createTbl(short, SqlTbl<Fault> const&);
template int Sqlite3Db::createTbl(short, SqlTbl<FaultStatistic> const&);
template int Sqlite3Db::createTbl(short, SqlTbl<FdbVersion> const&);
template int Sqlite3Db::getTbl(short, std::string, std::vector<Fault>&, SqlTbl<Fault>*);
template int Sqlite3Db::getTbl(short, std::string, std::vector<FaultStatistic>&, SqlTbl<FaultStatistic>*);
template int Sqlite3Db::getTbl(short, std::string, std::vector<FdbVersion>&, SqlTbl<FdbVersion>*);
