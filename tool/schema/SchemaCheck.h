#pragma once

#include <tool/schema/TableSchema.h>

#include <db/internal/Sqlite.h>

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace tool
{

/// The table of a rescued file with the rows that may be wrong.
constexpr char kDoubtfulTable[] = "RescuedDoubtfulTbl";

/// Compares the tables of a file with the schemas that the library gives them. Throws sqlite::Error when the file
/// cannot be read.
class SchemaCheck
{
public:
    /// Hands each problem to `take` as soon as it is found. `connection` must outlive this object.
    SchemaCheck(sqlite::Connection const& connection, std::function<void(std::string const&)> take);

    /// Compares a table; returns whether it exists and can be read.
    bool checkTable(TableSchema const& schema);
    /// Reports tables, indexes, views and triggers that are not part of the file format, except the table of a rescued
    /// file.
    void checkExtras();
    /// Says that a rescued file has doubtful rows, which is no problem. Empty if it has no such table.
    std::string doubtfulRows() const;

    /// For each column of the schema, whether the table has it.
    std::vector<bool> presentColumns(TableSchema const& schema) const;

private:
    /// A column of the file.
    struct FoundColumn
    {
        std::string name;
        std::string type;
        bool isKey;     ///< NOT NULL and part of the primary key
        bool isSomeKey; ///< NOT NULL or part of the primary key
    };

    void report(std::string const& problem);
    void checkColumns(TableSchema const& schema);
    std::vector<FoundColumn> readColumns(TableSchema const& schema) const;
    void checkColumn(TableSchema const& schema, Column const& expected, FoundColumn const& found);

    sqlite::Connection const& m_connection;
    std::function<void(std::string const&)> const m_take;
    std::size_t m_count = 0; ///< of the problems
};

} // namespace tool
