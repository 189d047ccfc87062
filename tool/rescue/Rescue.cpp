#include <tool/rescue/Rescue.h>

#include <tool/files/Failures.h>
#include <tool/files/FileName.h>
#include <tool/files/SnapshotCopy.h>
#include <tool/files/WorkingFolder.h>
#include <tool/pages/FileBytes.h>
#include <tool/process/Interrupt.h>
#include <tool/process/Problem.h>
#include <tool/rescue/Opening.h>
#include <tool/rescue/RescuedFile.h>
#include <tool/rescue/RowCheck.h>
#include <tool/rescue/StatisticRescue.h>
#include <tool/store/FaultFile.h>
#include <tool/values/Text.h>

#include <fdb/tables/FdbSqlVersionTbl.h>

#include <algorithm>
#include <memory>
#include <optional>

#include <sys/stat.h>

namespace tool
{

namespace
{

constexpr char kNewFile[] = "new.db"; ///< in the working folder

/// The pages of the copy, and of its log where SQLite has not taken that into the copy.
class CopyPages
{
public:
    CopyPages(std::string const& path, bool isLogNeeded)
        : m_bytes(path), m_log(isLogNeeded ? std::make_unique<FileBytes>(path + "-wal") : nullptr),
          m_pages(m_bytes, m_log.get())
    {
    }

    PageFile const& pages() const { return m_pages; }

private:
    FileBytes const m_bytes;
    std::unique_ptr<FileBytes> const m_log;
    PageFile const m_pages;
};

/// Fills the new file from the pages of the copy.
class Filler
{
public:
    Filler(PageFile const& pages, bool areFreePagesTaken, RescuedFile& file, RescueReport& report)
        : m_survey(pages, areFreePagesTaken), m_rows(pages, m_survey.use()), m_faults(m_survey.table(Survey::FAULTS)),
          m_file(file), m_report(report)
    {
    }

    void run(ShowPhase const& show)
    {
        reportTables();
        reportPages();
        addFaults(show);
        m_report.missing = findMissingKeys(m_faults, sequenceOf(faultSchema()));
        // Pages beyond the end of a cut file may have been anything.
        m_report.missing.isExact = m_report.missing.isExact && m_report.pageCount >= m_report.statedPageCount;
        addStatistics();
        addVersions();
        reportRows();
    }

private:
    void reportTables();
    void reportPages();
    void addFaults(ShowPhase const& show);
    void addFaultsOf(SurveyedLeaf const& leaf);
    void addFault(FoundRow const& row);
    void addStatistics();
    void addVersions();
    void reportRows();
    std::optional<std::int64_t> sequenceOf(TableSchema const& schema);

