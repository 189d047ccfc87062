#pragma once

#include <db/internal/Sqlite.h>
#include <fdb/tables/SqlTbl.h>

#include <array>
#include <cstddef>
#include <string>
#include <vector>

namespace firaim
{

/// One table of the file, for statements that are prepared once and bound. Column names, their order and types, and the
/// values of a row come from a table object of the library; values are read from its working record.
class BoundTable
{
public:
    /// `tbl` must outlive this object, its `init` must have been called, and its first column must be the key.
    template <class T>
    explicit BoundTable(SqlTbl<T>& tbl);

    std::string const& name() const { return m_name; }
    std::string const& key() const { return m_columns.front().name; }
    std::string const& column(std::size_t id) const { return m_columns[id].name; }
    std::size_t columnCount() const { return m_columns.size(); }

    /// The CREATE TABLE statement, as the library writes it.
    std::string createText() const;
    /// An INSERT with a parameter for each column but the key, which SQLite assigns.
    std::string insertText() const;
    /// An UPDATE with a parameter for each column but the key, then one for the key of the row.
    std::string updateText() const;
    /// A SELECT 1 with a parameter for each column but the key, then one for the key: finds the row if all columns
    /// match.
    std::string matchText() const;
    /// A SELECT of all columns in their order, up to and including the FROM clause.
    std::string selectText() const;

    /// Binds all columns but the key of the working record to one of the statements above. Texts are borrowed until the
    /// next call.
    void bind(sqlite::Statement& statement) const;
    /// As above, and binds the key.
    void bind(sqlite::Statement& statement, std::int64_t key) const;

private:
    struct Column
    {
        std::string name;
        std::string sqlType;
        unsigned int type; ///< SqlTbl's columnValueType_t
        void const* value; ///< in the working record
        /// The words of a status column: inactive, active, any other number.
        std::array<std::string, 3> words;
    };

    void add(Column column) { m_columns.push_back(std::move(column)); }

    std::string m_name;
    std::vector<Column> m_columns;
};

/// Decodes the present row of the statement `row`, whose columns are those of `tbl` in their order, into the working
/// record. Decodes as the library does, damaged cells included.
template <class T>
T const& decodeRow(SqlTbl<T>& tbl, sqlite::Statement const& row);

} // namespace firaim
