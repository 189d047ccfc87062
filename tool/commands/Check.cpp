// firaim check: reports problems of a file, and advice.

#include <tool/cli/Command.h>
#include <tool/commands/Commands.h>
#include <tool/formats/Findings.h>
#include <tool/process/Interrupt.h>
#include <tool/store/CellCheck.h>
#include <tool/store/FaultFile.h>
#include <tool/store/SchemaCheck.h>
#include <tool/store/TableSchema.h>
#include <tool/terminal/Progress.h>
#include <tool/values/Text.h>

#include <db/internal/ReadOnlyOpening.h>
#include <fdb/tables/FdbSqlVersionTbl.h>

#include <string>
#include <vector>

namespace tool
{

using firaim::RowCursor;

namespace
{

struct Options
{
    std::string path;
    bool isJson = false;
};

constexpr FindingKind kIntegrity = {
    "integrity", "the file itself is damaged: keep it, restore a backup, or save what can be read with 'firaim export'",
    true};
constexpr FindingKind kSchema = {"schema",
                                 "the file was not created by the library, or was changed since: create a new one "
                                 "and record into it what 'firaim export' reads",
                                 true};
constexpr FindingKind kVersion = {"version",
                                  "an application opens it in compatible mode at most: use the software that wrote "
                                  "it, or restore a backup",
                                  true};
constexpr FindingKind kReference = {"reference",
                                    "'firaim trim' removes no such fault: the count of the statistic is still right, "
                                    "and the reference is corrected when the fault occurs again",
                                    true};
constexpr FindingKind kRemoved = {"removed",
                                  "nothing: 'firaim trim' removes the faults of inactive statistics, whose counts "
                                  "stay right",
                                  false};
constexpr FindingKind kStatistic = {"statistic",
                                    "there should be one row for each code: the recorder updates only the first, and "
                                    "FaultDb::update overwrites all of them",
                                    true};
constexpr FindingKind kCell = {"cell",
                               "applications read another value than the file holds: look at the row with 'firaim "
                               "export --format sql'",
                               true};

class Checker
{
public:
    Checker(Options const& options, Output& output)
        : m_path(options.path), m_output(output), m_connection(openForReading(options.path)),
          m_findings(output, options.isJson),
          m_schemaCheck(m_connection, [this](std::string const& problem) { m_findings.add(kSchema, problem); })
    {
    }

    /// Returns whether there is no problem.
    bool run()
    {
        checkIntegrity();
        if (checkSchema())
        {
            checkVersion();
            checkStatistics();
            checkReferences();
            checkCells();
        }
        m_findings.end(m_path);
        return m_findings.problems() == 0;
    }

private:
    void checkIntegrity();
    bool checkSchema();
    void checkVersion();
    std::vector<std::string> readFormatVersions() const;
    void checkStatistics();
    void checkReferences();
    void checkCells();
    void checkCells(TableSchema const& schema, firaim::FaultReader& reader);
    void checkRow(RowCursor const& row, TableSchema const& schema, std::vector<bool> const& isPresent);
    /// Runs a part of the check; an error of SQLite about the content of the file is a finding, too.
    template <class Part>
    bool runPart(Part const& part);

