#pragma once

#include <db/internal/Sqlite.h>
#include <fdb/tables/SqlTbl.h>

#include <array>
#include <cstddef>
#include <string>
#include <vector>

namespace firaim
{

/// One table of the file for statements that are prepared once and bound. Names, order and types of its columns, and
/// the values of a row, are those of a table object of the library, whose working record this one reads.
class BoundTable
{
public:
    /// `tbl` must outlive this object. Its `init` has been called, and its first column is the key.
    template <class T>
    explicit BoundTable(SqlTbl<T>& tbl);

    std::string const& name() const { return m_name; }
    std::string const& key() const { return m_columns.front().name; }
    std::string const& column(std::size_t id) const { return m_columns[id].name; }
    std::size_t columnCount() const { return m_columns.size(); }

    /// The statement that creates the table, as the library writes it.
    std::string createText() const;
    /// "INSERT" with a parameter for each column but the key, which SQLite assigns.
    std::string insertText() const;
    /// "UPDATE" of the row whose key is the last parameter, with a parameter for each other column before it.
    std::string updateText() const;
    /// "SELECT 1" of the row whose key is the last parameter, where every other column is what is bound.
    std::string matchText() const;
    /// "SELECT" of all columns in their order, "FROM" the table.
    std::string selectText() const;

    /// Binds the working record to one of the statements above, all but the key. Its texts are borrowed until the next
    /// call.
    void bind(sqlite::Statement& statement) const;
    /// As above, and binds the key of the row.
    void bind(sqlite::Statement& statement, std::int64_t key) const;

private:
    struct Column
    {
        std::string name;
        std::string sqlType;
        unsigned int type; ///< SqlTbl's columnValueType_t
        void const* value; ///< in the working record
        /// The words of a status column for inactive, active, and any other number.
        std::array<std::string, 3> words;
    };

    void add(Column column) { m_columns.push_back(std::move(column)); }

    std::string m_name;
    std::vector<Column> m_columns;
};

/// The row that `row` stands on, whose columns are those of `tbl` in their order, decoded into the working record as
/// the library decodes rows, damaged cells included.
template <class T>
T const& decodeRow(SqlTbl<T>& tbl, sqlite::Statement const& row);

} // namespace firaim
