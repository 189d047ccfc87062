#include <tool/formats/TableWriter.h>

#include <tool/formats/CellText.h>
#include <tool/formats/Json.h>
#include <tool/store/FaultFile.h>
#include <tool/terminal/SafeText.h>

#include <set>
#include <utility>

namespace tool
{

using firaim::RowCursor;

namespace
{

class CsvWriter : public TableWriter
{
public:
    using TableWriter::TableWriter;

    void beginTable(TableSchema const& schema) override
    {
        std::string line;
        for (Column const& column : schema.columns)
        {
            line += (line.empty() ? "" : ",") + column.name;
        }
        m_output.writeLine(line);
    }

    void add(RowCursor const& row, TableSchema const& schema) override
    {
        m_line.clear();
        for (std::size_t column = 0; column < schema.columns.size(); ++column)
        {
            if (column > 0)
            {
                m_line.push_back(',');
            }
            appendCsv(m_line, row, column);
        }
        m_output.writeLine(m_output.terminal().isTerminal ? escape(m_line, m_output.terminal().isAsciiOnly()) : m_line);
    }

private:
    std::string m_line; ///< a member so that its memory is reused
};

class JsonLinesWriter : public TableWriter
{
public:
    JsonLinesWriter(Output& output, TimeStyle const& style) : TableWriter(output), m_style(style) {}

    void add(RowCursor const& row, TableSchema const& schema) override
    {
        printJson(jsonRow(row, schema, m_style), m_output);
    }

private:
    TimeStyle const m_style;
};

class JsonWriter : public TableWriter
{
public:
    JsonWriter(Output& output, TimeStyle const& style) : TableWriter(output), m_style(style) {}

    void begin() override { m_output.write("{"); }

    void beginTable(TableSchema const& schema) override
    {
        m_output.write((m_isFirst ? "\n\"" : ",\n\"") + schema.name + "\": ");
        m_isFirst = false;
        m_rows = std::make_unique<JsonArray>(m_output);
    }

    void add(RowCursor const& row, TableSchema const& schema) override { m_rows->add(jsonRow(row, schema, m_style)); }
    void endTable() override { m_rows->end(); }
    void end() override { m_output.write("\n}\n"); }

private:
    TimeStyle const m_style;
    std::unique_ptr<JsonArray> m_rows;
    bool m_isFirst = true;
};

class SqlWriter : public TableWriter
{
public:
    SqlWriter(Output& output, FaultFile& file) : TableWriter(output), m_file(file) {}

    void begin() override { m_output.write("BEGIN TRANSACTION;\n"); }

    void beginTable(TableSchema const& schema) override
    {
        m_output.write(schema.createStatement + ";\n");
        m_tables.insert(schema.name);
    }

    void add(RowCursor const& row, TableSchema const& schema) override
    {
        m_line = "INSERT INTO \"" + schema.name + "\" VALUES(";
        for (std::size_t column = 0; column < schema.columns.size(); ++column)
        {
            if (column > 0)
            {
                m_line.push_back(',');
            }
            appendSql(m_line, row, column);
        }
        m_line += ");";
        m_output.writeLine(m_line);
    }

    void end() override
    {
        for (std::string const& table : m_tables)
        {
            m_output.writeLine("DELETE FROM sqlite_sequence WHERE name = '" + table + "';");
        }
        m_file.readLastKeys(
            [this](std::string const& table, std::int64_t key)
            {
                if (m_tables.count(table) == 1)
                {
                    m_output.writeLine("INSERT INTO sqlite_sequence VALUES('" + table + "'," + std::to_string(key) +
                                       ");");
                }
            });
        m_output.write("COMMIT;\n");
    }

private:
    FaultFile& m_file;
    std::string m_line;
    std::set<std::string> m_tables;
};

} // namespace

std::unique_ptr<TableWriter> makeCsvWriter(Output& output)
{
    return std::make_unique<CsvWriter>(output);
}

std::unique_ptr<TableWriter> makeJsonLinesWriter(Output& output, TimeStyle const& style)
{
    return std::make_unique<JsonLinesWriter>(output, style);
}

std::unique_ptr<TableWriter> makeJsonWriter(Output& output, TimeStyle const& style)
{
    return std::make_unique<JsonWriter>(output, style);
}

std::unique_ptr<TableWriter> makeSqlWriter(Output& output, FaultFile& file)
{
    return std::make_unique<SqlWriter>(output, file);
}

} // namespace tool