    std::string const m_path;
    Output& m_output;
    sqlite::Connection const m_connection;
    Findings m_findings;
    SchemaCheck m_schemaCheck;
};

template <class Part>
bool Checker::runPart(Part const& part)
{
    try
    {
        part();
        return true;
    }
    catch (sqlite::Error const& error)
    {
        if (error.kind() != SQLITE_CORRUPT && error.code() != SQLITE_ERROR)
        {
            throw;
        }
        // SQLITE_ERROR: the schema lacks a name in the statement.
        m_findings.add(error.code() == SQLITE_ERROR ? kSchema : kIntegrity,
                       readOnlyOpening::problemText(m_path, error));
        return false;
    }
}

void Checker::checkIntegrity()
{
    runPart(
        [&]
        {
            sqlite::Statement statement = m_connection.prepare("PRAGMA integrity_check(20)");
            while (statement.step())
            {
                std::string const text(statement.text(0));
                if (text != "ok")
                {
                    m_findings.add(kIntegrity, text);
                }
            }
        });
}

/// Returns whether there are tables that can be read.
bool Checker::checkSchema()
{
    bool isReadable = true;
    for (TableSchema const* const schema : allSchemas())
    {
        bool isTableReadable = false;
        runPart([&] { isTableReadable = m_schemaCheck.checkTable(*schema); });
        isReadable = isReadable && isTableReadable;
    }
    runPart([&] { m_schemaCheck.checkExtras(); });
    return isReadable;
}

/// The format versions in the file, of which there should be one.
std::vector<std::string> Checker::readFormatVersions() const
{
    sqlite::Statement statement =
        m_connection.prepare("SELECT Version FROM " + versionSchema().name + " WHERE Component LIKE 'FormatVersion'");
    std::vector<std::string> versions;
    while (statement.step())
    {
        versions.emplace_back(statement.text(0));
    }
    return versions;
}

void Checker::checkVersion()
{
    runPart(
        [&]
        {
            std::vector<std::string> const versions = readFormatVersions();
            for (std::string const& version : versions)
            {
                if (version != FdbSqlVersionTbl::kFormatVersion)
                {
                    m_findings.add(kVersion, "format version is '" + version + "' instead of '" +
                                                 FdbSqlVersionTbl::kFormatVersion + "'");
                }
            }
            if (versions.size() != 1)
            {
                m_findings.add(kVersion, versionSchema().name + " has " + counted(versions.size(), "row") +
                                             " of FormatVersion instead of 1 row");
            }
        });
}

void Checker::checkStatistics()
{
    runPart(
        [&]
        {
            sqlite::Statement statement =
                m_connection.prepare("SELECT FaultCode, count(*) FROM " + statisticSchema().name +
                                     " GROUP BY "
                                     "FaultCode HAVING count(*) > 1");
            while (statement.step())
            {
                m_findings.add(kStatistic, "FaultCode " + std::string(statement.text(0)) + " has " +
                                               std::string(statement.text(1)) + " rows in " + statisticSchema().name);
            }
        });
}

/// A missing fault is normal if its key was used once and no active statistic refers to it: `trim` may have removed it.
void Checker::checkReferences()
{
    runPart(
        [&]
        {
            sqlite::Statement statement = m_connection.prepare(
                "SELECT s.EntryId, s.FaultCode, s.FaultEntryId, s.FaultActive IS NOT 'active' AND s.FaultEntryId "
                "BETWEEN 1 AND (SELECT seq FROM sqlite_sequence WHERE name = ?1) FROM " +
                statisticSchema().name + " s WHERE s.FaultEntryId <> 0 AND NOT EXISTS (SELECT 1 FROM " +
                faultSchema().name + " f WHERE f.EntryId = s.FaultEntryId)");
            statement.bind(1, faultSchema().name);
            while (statement.step())
            {
                m_findings.add(statement.integer(3) != 0 ? kRemoved : kReference,
                               statisticSchema().name + " row " + std::string(statement.text(0)) + " (FaultCode " +
                                   std::string(statement.text(1)) + ") refers to fault " +
                                   std::string(statement.text(2)) + ", which is missing");
            }
        });
}

void Checker::checkCells()
{
    firaim::FaultReader reader;
    firaim::ReaderOptions options;
    options.isCancelled = interrupt::isPending;
    options.isAnyVersionRead = true;
    int const result = reader.open(m_path, options);
    if (result == firaim::HISTORY_FOREIGN_FILE)
    {
        return; // For a virtual table, which the check of the schema has reported.
    }
    if (result < 0)
    {
        throwFailure(result, reader.lastProblem());
    }
    for (TableSchema const* const schema : allSchemas())
    {
        checkCells(*schema, reader);
    }
}

void Checker::checkCells(TableSchema const& schema, firaim::FaultReader& reader)
{
    Progress progress("checking " + schema.name, m_output.terminal());
    std::vector<bool> const isPresent = m_schemaCheck.presentColumns(schema);
    RowCursor row = reader.rows(schema.table);
    int result = row.next();
    for (; result == firaim::HISTORY_OK; result = row.next())
    {
        checkRow(row, schema, isPresent);
        m_output.flushIfLarge();
        if (progress.isVisible())
        {
            progress.show(row.progress());
        }
    }
    if (result == firaim::HISTORY_DAMAGED)
    {
        m_findings.add(kIntegrity, reader.lastProblem());
    }
    else if (result < 0)
    {
        throwFailure(result, reader.lastProblem());
    }
}

void Checker::checkRow(RowCursor const& row, TableSchema const& schema, std::vector<bool> const& isPresent)
{
    for (std::size_t column = 0; column < schema.columns.size(); ++column)
    {
        std::string const problem = isPresent[column] ? cellProblem(row, column, schema.columns[column]) : "";
        if (!problem.empty())
        {
            m_findings.add(kCell, schema.name + " row " + std::to_string(row.key()) + ": " +
                                      schema.columns[column].name + " " + problem);
        }
    }
}

int check(Options const& options, Output& output)
{
    return usingSqlite(options.path, [&] { return Checker(options, output).run() ? STATUS_DONE : STATUS_NO; });
}

} // namespace

void addCheck(CommandLine& line, Request& request)
{
    Command command = line.add("check", "Check a file and say what to do; changes nothing", "  firaim check faults.db");
    auto const options = std::make_shared<Options>();
    addFile(command, options->path);
    addJson(command, options->isJson);
    runWith(command, request, options, check);
}

} // namespace tool
