// firaim watch: prints new faults and changed statistics as other processes write them.

#include <tool/cli/Command.h>
#include <tool/commands/Commands.h>
#include <tool/formats/Json.h>
#include <tool/formats/Statistics.h>
#include <tool/formats/StatusCell.h>
#include <tool/process/Interrupt.h>
#include <tool/store/FaultFile.h>
#include <tool/terminal/SafeText.h>
#include <tool/terminal/TextTable.h>
#include <tool/values/Codes.h>

#include <history/FaultFollower.h>

#include <algorithm>
#include <chrono>
#include <limits>

#include <sys/stat.h>

namespace tool
{

namespace
{

using std::chrono::milliseconds;

/// Faults that are printed before statistics are polled.
constexpr int kMostFaultsPerPoll = 1000;
/// The timeout of one wait of many. It can be long, because there is nothing to do in between.
constexpr milliseconds kLongestWait = std::chrono::hours(1);

struct Options
{
    std::string path;
    TimeStyle style;
    unsigned long long last = 0;
    bool isJson = false;
};

bool fileExists(std::string const& path)
{
    struct stat status = {};
    return stat(path.c_str(), &status) == 0;
}

/// The position before the newest faults that --last asks for.
firaim::FollowPosition startPosition(Options const& options, FaultFile& file)
{
    firaim::FaultQuery query;
    query.limit = options.last < std::numeric_limits<unsigned long long>::max() ? options.last + 1 : options.last;
    firaim::FaultCursor cursor = file.reader().faults(query);
    firaim::FollowPosition position;
    Fault fault;
    unsigned long long found = 0;
    while (file.isFound(cursor.next(fault)))
    {
        position = cursor.followPosition();
        ++found;
    }
    return found > options.last ? position : firaim::FollowPosition();
}

/// Prints new faults and statistics as they come.
class Follower
{
public:
    Follower(Options const& options, Output& output) : Follower(options, output, FaultFile(options.path)) {}

    /// Prints those that have been written by now.
    void poll();
    /// Waits until there may be more.
    void wait() { static_cast<void>(m_follower.wait(kLongestWait)); }

private:
    Follower(Options const& options, Output& output, FaultFile&& file);

    bool printFaults();
    void printStatistics();
    void reportProblem(int result);
    void print(Fault const& fault);
    void print(FaultStatistic const& statistic);
    std::string escaped(std::string const& text) const;
    void printLine(std::string const& text, faultStatus_t status, std::string const& rest);

    Options const& m_options;
    Output& m_output;
    firaim::FaultFollower m_follower;
    bool m_isMissing = false; ///< the file is missing, which was reported
};

Follower::Follower(Options const& options, Output& output, FaultFile&& file)
    : m_options(options), m_output(output), m_follower(file.reader().follow(startPosition(options, file)))
{
}

void Follower::poll()
{
    if (m_isMissing && fileExists(m_options.path))
    {
        m_isMissing = false;
        printMessage(m_options.path + ": the file is back");
    }
    bool isMore = true;
    while (isMore)
    {
        isMore = printFaults();
        printStatistics();
        m_output.flush();
    }
}

/// Prints some of the new faults; returns whether there may be more.
bool Follower::printFaults()
{
    Fault fault;
    for (int printed = 0; printed < kMostFaultsPerPoll; ++printed)
    {
        int const result = m_follower.next(fault, milliseconds(0));
        if (result == firaim::HISTORY_OK)
        {
            print(fault);
            m_output.flushIfLarge();
            continue;
        }
        interrupt::throwIfPending();
        if (result == firaim::HISTORY_END || result == firaim::HISTORY_BUSY)
        {
            return false;
        }
        reportProblem(result);
    }
    return true;
}

void Follower::printStatistics()
{
    FaultStatistic statistic;
    while (m_follower.nextStatistic(statistic) == firaim::HISTORY_OK)
    {
        print(statistic);
    }
}

/// Reports why the file cannot be read. Another process may be creating it. Read it again after the next change.
void Follower::reportProblem(int result)
{
    m_output.flush();
    m_isMissing = result == firaim::HISTORY_NO_FILE;
    printMessage(m_follower.lastProblem());
}

void Follower::print(Fault const& fault)
{
    if (m_options.isJson)
    {
        Json event = {{"Event", "fault"}};
        event.update(jsonRow(m_follower.row(), faultSchema(), m_options.style));
        printJson(event, m_output);
        return;
    }
    std::string rest;
    for (std::string const* const text : {&fault.ModuleName, &fault.Parameter, &fault.Description})
    {
        rest += text->empty() ? "" : "  " + escaped(*text);
    }
    printLine(stampText(fault.TimeStampUTC, m_options.style) + "  fault " + std::to_string(fault.EntryId) + "  " +
                  escaped(codeText(fault.FaultCode, fault.FaultCodeName)) + "  ",
              fault.Status, rest);
}

void Follower::print(FaultStatistic const& statistic)
{
    if (m_options.isJson)
    {
        Json event = {{"Event", "statistic"}};
        event.update(jsonStatistic(statistic, m_options.style));
        printJson(event, m_output);
        return;
    }
    printLine(stampText(statistic.TimeLastOccurredUTC, m_options.style) + "  statistic  " +
                  escaped(codeText(statistic.FaultCode, statistic.FaultCodeName)) + "  ",
              statistic.FaultActive, "  count " + std::to_string(statistic.OccurenceCnt));
}

std::string Follower::escaped(std::string const& text) const
{
    return escape(text, m_output.terminal().isAsciiOnly());
}

void Follower::printLine(std::string const& text, faultStatus_t status, std::string const& rest)
{
    TextTable::Cell const word = statusCell(status);
    Terminal const& terminal = m_output.terminal();
    auto const width = static_cast<std::size_t>(terminal.width);
    std::size_t const used = displayWidth(text) + displayWidth(word.text);
    if (terminal.isTerminal && used + 2 > width)
    {
        m_output.writeLine(shortened(text + word.text, width, ellipsisFor(terminal)));
        return;
    }
    m_output.writeLine(text + styled(word.text, word.style, terminal) +
                       (terminal.isTerminal ? shortened(rest, width - used, ellipsisFor(terminal)) : rest));
}

int watch(Options const& options, Output& output)
{
    try
    {
        Follower follower(options, output);
        while (true)
        {
            follower.poll();
            follower.wait();
            interrupt::throwIfPending();
        }
    }
    catch (interrupt::Interrupted const&)
    {
        // An interrupt is its normal end.
    }
    return STATUS_DONE;
}

} // namespace

void addWatch(CommandLine& line, Request& request)
{
    Command command =
        line.add("watch", "Follow new faults and statistics until interrupted", "  firaim watch faults.db --last 10");
    auto const options = std::make_shared<Options>();
    addFile(command, options->path);
    command.number("--last", options->last, "Begin with the newest N existing faults");
    addTimeStyle(command, options->style);
    addJson(command, options->isJson);
    runWith(command, request, options, watch);
}

} // namespace tool
