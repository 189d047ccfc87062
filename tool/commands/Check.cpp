// firaim check: what is wrong with a file, and what can be done.

#include "../CellCheck.h"
#include "../Command.h"
#include "../FaultFile.h"
#include "../Format.h"
#include "../Json.h"
#include "../Progress.h"
#include "../Rows.h"
#include "../Text.h"

#include <fdb/FaultDb.h>

#include <sqlite3.h>

#include <algorithm>
#include <map>

namespace tool
{

namespace
{

/// A badly damaged file would have as many findings as cells.
constexpr std::size_t kMostFindingsOfAKind = 20;

struct Options
{
    std::string path;
    bool isJson = false;
};

/// What is wrong, of one kind.
struct kind_t
{
    char const* name;
    char const* advice;
};

constexpr kind_t kIntegrity = {"integrity",
                               "the file itself is damaged: keep it, restore a backup, or save what can be read with "
                               "'firaim export'"};
constexpr kind_t kSchema = {"schema", "the file was not created by the library, or was changed since: create a new one "
                                      "and record into it what 'firaim export' reads"};
constexpr kind_t kVersion = {"version", "an application opens it in compatible mode at most: use the software that "
                                        "wrote it, or restore a backup"};
constexpr kind_t kReference = {"reference",
                               "'firaim trim' removes no such fault: the statistic still counts right, and "
                               "is put right when the fault occurs again"};
constexpr kind_t kStatistic = {"statistic", "applications keep one row for each code: the library writes all of them "
                                            "when the fault occurs again, and reads the first"};
constexpr kind_t kCell = {"cell", "applications read something else than was recorded: look at the row with 'firaim "
                                  "export --format sql'"};

class Checker
{
public:
    Checker(Options const& options, Output& output) : m_output(output), m_connection(openForLooking(options.path))
    {
        if (options.isJson)
        {
            m_array.emplace(output);
        }
    }

    /// Returns the number of findings.
    std::size_t run()
    {
        checkIntegrity();
        if (checkSchema())
        {
            checkVersion();
            checkStatistics();
            checkReferences();
            for (tableFormat_t const* const format : allFormats())
            {
                checkCells(*format);
            }
        }
        end();
        return m_findings;
    }

private:
    /// A column of the file.
    struct foundColumn_t
    {
        std::string name;
        std::string type;
        bool isKey;     ///< may not be empty, and is the key
        bool isSomeKey; ///< one of the two
    };

    void report(kind_t const& kind, std::string const& what);
    void end();
    void checkIntegrity();
    bool checkSchema();
    bool checkTable(tableFormat_t const& format);
    void checkColumns(tableFormat_t const& format);
    std::vector<foundColumn_t> readColumns(tableFormat_t const& format) const;
    void checkColumn(tableFormat_t const& format, column_t const& expected, foundColumn_t const& found);
    void checkExtras();
    void checkVersion();
    void checkStatistics();
    void checkReferences();
    void checkCells(tableFormat_t const& format);
    /// Runs a part of the check; what SQLite cannot read is a finding, too.
    template <class Part>
    bool attempt(Part const& part);

