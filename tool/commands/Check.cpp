// firaim check: reports problems of a file, and advice.

#include <tool/checking/CheckKinds.h>
#include <tool/checking/CheckedFile.h>
#include <tool/checking/IntegrityCheck.h>
#include <tool/checking/ReferenceCheck.h>
#include <tool/checking/RowsCheck.h>
#include <tool/cli/Command.h>
#include <tool/commands/Commands.h>
#include <tool/damage/ReadableRows.h>
#include <tool/files/Failures.h>
#include <tool/process/Interrupt.h>
#include <tool/schema/SchemaCheck.h>
#include <tool/store/FaultFile.h>
#include <tool/terminal/Progress.h>
#include <tool/values/Text.h>

#include <db/internal/ReadOnlyOpening.h>
#include <fdb/tables/FdbSqlVersionTbl.h>

#include <algorithm>
#include <string>
#include <vector>

namespace tool
{

namespace
{

struct Options
{
    std::string path;
    bool isQuick = false;
    bool isJson = false;
};

CheckedFile openFile(Options const& options, Output const& output)
{
    Progress progress("copying", output.terminal());
    return CheckedFile(options.path, options.isQuick ? CheckedFile::ON_FILE : CheckedFile::ON_COPY,
                       [&](double share) { progress.show(share); });
}

class Checker
{
public:
    Checker(Options const& options, Output& output)
        : m_options(options), m_output(output), m_file(openFile(options, output)), m_findings(output, options.isJson)
    {
    }

    /// Returns whether there is no problem.
    bool run();

private:
    void checkHeader();
    void checkMedium();
    void checkContent(sqlite::Connection const& connection);
    bool checkSchema(SchemaCheck& check);
    void checkIntegrity(bool isSchemaOfLibrary);
    void readAroundDamage();
    void reportGaps(TableSchema const& schema, std::vector<KeyGap> const& gaps);
    bool isOfMedium(KeyGap const& gap) const;
    bool isWhole(TableSchema const& schema) const;
    void checkVersion(sqlite::Connection const& connection);
    void checkReferences(sqlite::Connection const& connection);
    void checkRows(SchemaCheck const& check);
    sqlite::Connection openWork() const;
    void addDamage(sqlite::Error const& error);
    /// Runs a part of the check; an error of SQLite about the content of the file is a finding, too.
    template <class Part>
    bool runPart(Part const& part);

