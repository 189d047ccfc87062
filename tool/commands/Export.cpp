// firaim export: the file, or a part of it, for other programs.

#include <tool/cli/Command.h>
#include <tool/commands/Commands.h>
#include <tool/formats/TableWriter.h>
#include <tool/store/FaultFile.h>
#include <tool/store/FaultFilter.h>
#include <tool/store/FaultReading.h>
#include <tool/terminal/Progress.h>

#include <memory>

namespace tool
{

using firaim::RowCursor;

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

std::unique_ptr<TableWriter> writerFor(Options const& options, FaultFile& file, Output& output)
{
    if (options.format == "csv")
    {
        return makeCsvWriter(output);
    }
    if (options.format == "jsonl")
    {
        return makeJsonLinesWriter(output, options.style);
    }
    if (options.format == "json")
    {
        return makeJsonWriter(output, options.style);
    }
    return makeSqlWriter(output, file);
}

/// The tables to export. A format that holds one table gets the faults by default.
std::vector<TableSchema const*> tablesFor(Options const& options)
{
    bool const isForOne = options.format == "csv" || options.format == "jsonl";
    std::string const table = !options.table.empty()                ? options.table
                              : isForOne || options.filter.areSet() ? "faults"
                                                                    : "all";
    if (table != "faults" && options.filter.areSet())
    {
        throw Problem(STATUS_BAD_USAGE, "export: filters apply to faults only; omit --table or give --table faults");
    }
    if (table == "all")
    {
        if (isForOne)
        {
            throw Problem(STATUS_BAD_USAGE, "export: " + options.format + " holds one table; choose it with --table");
        }
        return allSchemas();
    }
    return {table == "faults" ? &faultSchema() : table == "statistics" ? &statisticSchema() : &versionSchema()};
}

/// Writes the rows of tables, or the faults that match the filter.
class Exporter
{
public:
    Exporter(Options const& options, Output& output)
        : m_file(options.path, FaultFile::AroundDamage()), m_filter(options.filter, options.style, m_file),
          m_output(output), m_progress("exporting", output.terminal()), m_writer(writerFor(options, m_file, output))
    {
    }

    void run(std::vector<TableSchema const*> const& tables)
    {
        m_writer->begin();
        for (TableSchema const* const schema : tables)
        {
            m_writer->beginTable(*schema);
            if (schema != &faultSchema() || m_filter.isEmpty())
            {
                writeRows(*schema);
            }
            else
            {
                writeFaults();
            }
            m_writer->endTable();
        }
        m_writer->end();
        m_output.flush();
    }

    bool isAnyWritten() const { return m_isAnyWritten; }
    FaultFilter const& filter() const { return m_filter; }
    FaultFile const& file() const { return m_file; }

private:
    void writeRows(TableSchema const& schema)
    {
        RowCursor::KeyRange range;
        if (m_filter.query().afterKey && &schema == &faultSchema())
        {
            range.first = *m_filter.query().afterKey + 1;
        }
        RowReading rows(m_file, schema, range);
        while (rows.next())
        {
            write(rows.row(), schema);
        }
    }

    void writeFaults()
    {
        firaim::FaultQuery query = m_filter.query();
        query.order = firaim::FaultQuery::OLDEST_FIRST;
        FaultReading faults(m_file, query);
        Fault fault;
        while (faults.next(fault))
        {
            write(faults.row(), faultSchema());
        }
    }

    void write(RowCursor const& row, TableSchema const& schema)
    {
        m_writer->add(row, schema);
        m_isAnyWritten = true;
        m_output.flushIfLarge();
        if (m_progress.isVisible())
        {
            m_progress.show(row.progress());
        }
    }

    FaultFile m_file;
    FaultFilter const m_filter;
    Output& m_output;
    Progress m_progress;
    std::unique_ptr<TableWriter> const m_writer;
    bool m_isAnyWritten = false;
};

int exportRows(Options const& options, Output& output)
{
    std::vector<TableSchema const*> const tables = tablesFor(options);
    Exporter exporter(options, output);
    exporter.run(tables);
    if (!exporter.isAnyWritten() && options.filter.areSet())
    {
        exporter.filter().reportNoMatch();
    }
    return exporter.file().reportDamage();
}

} // namespace

void addExport(CommandLine& line, Request& request)
{
    Command command = line.add("export", "Write faults or the whole file for other programs",
                               "  firaim export faults.db --format csv > faults.csv\n"
                               "  firaim export faults.db --format json | jq .FdbFaultStatisticTbl\n"
                               "  firaim export faults.db --format sql | sqlite3 new.db");
    auto const options = std::make_shared<Options>();
    addFile(command, options->path);
    command
        .text(
            "--format", options->format,
            "csv (with a heading line, quoted as in RFC 4180), json (an object with a list for each table), jsonl (an "
            "object on each line) or sql (statements that create the tables and rows)",
            "FORMAT")
        .require()
        .allow({"csv", "json", "jsonl", "sql"});
    command
        .text("--table", options->table,
              "faults, statistics, versions or all; default: all for json and sql without filters, otherwise faults; "
              "csv and jsonl hold one table",
              "TABLE")
        .allow({"faults", "statistics", "versions", "all"});
    addFilters(command, options->filter);
    addTimeStyle(command, options->style);
    runWith(command, request, options, exportRows);
}

} // namespace tool
