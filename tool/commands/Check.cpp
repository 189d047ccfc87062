// firaim check: what is wrong with a file, and what can be done.

#include "../Command.h"
#include "../FaultFile.h"
#include "../Format.h"
#include "../Interrupt.h"
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
constexpr kind_t kReference = {"reference", "the fault was removed by something else than 'firaim trim': the statistic "
                                            "still counts right, and is put right when the fault occurs again"};
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
    void report(kind_t const& kind, std::string const& what);
    void end();
    void checkIntegrity();
    bool checkSchema();
    bool checkTable(tableFormat_t const& format);
    bool checkColumns(tableFormat_t const& format);
    void checkExtras();
    void checkVersion();
    void checkStatistics();
    void checkReferences();
    void checkCells(tableFormat_t const& format);
    std::string cellProblem(Statement const& row, int column, column_t const& expected) const;
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
        m_output.writeLine(std::string(kind.name) + ": " + visible(what));
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
    m_output.writeLine(visible(m_connection.path()) + ": " +
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

/// Returns whether the tables can be read by the names of their columns.
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
    bool const isReadable = checkColumns(format);
    if (sql != format.createStatement && m_findings == before)
    {
        report(kSchema, format.name + " was created by another statement: " + sql);
    }
    return isReadable;
}

/// Compares the columns one by one; returns whether all that are needed are there.
bool Checker::checkColumns(tableFormat_t const& format)
{
    Statement found =
        m_connection.prepare("SELECT name, type, \"notnull\", pk FROM pragma_table_xinfo(?1) ORDER BY cid");
    found.bind(1, format.name);
    std::size_t position = 0;
    std::vector<std::string> names;
    for (; found.step(); ++position)
    {
        std::string const name(found.text(0));
        names.push_back(name);
        std::string const place = format.name + " column " + std::to_string(position);
        if (position >= format.columns.size())
        {
            report(kSchema, place + " is '" + name + "', which does not belong there");
            continue;
        }
        column_t const& expected = format.columns[position];
        bool const isKey = expected.content == content_t::KEY;
        if (name != expected.name)
        {
            report(kSchema, place + " is '" + name + "' instead of '" + expected.name + "'");
        }
        else if (found.text(1) != expected.sqlType)
        {
            report(kSchema, place + " ('" + name + "') is of type '" + std::string(found.text(1)) + "' instead of '" +
                                expected.sqlType + "'");
        }
        else if ((found.integer(2) != 0) != isKey || (found.integer(3) != 0) != isKey)
        {
            report(kSchema, place + " ('" + name + "') " + (isKey ? "is not" : "must not be") + " the key");
        }
    }
    bool isReadable = true;
    for (column_t const& column : format.columns)
    {
        bool const isThere = std::find(names.begin(), names.end(), column.name) != names.end();
        if (!isThere && position < format.columns.size())
        {
            report(kSchema, format.name + " has no column '" + column.name + "'");
        }
        isReadable = isReadable && isThere;
    }
    return isReadable;
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
            Statement statement =
                m_connection.prepare("SELECT Version FROM FdbVersionTbl WHERE Component LIKE 'FormatVersion'");
            std::size_t rows = 0;
            for (; statement.step(); ++rows)
            {
                std::string const version(statement.text(0));
                if (version != FaultDb::SUPPORTED_VERSION)
                {
                    report(kVersion,
                           "format version is '" + version + "' instead of '" + FaultDb::SUPPORTED_VERSION + "'");
                }
            }
            if (rows != 1)
            {
                report(kVersion, "FdbVersionTbl has " + counted(rows, "row") + " of FormatVersion instead of 1 row");
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

/// A fault that `trim` has removed is older than all that are there, and nothing active refers to it: that is as it
/// should be.
void Checker::checkReferences()
{
    attempt(
        [&]
        {
            Statement statement = m_connection.prepare(
                "SELECT s.EntryId, s.FaultCode, s.FaultEntryId FROM FdbFaultStatisticTbl s WHERE s.FaultEntryId <> 0 "
                "AND NOT EXISTS (SELECT 1 FROM FdbFaultTbl f WHERE f.EntryId = s.FaultEntryId) AND NOT (s.FaultActive "
                "IS NOT 'active' AND s.FaultEntryId < (SELECT min(EntryId) FROM FdbFaultTbl) AND s.FaultEntryId > 0)");
            while (statement.step())
            {
                report(kReference, "FdbFaultStatisticTbl row " + std::string(statement.text(0)) + " (FaultCode " +
                                       std::string(statement.text(1)) + ") refers to fault " +
                                       std::string(statement.text(2)) + ", which is missing");
            }
        });
}

std::string Checker::cellProblem(Statement const& row, int column, column_t const& expected) const
{
    int const type = row.type(column);
    if (type == SQLITE_NULL)
    {
        return "is NULL";
    }
    if (type == SQLITE_BLOB)
    {
        return "holds a blob";
    }
    if (expected.content == content_t::KEY || expected.content == content_t::NUMBER)
    {
        if (type != SQLITE_INTEGER)
        {
            return "holds '" + std::string(row.text(column)) + "' and no whole number";
        }
        std::int64_t const value = row.integer(column);
        bool const isTooLarge = expected.bits < 64 && value >> expected.bits != 0;
        return value < 0 || isTooLarge ? "holds " + std::to_string(value) + ", which is no number of " +
                                             std::to_string(expected.bits) + " bits"
                                       : "";
    }
    if (type != SQLITE_TEXT)
    {
        return "holds the number " + std::string(row.text(column)) + " and no text";
    }
    std::string_view const text = row.text(column);
    if (text.find('\0') != std::string_view::npos)
    {
        return "holds a text with a zero byte, where it is cut off when it is read";
    }
    if (expected.content == content_t::STATUS &&
        std::find(expected.words.begin(), expected.words.end(), text) == expected.words.end())
    {
        return "holds '" + std::string(text) + "', which is no status";
    }
    return "";
}

void Checker::checkCells(tableFormat_t const& format)
{
    Progress progress("checking " + format.name, m_output.terminal());
    attempt(
        [&]
        {
            RowReader reader(m_connection, format, order_t::OLDEST_FIRST);
            reader.read(
                [&](Statement const& row)
                {
                    for (std::size_t column = 0; column < format.columns.size(); ++column)
                    {
                        std::string const problem = cellProblem(row, static_cast<int>(column), format.columns[column]);
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