    Options const& m_options;
    Output& m_output;
    CheckedFile const m_file;
    Findings m_findings;
    bool m_isDamaged = false;
    std::unique_ptr<ReadableRows> m_rows; ///< of a damaged file
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
        addDamage(error);
        return false;
    }
}

/// Rethrows an error that is no finding.
void Checker::addDamage(sqlite::Error const& error)
{
    std::string const text = m_options.path + ": " + error.what();
    switch (error.kind())
    {
    case SQLITE_ERROR: // The schema lacks a name in the statement.
        m_findings.add(kSchema, text);
        return;
    case SQLITE_CORRUPT:
        // The same damage ends every part that meets it.
        if (!m_isDamaged)
        {
            m_findings.add(kIntegrity, text);
        }
        break;
    case SQLITE_IOERR:
        m_findings.add(kMedium, text);
        break;
    default:
        throw error;
    }
    m_isDamaged = true;
}

bool Checker::run()
{
    if (!m_file.copyProblem().empty())
    {
        printMessage(m_options.path + ": there is no room for a copy (" + m_file.copyProblem() +
                     "): the file itself is checked, and a writer waits while one table is checked; TMPDIR names "
                     "another folder");
    }
    checkHeader();
    checkMedium();
    std::optional<sqlite::Connection> connection;
    if (!m_file.isFirstPageLost() && runPart([&] { connection = openWork(); }))
    {
        checkContent(*connection);
    }
    m_findings.end(m_options.path);
    return m_findings.problems() == 0;
}

sqlite::Connection Checker::openWork() const
{
    return readOnlyOpening::open(m_file.workPath(), {lockWait::kBusyTimeout, interrupt::isPending});
}

void Checker::checkHeader()
{
    PageCounts const& pages = m_file.pages();
    if (m_file.isFirstPageLost())
    {
        m_findings.add(kPages, "page 1 is damaged, which tells where the tables begin; other pages hold faults");
    }
    else if (pages.isCut())
    {
        bool const isPartLeft = m_file.pages().size % pages.pageSize != 0;
        m_findings.add(kPages, "the file should have " + counted(pages.expected, "page") + " of " +
                                   grouped(pages.pageSize) + " bytes and has " + grouped(pages.whole) +
                                   (isPartLeft ? " and a part of one" : ""));
        m_isDamaged = true;
    }
    if (pages.isInWalMode && !pages.hasLog)
    {
        m_findings.add(kLog, "the file is in write-ahead-log mode, and no log is beside it");
    }
}

void Checker::checkMedium()
{
    for (std::uint64_t const page : m_file.unreadable())
    {
        m_findings.add(kMedium, "page " + std::to_string(page) + " cannot be read from the medium");
        m_isDamaged = true;
    }
    if (m_file.openProblem() && m_file.openProblem()->kind() == SQLITE_IOERR && m_file.unreadable().empty())
    {
        addDamage(*m_file.openProblem());
    }
}

void Checker::checkContent(sqlite::Connection const& connection)
{
    std::size_t problems = 0;
    SchemaCheck check(connection,
                      [&](std::string const& problem)
                      {
                          ++problems;
                          m_findings.add(kSchema, problem);
                      });
    bool const isReadable = checkSchema(check);
    if (m_file.unreadable().empty()) // Otherwise the copy has zeros, which SQLite would call damage.
    {
        runPart([&] { checkIntegrity(problems == 0); });
    }
    if (m_isDamaged)
    {
        readAroundDamage();
    }
    if (!isReadable)
    {
        return;
    }
    std::optional<sqlite::Connection> rows;
    if (m_rows)
    {
        rows.emplace(m_rows->path(), sqlite::Connection::READ_ONLY);
    }
    sqlite::Connection const& readable = rows ? *rows : connection;
    runPart([&] { checkVersion(readable); });
    if (!m_options.isQuick)
    {
        runPart([&] { findSharedCodes(readable, [&](std::string const& text) { m_findings.add(kStatistic, text); }); });
        runPart([&] { checkReferences(readable); });
        checkRows(check);
    }
}

/// Returns whether there are tables that can be read.
bool Checker::checkSchema(SchemaCheck& check)
{
    bool isReadable = true;
    for (TableSchema const* const schema : allSchemas())
    {
        bool isTableReadable = false;
        runPart([&] { isTableReadable = check.checkTable(*schema); });
        isReadable = isReadable && isTableReadable;
    }
    runPart([&] { check.checkExtras(); });
    std::string doubtful;
    if (runPart([&] { doubtful = check.doubtfulRows(); }) && !doubtful.empty())
    {
        m_findings.add(kDoubtful, doubtful);
    }
    return isReadable;
}

void Checker::checkIntegrity(bool isSchemaOfLibrary)
{
    Progress progress("checking pages", m_output.terminal());
    std::size_t ticks = 0;
    sqlite::Connection const connection = openWork();
    IntegrityCheck check(
        connection,
        [&](FindingKind const& kind, std::string const& problem)
        {
            m_findings.add(kind, problem);
            m_isDamaged = true;
        },
        [&] { progress.show(std::string(1 + ticks++ / 100 % 3, '.')); });
    check.run({m_options.isQuick, !m_file.isCopy(), !isSchemaOfLibrary}, m_file.pages().size);
}

/// Reads the tables around the damage, and reports which rows are missing.
void Checker::readAroundDamage()
{
    try
    {
        if (!m_options.isQuick)
        {
            m_rows = std::make_unique<ReadableRows>(m_file.workPath());
        }
    }
    catch (Problem const&)
    {
        // Without room, the pages still tell which keys are lost.
    }
    for (TableSchema const* const schema : allSchemas())
    {
        try
        {
            if (m_rows)
            {
                m_rows->add(*schema);
            }
            reportGaps(*schema, m_rows ? m_rows->gapsOf(*schema) : findGapsOf(m_file.workPath(), *schema));
        }
        catch (Problem const&)
        {
            m_rows.reset(); // The check of the schema has reported that the table is missing.
        }
    }
    if (m_rows && m_rows->isSequenceLost())
    {
        m_findings.add(kLost, "the largest keys used so far, in sqlite_sequence, cannot be read");
    }
}

void Checker::reportGaps(TableSchema const& schema, std::vector<KeyGap> const& gaps)
{
    for (KeyGap gap : gaps)
    {
        gap.isMedium = isOfMedium(gap);
        m_findings.add(gap.isMedium ? kMedium : kLost, gapText(schema, gap));
    }
    if (gaps.empty())
    {
        m_findings.add(kWhole, schema.name + " can be read whole" +
                                   (m_rows ? ": " + counted(m_rows->countOf(schema), "row") : ""));
    }
}

/// Whether the medium, and no damage, is the reason of the gap. A page that it did not return is zeros in the copy.
bool Checker::isOfMedium(KeyGap const& gap) const
{
    std::vector<std::uint64_t> const& unreadable = m_file.unreadable();
    auto const isUnreadable = [&](TableTree::Lost const& lost)
    { return std::find(unreadable.begin(), unreadable.end(), lost.page) != unreadable.end(); };
    return gap.isMedium || (!gap.pages.empty() && std::all_of(gap.pages.begin(), gap.pages.end(), isUnreadable));
}

bool Checker::isWhole(TableSchema const& schema) const
{
    return !m_rows || m_rows->gapsOf(schema).empty();
}

void Checker::checkVersion(sqlite::Connection const& connection)
{
    std::vector<std::string> const versions = readFormatVersions(connection);
    for (std::string const& version : versions)
    {
        if (version != FdbSqlVersionTbl::kFormatVersion)
        {
            m_findings.add(kVersion,
                           "format version is '" + version + "' instead of '" + FdbSqlVersionTbl::kFormatVersion + "'");
        }
    }
    if (versions.size() != 1 && isWhole(versionSchema()))
    {
        m_findings.add(kVersion, versionSchema().name + " has " + counted(versions.size(), "row") +
                                     " of FormatVersion instead of 1 row");
    }
}

void Checker::checkReferences(sqlite::Connection const& connection)
{
    std::vector<KeyGap> const gaps = m_rows ? m_rows->gapsOf(faultSchema()) : std::vector<KeyGap>();
    findMissingReferences(connection,
                          [&](MissingReference const& reference)
                          {
                              bool const isLost =
                                  std::any_of(gaps.begin(), gaps.end(),
                                              [&](KeyGap const& gap) { return gap.keys.has(reference.fault); });
                              if (!isLost)
                              {
                                  m_findings.add(reference.isExplained ? kRemoved : kReference, reference.text);
                              }
                          });
}

void Checker::checkRows(SchemaCheck const& check)
{
    firaim::FaultReader reader;
    firaim::ReaderOptions options;
    options.isCancelled = interrupt::isPending;
    options.isAnyVersionRead = true;
    int const result = m_rows ? firaim::HISTORY_OK : reader.open(m_file.workPath(), options);
    if (result == firaim::HISTORY_FOREIGN_FILE)
    {
        return; // For a virtual table, which the check of the schema has reported.
    }
    if (result < 0)
    {
        throwFailure(result, reader.lastProblem());
    }
    RowsCheck rows(m_options.path, m_rows ? m_rows->gapsOf(faultSchema()) : std::vector<KeyGap>(), m_findings,
                   m_output);
    for (TableSchema const* const schema : allSchemas())
    {
        std::vector<bool> isPresent;
        runPart([&] { isPresent = check.presentColumns(*schema); });
        rows.check(*schema, isPresent, m_rows ? m_rows->reader() : reader);
    }
    rows.compareStatistics(isWhole(statisticSchema()));
}

int check(Options const& options, Output& output)
{
    return usingSqlite(options.path, [&] { return Checker(options, output).run() ? STATUS_DONE : STATUS_NO; });
}

} // namespace

void addCheck(CommandLine& line, Request& request)
{
    Command command = line.add("check", "Check a file and say what to do; changes nothing",
                               "  firaim check faults.db\n"
                               "  firaim check faults.db --quick");
    auto const options = std::make_shared<Options>();
    addFile(command, options->path);
    command.flag("--quick", options->isQuick,
                 "Check only the pages, the tables' columns and the format version, without a copy of the file");
    addJson(command, options->isJson);
    runWith(command, request, options, check);
}

} // namespace tool
