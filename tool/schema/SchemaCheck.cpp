#include <tool/schema/SchemaCheck.h>

#include <tool/values/Text.h>

#include <algorithm>
#include <utility>

namespace tool
{

namespace
{

/// Whether one of the columns has that name.
template <class Columns>
bool has(Columns const& columns, std::string const& name)
{
    return std::any_of(columns.begin(), columns.end(), [&](auto const& column) { return column.name == name; });
}

} // namespace

SchemaCheck::SchemaCheck(sqlite::Connection const& connection, std::function<void(std::string const&)> take)
    : m_connection(connection), m_take(std::move(take))
{
}

void SchemaCheck::report(std::string const& problem)
{
    ++m_count;
    m_take(problem);
}

bool SchemaCheck::checkTable(TableSchema const& schema)
{
    sqlite::Statement statement = m_connection.prepare("SELECT type, sql FROM sqlite_master WHERE name = ?1");
    statement.bind(1, schema.name);
    if (!statement.step())
    {
        report("table " + schema.name + " is missing");
        return false;
    }
    std::string const type(statement.text(0));
    if (type != "table")
    {
        report(schema.name + " is a " + type + " and not a table");
        return false;
    }
    std::string const sql(statement.text(1));
    statement.reset();
    std::size_t const before = m_count;
    checkColumns(schema);
    if (sql != schema.createStatement && m_count == before)
    {
        report(schema.name + " was created by another statement: " + sql);
    }
    return true;
}

/// Compares the columns one by one.
void SchemaCheck::checkColumns(TableSchema const& schema)
{
    std::vector<FoundColumn> const found = readColumns(schema);
    auto next = found.begin();
    for (Column const& expected : schema.columns)
    {
        for (; next != found.end() && !has(schema.columns, next->name); ++next)
        {
            report(schema.name + " has a column '" + next->name + "', which does not belong there");
        }
        if (!has(found, expected.name))
        {
            report(schema.name + " has no column '" + expected.name + "'");
        }
        else if (next != found.end() && next->name == expected.name)
        {
            checkColumn(schema, expected, *next++);
        }
        else
        {
            report(schema.name + " has the column '" + expected.name + "' in another place");
            next = next == found.end() ? next : next + 1;
        }
    }
    for (; next != found.end(); ++next)
    {
        if (!has(schema.columns, next->name))
        {
            report(schema.name + " has a column '" + next->name + "', which does not belong there");
        }
    }
}

std::vector<SchemaCheck::FoundColumn> SchemaCheck::readColumns(TableSchema const& schema) const
{
    sqlite::Statement column =
        m_connection.prepare("SELECT name, type, \"notnull\", pk FROM pragma_table_xinfo(?1) ORDER BY cid");
    column.bind(1, schema.name);
    std::vector<FoundColumn> found;
    while (column.step())
    {
        found.push_back({std::string(column.text(0)), std::string(column.text(1)),
                         column.integer(2) != 0 && column.integer(3) != 0,
                         column.integer(2) != 0 || column.integer(3) != 0});
    }
    return found;
}

void SchemaCheck::checkColumn(TableSchema const& schema, Column const& expected, FoundColumn const& found)
{
    std::string const place = schema.name + " column '" + found.name + "'";
    bool const isKey = expected.kind == ColumnKind::KEY;
    if (found.type != expected.sqlType)
    {
        report(place + " is of type '" + found.type + "' instead of '" + expected.sqlType + "'");
    }
    else if (isKey ? !found.isKey : found.isSomeKey)
    {
        report(place + (isKey ? " must be the primary key and NOT NULL" : " must be neither a key nor NOT NULL"));
    }
}

void SchemaCheck::checkExtras()
{
    sqlite::Statement statement = m_connection.prepare(
        "SELECT type, name FROM sqlite_master WHERE name NOT LIKE 'sqlite\\_%' ESCAPE '\\' AND NOT (type = 'table' AND "
        "name IN (?1, ?2, ?3, ?4))");
    statement.bind(1, faultSchema().name).bind(2, statisticSchema().name).bind(3, versionSchema().name);
    statement.bind(4, kDoubtfulTable);
    while (statement.step())
    {
        report(std::string(statement.text(0)) + " '" + std::string(statement.text(1)) +
               "' is not part of the file format");
    }
}

std::string SchemaCheck::doubtfulRows() const
{
    sqlite::Statement table = m_connection.prepare("SELECT 1 FROM sqlite_master WHERE type = 'table' AND name = ?1");
    table.bind(1, kDoubtfulTable);
    if (!table.step())
    {
        return "";
    }
    auto const count = m_connection.number(std::string("SELECT count(*) FROM ") + kDoubtfulTable);
    return std::string(kDoubtfulTable) + " has " + counted(static_cast<unsigned long long>(count), "row") +
           " of a damaged file that may be wrong";
}

std::vector<bool> SchemaCheck::presentColumns(TableSchema const& schema) const
{
    std::vector<FoundColumn> const found = readColumns(schema);
    std::vector<bool> isPresent;
    for (Column const& column : schema.columns)
    {
        isPresent.push_back(has(found, column.name));
    }
    return isPresent;
}

} // namespace tool
