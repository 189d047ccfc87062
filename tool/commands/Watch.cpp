// firaim watch: what other processes record, as they record it.

#include "../Codes.h"
#include "../Command.h"
#include "../FaultFile.h"
#include "../FileWatch.h"
#include "../Interrupt.h"
#include "../Json.h"
#include "../Rows.h"
#include "../Statistics.h"
#include "../Text.h"
#include "../TextTable.h"

#include <sqlite3.h>

#include <algorithm>
#include <limits>
#include <map>

namespace tool
{

namespace
{

/// For changes that the system does not tell of.
constexpr int kLongestWaitMs = 2000;
/// When the file was locked by a writer at the moment of looking.
constexpr int kRetryMs = 20;
/// Many changes in a row are looked at together.
constexpr int kGatheringMs = 50;

struct Options
{
    std::string path;
    TimeStyle style;
    unsigned long long last = 0;
    bool isJson = false;
};

/// Says what has changed since the last look.
class Follower
{
public:
    Follower(Options const& options, Output& output)
        : m_options(options), m_output(output), m_file(std::in_place, options.path)
    {
    }

    /// Begins with what is there already: nothing of that is said but the last faults that were asked for.
    void begin();
    /// Returns whether the file could be looked at.
    bool look();
    /// Goes on with another file of the same name, from its beginning, as soon as that is a fault database.
    void changeFile();

private:
    void lookClosely();
    void beginAnew(std::string const& reason);
    void reopen();
    void giveReason(Problem const& problem);
    void lookAtFaults();
    void lookAtStatistics(bool isSaid);
    void say(Statement const& row, Fault const& fault);
    void say(statisticRow_t const& row);
    std::string shown(std::string const& text) const;
    void sayLine(std::string const& text, faultStatus_t status, std::string const& rest);