    Survey m_survey;
    RowReader m_rows;
    SurveyedTable m_faults; ///< with the leaves that were lost while they were read
    RescuedFile& m_file;
    RescueReport& m_report;
};

void Filler::reportTables()
{
    std::string text;
    for (std::size_t index = 0; index < Survey::TABLES; ++index)
    {
        SurveyedTable const& table = m_survey.table(static_cast<Survey::Table>(index));
        text += (text.empty() ? "" : "; ") + table.name + ": " +
                counted(table.leaves.size() - table.adopted, "leaf page") + " through the tree, " +
                counted(table.lost.size(), "page") + " lost";
        for (TableTree::Lost const& lost : table.lost)
        {
            m_report.badPages.push_back({lost.page, table.name, lost.range, lost.isInterior, lost.reason});
        }
    }
    m_report.steps.push_back({"tables", text});
    if (m_survey.areRootsExchanged())
    {
        m_report.differences.push_back("page 1 names the root page of one table as that of another");
    }
}

void Filler::reportPages()
{
    std::size_t adopted = 0;
    for (std::size_t index = 0; index < Survey::TABLES; ++index)
    {
        adopted += m_survey.table(static_cast<Survey::Table>(index)).adopted;
    }
    m_report.steps.push_back({"pages", counted(adopted, "leaf page") + " found whose parents are lost, " +
                                           counted(m_faults.doubtfulLeaves.size(), "doubtful page") + ", " +
                                           counted(m_survey.freePages(), "free page")});
}

void Filler::addFaults(ShowPhase const& show)
{
    m_rows.prepare(m_faults.leaves);
    m_rows.prepare(m_faults.doubtfulLeaves);
    for (std::size_t index = 1; index < Survey::TABLES; ++index)
    {
        m_rows.prepare(m_survey.table(static_cast<Survey::Table>(index)).leaves);
    }
    m_rows.comparePreparedRows();
    std::size_t done = 0;
    for (SurveyedLeaf const& leaf : m_faults.leaves)
    {
        interrupt::throwIfPending();
        show("reading", static_cast<double>(++done) / static_cast<double>(m_faults.leaves.size()));
        addFaultsOf(leaf);
    }
    // Behind the others: a row that is among them already is not doubtful.
    for (SurveyedLeaf const& leaf : m_faults.doubtfulLeaves)
    {
        addFaultsOf(leaf);
    }
}

void Filler::addFaultsOf(SurveyedLeaf const& leaf)
{
    if (!m_rows.read(leaf, [this](FoundRow const& row) { addFault(row); }) && leaf.doubt == nullptr)
    {
        char const* const kReason = "cannot be read from the storage any more";
        m_faults.lost.push_back({leaf.page, leaf.keys, false, false, kReason});
        m_report.badPages.push_back({leaf.page, m_faults.name, leaf.keys, false, kReason});
    }
}

void Filler::addFault(FoundRow const& row)
{
    std::string const problem = row.doubt != nullptr ? row.doubt : rowProblem(row.key, row.cells, faultSchema());
    problem.empty() ? m_file.addFault(row) : m_file.addDoubtful(row, problem);
}

/// The largest key that the table ever had, according to the file.
std::optional<std::int64_t> Filler::sequenceOf(TableSchema const& schema)
{
    std::optional<std::int64_t> largest;
    auto const takeRow = [&](FoundRow const& row)
    {
        bool const isSequence = row.doubt == nullptr && row.cells.size() == 2 &&
                                row.cells[0].type == RecordCell::TEXT && row.cells[1].type == RecordCell::INTEGER;
        if (isSequence && row.cells[0].bytes == schema.name)
        {
            largest = std::max(largest.value_or(0), row.cells[1].integer);
        }
    };
    for (SurveyedLeaf const& leaf : m_survey.table(Survey::SEQUENCES).leaves)
    {
        m_rows.read(leaf, takeRow);
    }
    return largest;
}

void Filler::addStatistics()
{
    std::size_t const differencesBefore = m_report.differences.size();
    StatisticRescue statistics(m_file, m_report);
    for (SurveyedLeaf const& leaf : m_survey.table(Survey::STATISTICS).leaves)
    {
        m_rows.read(leaf, [&](FoundRow const& row) { statistics.keep(row); });
    }
    for (TableSchema const* const schema : {&faultSchema(), &statisticSchema()})
    {
        if (auto const lastKey = sequenceOf(*schema))
        {
            m_file.raiseSequence(*schema, *lastKey);
        }
    }
    std::int64_t const lastKey = m_file.lastKey(faultSchema());
    statistics.complete(lastKey);
    m_report.steps.push_back(
        {"statistics", grouped(m_report.keptStatistics) + " kept, " + grouped(m_report.rebuiltStatistics) +
                           " made from the faults, " +
                           counted(m_report.differences.size() - differencesBefore, "difference")});
}

/// Keeps the rows of the version table if they have one format version.
void Filler::addVersions()
{
    std::vector<std::string> versions;
    auto const isSound = [](FoundRow const& row)
    { return row.doubt == nullptr && rowProblem(row.key, row.cells, versionSchema()).empty(); };
    auto const forEachRow = [&](auto const& take)
    {
        for (SurveyedLeaf const& leaf : m_survey.table(Survey::VERSIONS).leaves)
        {
            m_rows.read(leaf, [&](FoundRow const& row) { isSound(row) ? take(row) : void(); });
        }
    };
    forEachRow(
        [&](FoundRow const& row)
        {
            if (equalIgnoringCase(row.cells[1].bytes, "FormatVersion"))
            {
                versions.emplace_back(row.cells[2].bytes);
            }
        });
    if (versions.size() != 1)
    {
        m_report.differences.push_back("the format version cannot be read; the new file has " +
                                       std::string(FdbSqlVersionTbl::kFormatVersion));
        return;
    }
    m_file.clearVersions();
    forEachRow([&](FoundRow const& row) { static_cast<void>(m_file.addRow(versionSchema(), row)); });
    if (versions.front() != FdbSqlVersionTbl::kFormatVersion)
    {
        m_report.steps.push_back({"version", "format version " + versions.front() + " is kept; the library writes " +
                                                 FdbSqlVersionTbl::kFormatVersion});
    }
}

void Filler::reportRows()
{
    m_report.recovered = m_file.faults();
    m_report.doubtful = m_file.doubtful();
    m_report.steps.push_back(
        {"rows", counted(m_report.recovered, "fault") + " recovered, " + grouped(m_report.doubtful) + " doubtful"});
}

void reportCopy(SnapshotCopy const& snapshot, RescueReport& report)
{
    std::string text = std::string("copied the file") + (snapshot.hasJournal ? ", its journal" : "") +
                       (snapshot.hasLog ? ", its log" : "");
    for (UnreadableBytes const& bytes : snapshot.unreadable)
    {
        text += "; " + bytes.path + ": the bytes " + std::to_string(bytes.offset) + " to " +
                std::to_string(bytes.offset + bytes.size - 1) + " cannot be read from the storage";
    }
    report.steps.push_back({"copy", text});
}

void reportLayout(PageFile const& pages, RescueReport& report)
{
    report.pageCount = pages.pageCount();
    report.statedPageCount = pages.statedPageCount();
    if (pages.isLayoutCorrected())
    {
        report.differences.push_back("page 1 tells a wrong layout of the pages; they have " +
                                     std::to_string(pages.pageSize()) + " bytes, " +
                                     std::to_string(pages.header().reserved) + " of them reserved");
    }
}

RescueReport::Result resultOf(RescueReport const& report, SnapshotCopy const& snapshot)
{
    bool const isComplete =
        snapshot.unreadable.empty() && report.badPages.empty() && report.doubtful == 0 && report.differences.empty();
    if (isComplete)
    {
        return RescueReport::COMPLETE;
    }
    bool const hasAnything = report.recovered > 0 || report.doubtful > 0 || report.keptStatistics > 0;
    return hasAnything ? RescueReport::PARTIAL : RescueReport::NOTHING;
}

/// Gives the file the permissions of the damaged one. It is only a courtesy: a failure does no harm.
void copyPermissions(std::string const& damaged, std::string const& file)
{
    struct stat status = {};
    if (stat(damaged.c_str(), &status) == 0)
    {
        static_cast<void>(chmod(file.c_str(), (status.st_mode & 0777) | S_IRUSR | S_IWUSR));
    }
}

} // namespace

RescueReport rescueFile(RescueRequest const& request, ShowPhase const& show)
{
    RescueReport report;
    WorkingFolder const folder(request.target);
    std::string const copy = folder.file("copy.db");
    SnapshotCopy const snapshot = copySnapshot(request.damaged, copy, UnreadablePolicy::FILL_WITH_ZEROS,
                                               [&](double share) { show("copying", share); });
    reportCopy(snapshot, report);
    Opening const opening = openCopy(copy, snapshot);
    report.steps.push_back({"open", opening.report});
    if (!opening.schemaProblems.empty())
    {
        report.steps.push_back({"schema", opening.schemaProblems});
    }
    CopyPages const pages(copy, opening.isLogNeeded);
    reportLayout(pages.pages(), report);
    if (pages.pages().pageSize() == 0)
    {
        throw Problem(STATUS_BAD_FILE,
                      request.damaged + ": file is not a database: it has no page of one, and nothing can be rescued");
    }
    std::string const newFile = folder.file(kNewFile);
    usingSqlite(request.target,
                [&]
                {
                    RescuedFile file(newFile);
                    Filler(pages.pages(), request.areFreePagesTaken, file, report).run(show);
                    file.finish();
                });
    report.result = resultOf(report, snapshot);
    if (report.result != RescueReport::NOTHING)
    {
        copyPermissions(request.damaged, newFile);
        folder.moveToTarget(kNewFile);
    }
    return report;
}

} // namespace tool
