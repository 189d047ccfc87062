// firaim export: the file, or a part of it, for other programs.

#include "../CellText.h"
#include "../Command.h"
#include "../FaultFile.h"
#include "../Json.h"
#include "../Progress.h"
#include "../Rows.h"
#include "../Text.h"

#include <memory>
#include <set>

namespace tool
{

namespace
{

struct Options
{
    std::string path;
    std::string format;
    std::string table;
    FilterOptions filter;
    TimeStyle style;
};

/// Writes tables in one format.
class Writer
{
public:
    explicit Writer(Output& output) : m_output(output) {}
    virtual ~Writer() = default;
    Writer(Writer const&) = delete;
    Writer& operator=(Writer const&) = delete;

    virtual void begin() {}
    virtual void beginTable(tableFormat_t const&) {}
    virtual void add(Statement const& row, tableFormat_t const& format) = 0;
    virtual void endTable() {}
    virtual void end() {}

protected:
    Output& m_output;
};

class CsvWriter : public Writer
{
public:
    using Writer::Writer;

    void beginTable(tableFormat_t const& format) override
    {
        std::string line;
        for (column_t const& column : format.columns)
        {
            line += (line.empty() ? "" : ",") + column.name;
        }
        m_output.writeLine(line);
    }

    void add(Statement const& row, tableFormat_t const& format) override
    {
        m_line.clear();
        for (std::size_t column = 0; column < format.columns.size(); ++column)
        {
            if (column > 0)
            {
                m_line.push_back(',');
            }
            appendCsv(m_line, row, static_cast<int>(column));
        }
        m_output.writeLine(m_output.terminal().isThere ? visible(m_line, m_output.terminal().isAsciiOnly()) : m_line);
    }

private:
    std::string m_line; ///< keeps its memory from row to row
};

class JsonLinesWriter : public Writer
{
public:
    JsonLinesWriter(Output& output, TimeStyle const& style) : Writer(output), m_style(style) {}

    void add(Statement const& row, tableFormat_t const& format) override
    {
        m_output.writeLine(jsonText(jsonRow(row, format, m_style), m_output.terminal()));
    }

private:
    TimeStyle const m_style;
};

/// One object with a list for each table.
class JsonWriter : public Writer
{
public:
    JsonWriter(Output& output, TimeStyle const& style) : Writer(output), m_style(style) {}

    void begin() override { m_output.write("{"); }

    void beginTable(tableFormat_t const& format) override
    {
        m_output.write((m_isFirst ? "\n\"" : ",\n\"") + format.name + "\": ");
        m_isFirst = false;
        m_rows = std::make_unique<JsonArray>(m_output);
    }

    void add(Statement const& row, tableFormat_t const& format) override { m_rows->add(jsonRow(row, format, m_style)); }
    void endTable() override { m_rows->end(); }
    void end() override { m_output.write("\n}\n"); }

private:
    TimeStyle const m_style;
    std::unique_ptr<JsonArray> m_rows;
    bool m_isFirst = true;
};

/// Statements that make the same tables, with the same keys, and go on with keys where this file would.
class SqlWriter : public Writer
{
public:
    SqlWriter(Output& output, Connection const& connection) : Writer(output), m_connection(connection) {}

    void begin() override { m_output.write("BEGIN TRANSACTION;\n"); }

    void beginTable(tableFormat_t const& format) override
    {
        m_output.write(format.createStatement + ";\n");
        m_tables.insert(format.name);
    }

