#pragma once

#include <db/Export.h>

#include <cstddef>
#include <map>
#include <string>

/// Maps the record type `T` to one SQL table: a working record, and a description of each column that points into it.
/// Writes INSERT and UPDATE statements from the working record and decodes result rows into it.
///
/// A subclass adds the columns in `init` and converts the custom ones. Compiled for Fault, FaultStatistic, FdbVersion.
///
/// Ownership: the columns point into this object's own working record, so a table cannot be copied or moved.
///
/// Threads: every operation uses the working record, so one thread at a time uses a table.
///
/// Failures: conversion problems are reported through SqlTblUtil::printError and never stop an operation. Standard
/// exceptions pass through; the working record then holds anything, which no later call depends on.
template <class T>
class FIRAIM_EXPORT SqlTbl
{
public:
    /// The type of the member behind a column. Any value outside 1 to 4 counts as custom; 0 and 5 are reserved.
    enum columnValueType_t : unsigned int
    {
        COLUMN_TYPE_UINT64 = 1, ///< unsigned long long
        COLUMN_TYPE_UINT32 = 2, ///< unsigned int, or an enumeration of that width
        COLUMN_TYPE_UINT16 = 3, ///< unsigned short
        COLUMN_TYPE_STRING = 4, ///< std::string
        COLUMN_TYPE_CUSTOM = 6  ///< converted by convertValueToStr and convertValueFromStr
    };

    /// One column.
    struct column_t
    {
        std::string name;      ///< SQL name
        unsigned short id = 0; ///< key in `m_columns`, position in the table and in a result row; counts from 0
        bool valid = false;    ///< false: omit the column from statements and read it as NULL
        columnValueType_t type = static_cast<columnValueType_t>(0); ///< type of the member
        void* value = nullptr;                                      ///< the member in `m_record`, borrowed; may be null
        std::string sqlType; ///< one of the table's three type texts; selects how the value is written
    };

    /// Creates a table named `tblName` without columns; `init` adds them.
    explicit SqlTbl(std::string const& tblName);
    SqlTbl(SqlTbl const&) = delete;
    SqlTbl& operator=(SqlTbl const&) = delete;

    /// Copies `record` into the working record and returns its INSERT statement. The key column gets null, so that the
    /// database assigns the key. Texts are put between single quotes as they are, unescaped. Throws std::out_of_range
    /// ("basic_string::erase") if there is no column to write.
    virtual std::string getSqlInsertValuesQuery(T const& record);

    /// Copies `record` into the working record and returns its UPDATE statement without a WHERE clause. The key column
    /// is omitted. Quoting and exception are as for the INSERT statement.
    virtual std::string getSqlUpdateValuesQuery(T const& record);

    /// Adds the columns to `m_columns`, once; a second call changes nothing. The argument is ignored.
    virtual void init(std::string const& arg) = 0;

    virtual ~SqlTbl();

    /// The text of the custom member at `value`, for a statement. The default is "n/a".
    virtual std::string convertValueToStr(columnValueType_t type, void* value) const;

    /// Sets the custom member at `value` from the text of a cell. The default leaves it unchanged.
    virtual void convertValueFromStr(columnValueType_t type, std::string const& text, void* value) const;

    /// The INSERT and UPDATE statements, as above, of the present working record.
    std::string getSqlInsertValues() const;
    std::string getSqlUpdateValues() const; ///< see getSqlInsertValues

    /// Decodes a result row into the working record; `row` points to its first cell and has a cell for every column id.
    ///
    /// NULL gives 0 or "n/a"; in a custom column it is reported and leaves the member unchanged. A text that is no
    /// number of the member's width is reported and gives 0. Returns the number of columns with a member.
    int setDatafromSqlResult(char** row);

    /// The name of the column with that id; "NotFound" if there is none.
    std::string getColumnNameById(unsigned short id) const;

    T m_record;                                   ///< the working record; its content lasts for one call only
    std::string m_tblName;                        ///< the SQL table name
    std::map<unsigned short, column_t> m_columns; ///< the columns by id, which is their order in every statement
    std::string m_sqlVarchar = "VARCHAR";         ///< `sqlType` of a text column
    std::string m_sqlInteger = "INTEGER";         ///< `sqlType` of a number column
    std::string m_sqlPrimaryKey = "INTEGER PRIMARY KEY AUTOINCREMENT NOT NULL"; ///< `sqlType` of the key column

protected:
    /// Adds a column that is in use. `init` calls it once for every column.
    void addColumn(unsigned short id, char const* name, columnValueType_t type, void* value,
                   std::string const& sqlType);

private:
    FIRAIM_HIDDEN std::size_t expectedSize() const;
    FIRAIM_HIDDEN void reportNullValue(column_t const& column) const;
    FIRAIM_HIDDEN void appendValue(std::string& sql, column_t const& column) const;
    FIRAIM_HIDDEN void appendPlainNumber(std::string& sql, column_t const& column) const;
    FIRAIM_HIDDEN void decodeCell(column_t const& column, char** cell) const;
};