    Output& m_output;
    Connection const m_connection;
    std::optional<JsonArray> m_array;
    std::size_t m_findings = 0;
    std::map<std::string, std::size_t> m_findingsByKind;
    std::vector<kind_t> m_kinds; ///< in the order in which they were met
};

void Checker::report(kind_t const& kind, std::string const& what)
{
    ++m_findings;
    std::size_t const already = m_findingsByKind[kind.name]++;
    if (already == 0)
    {
        m_kinds.push_back(kind);
    }
    if (m_array)
    {
        m_array->add({{"Kind", kind.name}, {"Finding", what}, {"Advice", kind.advice}});
    }
    else if (already < kMostFindingsOfAKind)
    {
        m_output.writeLine(std::string(kind.name) + ": " + visible(what, m_output.terminal().isAsciiOnly()));
    }
}

void Checker::end()
{
    if (m_array)
    {
        m_array->end();
        m_output.writeLine("");
        return;
    }
    for (kind_t const& kind : m_kinds)
    {
        std::size_t const count = m_findingsByKind[kind.name];
        if (count > kMostFindingsOfAKind)
        {
            m_output.writeLine(std::string(kind.name) + ": and " + grouped(count - kMostFindingsOfAKind) + " more");
        }
    }
    for (kind_t const& kind : m_kinds)
    {
        m_output.writeLine("what to do (" + std::string(kind.name) + "): " + kind.advice);
    }
    m_output.writeLine(visible(m_connection.path(), m_output.terminal().isAsciiOnly()) + ": " +
                       (m_findings == 0 ? "nothing is wrong" : counted(m_findings, "finding")));
}

template <class Part>
bool Checker::attempt(Part const& part)
{
    try
    {
        part();
        return true;
    }
    catch (SqliteProblem const& problem)
    {
        if ((problem.code() & 0xff) != SQLITE_CORRUPT && problem.code() != SQLITE_ERROR)
        {
            throw;
        }
        report(kIntegrity, problem.what());
        return false;
    }
}

void Checker::checkIntegrity()
{
    attempt(
        [&]
        {
            Statement statement = m_connection.prepare("PRAGMA integrity_check(20)");
            while (statement.step())
            {
                std::string const text(statement.text(0));
                if (text != "ok")
                {
                    report(kIntegrity, text);
                }
            }
        });
}

/// Returns whether there are tables that can be read.
bool Checker::checkSchema()
{
    bool isReadable = true;
    for (tableFormat_t const* const format : allFormats())
    {
        bool isTableReadable = false;
        attempt([&] { isTableReadable = checkTable(*format); });
        isReadable = isReadable && isTableReadable;
    }
    attempt([&] { checkExtras(); });
    return isReadable;
}

bool Checker::checkTable(tableFormat_t const& format)
{
    Statement statement = m_connection.prepare("SELECT type, sql FROM sqlite_master WHERE name = ?1");
    statement.bind(1, format.name);
    if (!statement.step())
    {
        report(kSchema, "table " + format.name + " is missing");
        return false;
    }
    std::string const type(statement.text(0));
    if (type != "table")
    {
        report(kSchema, format.name + " is a " + type + " and not a table");
        return false;
    }
    std::string const sql(statement.text(1));
    statement.reset();
    std::size_t const before = m_findings;
    checkColumns(format);
    if (sql != format.createStatement && m_findings == before)
    {
        report(kSchema, format.name + " was created by another statement: " + sql);
    }
    return true;
}

/// Compares the columns one by one.
void Checker::checkColumns(tableFormat_t const& format)
{
    std::vector<foundColumn_t> const found = readColumns(format);
    auto const isIn = [](auto const& columns, std::string const& name)
    { return std::any_of(columns.begin(), columns.end(), [&](auto const& column) { return column.name == name; }); };
    auto next = found.begin();
    for (column_t const& expected : format.columns)
    {
        for (; next != found.end() && !isIn(format.columns, next->name); ++next)
        {
            report(kSchema, format.name + " has a column '" + next->name + "', which does not belong there");
        }
        if (!isIn(found, expected.name))
        {
            report(kSchema, format.name + " has no column '" + expected.name + "'");
        }
        else if (next != found.end() && next->name == expected.name)
        {
            checkColumn(format, expected, *next++);
        }
        else
        {
            report(kSchema, format.name + " has the column '" + expected.name + "' in another place");
            next = next == found.end() ? next : next + 1;
        }
    }
    for (; next != found.end(); ++next)
    {
        if (!isIn(format.columns, next->name))
        {
            report(kSchema, format.name + " has a column '" + next->name + "', which does not belong there");
        }
    }
}

std::vector<Checker::foundColumn_t> Checker::readColumns(tableFormat_t const& format) const
{
    Statement column =
        m_connection.prepare("SELECT name, type, \"notnull\", pk FROM pragma_table_xinfo(?1) ORDER BY cid");
    column.bind(1, format.name);
    std::vector<foundColumn_t> found;
    while (column.step())
    {
        found.push_back({std::string(column.text(0)), std::string(column.text(1)),
                         column.integer(2) != 0 && column.integer(3) != 0,
                         column.integer(2) != 0 || column.integer(3) != 0});
    }
    return found;
}

void Checker::checkColumn(tableFormat_t const& format, column_t const& expected, foundColumn_t const& found)
{
    std::string const place = format.name + " column '" + found.name + "'";
    bool const isKey = expected.content == content_t::KEY;
    if (found.type != expected.sqlType)
    {
        report(kSchema, place + " is of type '" + found.type + "' instead of '" + expected.sqlType + "'");
    }
    else if (isKey ? !found.isKey : found.isSomeKey)
    {
        report(kSchema, place + (isKey ? " is not the key" : " must not be a key, and may be empty"));
    }
}

void Checker::checkExtras()
{
    Statement statement = m_connection.prepare(
        "SELECT type, name FROM sqlite_master WHERE name NOT LIKE 'sqlite\\_%' ESCAPE '\\' AND NOT (type = 'table' AND "
        "name IN ('FdbFaultTbl', 'FdbFaultStatisticTbl', 'FdbVersionTbl'))");
    while (statement.step())
    {
        report(kSchema, std::string(statement.text(0)) + " '" + std::string(statement.text(1)) +
                            "' is not part of the file format");
    }
}

void Checker::checkVersion()
{
    attempt(
        [&]
        {
            std::vector<std::string> const versions = readFormatVersions(m_connection);
            for (std::string const& version : versions)
            {
                if (version != FaultDb::SUPPORTED_VERSION)
                {
                    report(kVersion,
                           "format version is '" + version + "' instead of '" + FaultDb::SUPPORTED_VERSION + "'");
                }
            }
            if (versions.size() != 1)
            {
                report(kVersion,
                       "FdbVersionTbl has " + counted(versions.size(), "row") + " of FormatVersion instead of 1 row");
            }
        });
}

void Checker::checkStatistics()
{
    attempt(
        [&]
        {
            Statement statement = m_connection.prepare("SELECT FaultCode, count(*) FROM FdbFaultStatisticTbl GROUP BY "
                                                       "FaultCode HAVING count(*) > 1");
            while (statement.step())
            {
                report(kStatistic, "FaultCode " + std::string(statement.text(0)) + " has " +
                                       std::string(statement.text(1)) + " rows in FdbFaultStatisticTbl");
            }
        });
}

/// A fault whose key was once used and that nothing active refers to may have been removed by `trim`: that is as it
/// should be.
void Checker::checkReferences()
{
    attempt(
        [&]
        {
            Statement statement = m_connection.prepare(
                "SELECT s.EntryId, s.FaultCode, s.FaultEntryId FROM FdbFaultStatisticTbl s WHERE s.FaultEntryId <> 0 "
                "AND NOT EXISTS (SELECT 1 FROM FdbFaultTbl f WHERE f.EntryId = s.FaultEntryId) AND NOT (s.FaultActive "
                "IS NOT 'active' AND s.FaultEntryId BETWEEN 1 AND (SELECT seq FROM sqlite_sequence WHERE name = "
                "'FdbFaultTbl'))");
            while (statement.step())
            {
                report(kReference, "FdbFaultStatisticTbl row " + std::string(statement.text(0)) + " (FaultCode " +
                                       std::string(statement.text(1)) + ") refers to fault " +
                                       std::string(statement.text(2)) + ", which is missing");
            }
        });
}

void Checker::checkCells(tableFormat_t const& format)
{
    Progress progress("checking " + format.name, m_output.terminal());
    attempt(
        [&]
        {
            std::vector<foundColumn_t> const found = readColumns(format);
            auto const isThere = [&](column_t const& column) {
                return std::any_of(found.begin(), found.end(),
                                   [&](foundColumn_t const& one) { return one.name == column.name; });
            };
            RowReader reader(m_connection, format, order_t::OLDEST_FIRST);
            reader.read(
                [&](Statement const& row)
                {
                    for (std::size_t column = 0; column < format.columns.size(); ++column)
                    {
                        std::string const problem =
                            isThere(format.columns[column])
                                ? cellProblem(row, static_cast<int>(column), format.columns[column])
                                : "";
                        if (!problem.empty())
                        {
                            report(kCell, format.name + " row " +
                                              std::string(row.text(static_cast<int>(format.columns.size()))) + ": " +
                                              format.columns[column].name + " " + problem);
                        }
                    }
                    return true;
                },
                [&]
                {
                    m_output.flush();
                    progress.show(reader.progress());
                });
        });
}

int check(Options const& options, Output& output)
{
    return Checker(options, output).run() == 0 ? STATUS_DONE : STATUS_NO;
}

} // namespace

void addCheck(CLI::App& app, Request& request)
{
    CLI::App* const command =
        addCommand(app, "check", "Say what is wrong with a file and what can be done; changes nothing",
                   "  firaim check faults.db");
    auto const options = std::make_shared<Options>();
    addFile(*command, options->path);
    addJson(*command, options->isJson);
    runWith(*command, request, options, check);
}

} // namespace tool