    void add(Statement const& row, tableFormat_t const& format) override
    {
        m_line = "INSERT INTO \"" + format.name + "\" VALUES(";
        for (std::size_t column = 0; column < format.columns.size(); ++column)
        {
            if (column > 0)
            {
                m_line.push_back(',');
            }
            appendSql(m_line, row, static_cast<int>(column));
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
        Statement sequence = m_connection.prepare("SELECT name, seq FROM sqlite_sequence ORDER BY rowid");
        while (sequence.step())
        {
            std::string const name(sequence.text(0));
            if (m_tables.count(name) == 1)
            {
                std::string line = "INSERT INTO sqlite_sequence VALUES('" + name + "',";
                appendSql(line, sequence, 1);
                m_output.writeLine(line + ");");
            }
        }
        m_output.write("COMMIT;\n");
    }

private:
    Connection const& m_connection;
    std::string m_line;
    std::set<std::string> m_tables;
};

std::unique_ptr<Writer> writerFor(Options const& options, Output& output, Connection const& connection)
{
    if (options.format == "csv")
    {
        return std::make_unique<CsvWriter>(output);
    }
    if (options.format == "jsonl")
    {
        return std::make_unique<JsonLinesWriter>(output, options.style);
    }
    if (options.format == "json")
    {
        return std::make_unique<JsonWriter>(output, options.style);
    }
    return std::make_unique<SqlWriter>(output, connection);
}

/// The tables that are asked for. A format that has one kind of row in a file gets the faults unless told otherwise.
std::vector<tableFormat_t const*> tablesFor(Options const& options)
{
    bool const isForOne = options.format == "csv" || options.format == "jsonl";
    std::string const table = !options.table.empty()                ? options.table
                              : isForOne || options.filter.areSet() ? "faults"
                                                                    : "all";
    if (table != "faults" && options.filter.areSet())
    {
        throw Problem(STATUS_BAD_USAGE, "export: filters choose among faults; leave --table away, or say faults");
    }
    if (table == "all")
    {
        if (isForOne)
        {
            throw Problem(STATUS_BAD_USAGE, "export: " + options.format + " holds one table; choose it with --table");
        }
        return allFormats();
    }
    return {table == "faults" ? &faultFormat() : table == "statistics" ? &statisticFormat() : &versionFormat()};
}

int exportRows(Options const& options, Output& output)
{
    std::vector<tableFormat_t const*> const tables = tablesFor(options);
    FaultFile const file(options.path);
    FaultFilter filter(options.filter, options.style, file.connection());
    std::unique_ptr<Writer> const writer = writerFor(options, output, file.connection());
    FaultDecoder decoder;
    Progress progress("exporting", output.terminal());
    bool isAnyWritten = false;
    writer->begin();
    for (tableFormat_t const* const format : tables)
    {
        writer->beginTable(*format);
        RowReader reader(file.connection(), *format, order_t::OLDEST_FIRST,
                         format == &faultFormat() ? rangeOf(options.filter) : keyRange_t());
        reader.read(
            [&](Statement const& row)
            {
                if (filter.isEmpty() || format != &faultFormat() || filter.accepts(decoder.decode(row)))
                {
                    writer->add(row, *format);
                    isAnyWritten = true;
                }
                return true;
            },
            [&]
            {
                output.flush();
                progress.show(reader.progress());
            });
        writer->endTable();
    }
    writer->end();
    output.flush();
    if (!isAnyWritten && options.filter.areSet())
    {
        reportUnanswered(filter, options.filter);
    }
    return STATUS_DONE;
}

} // namespace

void addExport(CLI::App& app, Request& request)
{
    CLI::App* const command = addCommand(app, "export", "Write faults, or the whole file, for other programs",
                                         "  firaim export faults.db --format csv > faults.csv\n"
                                         "  firaim export faults.db --format json | jq .FdbFaultStatisticTbl\n"
                                         "  firaim export faults.db --format sql | sqlite3 new.db");
    auto const options = std::make_shared<Options>();
    addFile(*command, options->path);
    command
        ->add_option("--format", options->format,
                     "csv (with a heading, quoted as RFC 4180 says), json (an object with a list for each table), "
                     "jsonl (an object on "
                     "each line) or sql (statements that make the tables anew)")
        ->required()
        ->check(CLI::IsMember({"csv", "json", "jsonl", "sql"}).description(""))
        ->type_name("FORMAT");
    command
        ->add_option("--table", options->table,
                     "faults, statistics, versions or all; all for json and sql without filters, otherwise faults; csv "
                     "and jsonl "
                     "hold one")
        ->check(CLI::IsMember({"faults", "statistics", "versions", "all"}).description(""))
        ->type_name("TABLE");
    addFilters(*command, options->filter);
    addTimeStyle(*command, options->style);
    runWith(*command, request, options, exportRows);
}

} // namespace tool