    Options const& m_options;
    Output& m_output;
    std::optional<FaultFile> m_file; ///< none until another file of the name can be opened
    std::string m_reason;            ///< why it cannot, as last said
    FaultDecoder m_decoder;
    std::optional<std::int64_t> m_version; ///< of the file, as SQLite counts what others write
    std::int64_t m_lastKey = std::numeric_limits<std::int64_t>::min();
    std::map<unsigned long long, json_t> m_statistics; ///< by key, as they were
};

void Follower::begin()
{
    auto const offset = std::min<unsigned long long>(m_options.last, std::numeric_limits<std::int64_t>::max());
    Statement newest =
        m_file->connection().prepare("SELECT EntryId FROM FdbFaultTbl ORDER BY EntryId DESC LIMIT 1 OFFSET ?1");
    if (newest.bind(1, static_cast<std::int64_t>(offset)).step())
    {
        m_lastKey = newest.integer(0);
    }
    newest.reset();
    lookAtStatistics(false);
    lookAtFaults();
    m_output.flush();
    // From now on there is always another look.
    m_file->connection().waitForLocks(0);
}

bool Follower::look()
{
    try
    {
        if (!m_file || m_file->connection().isForEver())
        {
            reopen();
        }
        if (m_file)
        {
            lookClosely();
        }
        m_output.flush();
        return true;
    }
    catch (SqliteProblem const& problem)
    {
        m_output.flush();
        if ((problem.code() & 0xff) == SQLITE_BUSY)
        {
            return false; // A writer is at work.
        }
        // One was cut off, or the content is being replaced: its next change will tell.
        giveReason(problem);
        m_file.reset();
        m_version.reset();
        return true;
    }
}

void Follower::lookClosely()
{
    // Before the rows: what comes in between is looked at once more.
    std::int64_t const version = m_file->connection().number("PRAGMA data_version");
    if (m_version != version)
    {
        if (m_file->connection().number("SELECT seq FROM sqlite_sequence WHERE name = 'FdbFaultTbl'") < m_lastKey)
        {
            beginAnew("its content was replaced; following that"); // Keys only ever grow.
        }
        lookAtFaults();
        lookAtStatistics(true);
        m_version = version;
    }
}

void Follower::changeFile()
{
    m_file.reset();
    m_version.reset();
    beginAnew("another file has got this name; following that");
}

void Follower::beginAnew(std::string const& reason)
{
    complain(m_options.path + ": " + reason);
    m_lastKey = std::numeric_limits<std::int64_t>::min();
    m_statistics.clear();
    m_reason.clear();
}

void Follower::reopen()
{
    try
    {
        m_file.emplace(m_options.path);
        m_file->connection().waitForLocks(0);
        m_version.reset();
    }
    catch (Problem const& problem)
    {
        giveReason(problem); // It may only just be about to be created; its next change will tell.
    }
}

/// Says once why nothing can be said of the file.
void Follower::giveReason(Problem const& problem)
{
    if (problem.what() != m_reason)
    {
        m_reason = problem.what();
        complain(m_reason);
    }
}

void Follower::lookAtFaults()
{
    keyRange_t range;
    if (m_lastKey == range.last)
    {
        return;
    }
    range.first = m_lastKey + 1;
    RowReader reader(m_file->connection(), faultFormat(), order_t::OLDEST_FIRST, range);
    reader.read(
        [&](Statement const& row)
        {
            say(row, m_decoder.decode(row));
            m_lastKey = row.integer(faultColumn::ENTRY_ID);
            return true;
        },
        [&] { m_output.flush(); });
}

void Follower::lookAtStatistics(bool isSaid)
{
    for (statisticRow_t const& row : readStatistics(m_file->connection(), m_options.style))
    {
        json_t& known = m_statistics[row.statistic.EntryId];
        if (known != row.json)
        {
            known = row.json;
            if (isSaid)
            {
                say(row);
            }
        }
    }
}

void Follower::say(Statement const& row, Fault const& fault)
{
    if (m_options.isJson)
    {
        json_t event = {{"Event", "fault"}};
        event.update(jsonRow(row, faultFormat(), m_options.style));
        m_output.writeLine(jsonText(event, m_output.terminal()));
        return;
    }
    std::string rest;
    for (std::string const* const text : {&fault.ModuleName, &fault.Parameter, &fault.Description})
    {
        rest += text->empty() ? "" : "  " + shown(*text);
    }
    sayLine(stampText(fault.TimeStampUTC, m_options.style) + "  fault " + std::to_string(fault.EntryId) + "  " +
                shown(codeText(fault.FaultCode, fault.FaultCodeName)) + "  ",
            fault.Status, rest);
}

void Follower::say(statisticRow_t const& row)
{
    if (m_options.isJson)
    {
        json_t event = {{"Event", "statistic"}};
        event.update(row.json);
        m_output.writeLine(jsonText(event, m_output.terminal()));
        return;
    }
    FaultStatistic const& statistic = row.statistic;
    sayLine(stampText(statistic.TimeLastOccurredUTC, m_options.style) + "  statistic  " +
                shown(codeText(statistic.FaultCode, statistic.FaultCodeName)) + "  ",
            statistic.FaultActive, "  count " + std::to_string(statistic.OccurenceCnt));
}

std::string Follower::shown(std::string const& text) const
{
    return visible(text, m_output.terminal().isAsciiOnly());
}

void Follower::sayLine(std::string const& text, faultStatus_t status, std::string const& rest)
{
    bool const isActive = status == FAULT_ACTIVE;
    std::string const word = isActive ? "active" : "inactive";
    Terminal const& terminal = m_output.terminal();
    auto const width = static_cast<std::size_t>(terminal.width);
    std::size_t const used = displayWidth(text) + word.size();
    if (terminal.isThere && used + 2 > width)
    {
        m_output.writeLine(shortened(text + word, width, ellipsisFor(terminal)));
        return;
    }
    m_output.writeLine(text + styled(word, isActive ? style_t::ALARM : style_t::FAINT, terminal) +
                       (terminal.isThere ? shortened(rest, width - used, ellipsisFor(terminal)) : rest));
}

/// Waits for the file to come back, when something removed or replaced it.
void followName(Options const& options, FileWatch& files, Follower& follower)
{
    if (!files.isThere())
    {
        complain(options.path + ": the file is gone; waiting for it to come back");
        while (!files.isThere() && !interrupt::isPending())
        {
            files.wait(kLongestWaitMs);
        }
        if (!interrupt::isPending())
        {
            complain(options.path + ": it is back");
        }
    }
    if (files.isReplaced())
    {
        follower.changeFile();
    }
}

void follow(Options const& options, Output& output)
{
    FileWatch files(options.path);
    Follower follower(options, output);
    follower.begin();
    bool isSeen = false; // What was written since the beginning may not be told of any more.
    while (!interrupt::isPending())
    {
        if (isSeen)
        {
            files.wait(kLongestWaitMs);
        }
        interrupt::pause(isSeen ? kGatheringMs : kRetryMs);
        followName(options, files, follower);
        isSeen = follower.look();
    }
}

int watch(Options const& options, Output& output)
{
    try
    {
        follow(options, output);
    }
    catch (interrupt::Interrupted const&)
    {
        // To be interrupted is the way in which it ends.
    }
    return STATUS_DONE;
}

} // namespace

void addWatch(CLI::App& app, Request& request)
{
    CLI::App* const command = addCommand(app, "watch", "Follow new faults and changing statistics until interrupted",
                                         "  firaim watch faults.db --last 10");
    auto const options = std::make_shared<Options>();
    addFile(*command, options->path);
    addNumber(*command, "--last", options->last, "Begin with the newest N faults that are there");
    addTimeStyle(*command, options->style);
    addJson(*command, options->isJson);
    runWith(*command, request, options, watch);
}

} // namespace tool
