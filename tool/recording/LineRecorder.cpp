#include <tool/recording/LineRecorder.h>

#include <tool/files/Failures.h>
#include <tool/process/Interrupt.h>
#include <tool/process/Problem.h>
#include <tool/values/Text.h>

#include <algorithm>
#include <iterator>
#include <stdexcept>
#include <utility>

namespace tool
{

namespace
{

using SteadyClock = std::chrono::steady_clock;

/// In effect no busy timeout: only a signal ends the wait.
constexpr std::chrono::hours kNoTimeout(24 * 365);
constexpr std::size_t kLongestLine = 16 << 20;
/// Limits of a batch, which is one transaction of some ten milliseconds.
constexpr std::size_t kMostLines = 1000;
constexpr std::size_t kMostBytes = 1 << 19;
/// Pause after so much time of writing, so that other processes can write.
constexpr std::chrono::milliseconds kWorkBetweenPauses(20);
/// Longer than a waiting writer sleeps between two tries, so that one of them finds the file unlocked.
constexpr int kPauseMs = 8;

std::string lineRangeText(unsigned long long first, unsigned long long last)
{
    return first == last ? "line " + std::to_string(first)
                         : "lines " + std::to_string(first) + " to " + std::to_string(last);
}

} // namespace

LineRecorder::LineRecorder(std::string const& path, TimeStyle const& style, LineParser parse, Output& output)
    : m_path(path), m_style(style), m_parse(parse), m_output(output), m_completer(path, style, kNoTimeout),
      m_input(kLongestLine), m_progress("recording"), m_inputSize(m_input.totalBytes())
{
}

bool LineRecorder::run()
{
    try
    {
        openRecorder(m_recorder, m_path, recorderOptions(m_style), kNoTimeout);
        m_isOpen = true;
        recordLines();
    }
    catch (...)
    {
        reportUnrecordedLines();
        throw;
    }
    return m_areAllRecorded;
}

void LineRecorder::recordLines()
{
    while (readLine())
    {
        if (m_progress.isVisible())
        {
            showProgress();
        }
        if (m_events.size() >= kMostLines || m_bytes >= kMostBytes)
        {
            recordBatch();
        }
    }
    recordBatch();
}

/// Takes the next line; returns whether there was one.
bool LineRecorder::readLine()
{
    while (!m_input.hasLine())
    {
        recordBatch();
        m_input.fill();
    }
    interrupt::throwIfPending();
    std::string line;
    bool isTooLong = false;
    if (!m_input.take(line, isTooLong))
    {
        return false;
    }
    ++m_lineNumber;
    if (isTooLong)
    {
        refuse(m_lineNumber, "longer than " + std::to_string(kLongestLine >> 20) + " MiB");
    }
    else if (line.find_first_not_of(" \t\r") != std::string::npos)
    {
        take(line);
    }
    return true;
}

void LineRecorder::take(std::string const& line)
{
    try
    {
        firaim::FaultEvent event = m_completer.complete(m_parse(line, m_style));
        m_completer.warnOfSeveralStatistics(event.code);
        m_events.push_back(std::move(event));
        m_lines.push_back(m_lineNumber);
        m_bytes += line.size();
    }
    catch (std::invalid_argument const& problem)
    {
        refuse(m_lineNumber, problem.what());
    }
}

void LineRecorder::refuse(unsigned long long line, std::string const& reason)
{
    m_progress.clear();
    printMessage("line " + std::to_string(line) + ": " + reason);
    m_areAllRecorded = false;
}

/// Records the batch and reports the result of each line.
void LineRecorder::recordBatch()
{
    while (!m_events.empty())
    {
        interrupt::throwIfPending();
        std::vector<firaim::Receipt> receipts;
        auto const begin = SteadyClock::now();
        // Each receipt holds the result of its line.
        static_cast<void>(m_recorder.recordAll(m_events, receipts));
        auto const writingTime = SteadyClock::now() - begin;
        m_progress.clear();
        reportBatch(receipts);
        yieldToOthers(writingTime);
    }
}

/// Reports the lines that were recorded or refused. Those that were not recorded because the file is busy stay in the
/// batch; after any other failure of the file, throws a Problem.
void LineRecorder::reportBatch(std::vector<firaim::Receipt> const& receipts)
{
    std::string const problem = m_recorder.lastProblem(); // The problem of the last line that failed.
    // A failure of the file affects all lines from some line on. A failed line before it was refused for its content.
    std::size_t decided = receipts.size();
    while (decided > 0 && receipts[decided - 1].result != firaim::HISTORY_OK &&
           receipts[decided - 1].result != firaim::HISTORY_REFUSED)
    {
        --decided;
    }
    std::vector<firaim::Receipt> done(receipts.begin(), receipts.begin() + static_cast<std::ptrdiff_t>(decided));
    auto const eventsEnd = m_events.begin() + static_cast<std::ptrdiff_t>(decided);
    std::vector<firaim::FaultEvent> const events(std::make_move_iterator(m_events.begin()),
                                                 std::make_move_iterator(eventsEnd));
    m_events.erase(m_events.begin(), eventsEnd);
    auto const linesEnd = m_lines.begin() + static_cast<std::ptrdiff_t>(decided);
    std::vector<unsigned long long> const lines(m_lines.begin(), linesEnd);
    m_lines.erase(m_lines.begin(), linesEnd);
    for (std::size_t i = 0; i < decided; ++i)
    {
        if (done[i].result != firaim::HISTORY_OK)
        {
            done[i] = recordAlone(lines[i], events[i]);
        }
    }
    int const result = decided < receipts.size() ? receipts[decided].result : static_cast<int>(firaim::HISTORY_OK);
    if (result == firaim::HISTORY_UNKNOWN)
    {
        printMessage(lineRangeText(m_lines.front(), m_lines.back()) +
                     ": not known whether recorded; look into the file before recording again");
        m_events.clear();
        m_lines.clear();
    }
    printKeys(done);
    if (result < 0 && result != firaim::HISTORY_BUSY)
    {
        throwFailure(result, problem);
    }
    if (m_events.empty())
    {
        m_bytes = 0;
    }
}

/// Records a line again that was refused in a batch: alone, it gets its own reason.
firaim::Receipt LineRecorder::recordAlone(unsigned long long line, firaim::FaultEvent const& event)
{
    firaim::Receipt receipt;
    do
    {
        receipt = m_recorder.record(event);
    } while (receipt.result == firaim::HISTORY_BUSY);
    if (receipt.result != firaim::HISTORY_OK)
    {
        refuse(line, m_recorder.lastProblem());
    }
    return receipt;
}

/// Prints the keys of the recorded faults.
void LineRecorder::printKeys(std::vector<firaim::Receipt> const& receipts)
{
    unsigned long long last = 0;
    for (firaim::Receipt const& receipt : receipts)
    {
        if (receipt.result == firaim::HISTORY_OK)
        {
            last = receipt.key;
            m_output.writeLine(std::to_string(last));
        }
    }
    try
    {
        m_output.flush();
    }
    catch (...)
    {
        printMessage("faults up to key " + std::to_string(last) + " were recorded all the same");
        throw;
    }
}

/// Pauses now and then: processes that wait for the file try only at intervals, and would hardly ever find it unlocked.
void LineRecorder::yieldToOthers(SteadyClock::duration writingTime)
{
    m_writingTime += writingTime;
    if (m_writingTime >= kWorkBetweenPauses)
    {
        interrupt::pause(kPauseMs);
        m_writingTime = {};
    }
}

void LineRecorder::showProgress()
{
    if (m_inputSize == 0)
    {
        m_progress.show(counted(m_lineNumber, "line"));
    }
    else
    {
        m_progress.show(static_cast<double>(m_input.takenBytes()) / static_cast<double>(m_inputSize));
    }
}

/// Reports the lines that are not recorded because of an early end.
void LineRecorder::reportUnrecordedLines()
{
    bool hasMore = !m_lines.empty();
    try
    {
        // The file may fail to open before any input was read, so more lines may come.
        hasMore = hasMore || m_input.hasMore() || (!m_isOpen && !m_input.isAtEnd());
    }
    catch (...)
    {
        hasMore = true; // Lines that cannot be read are not recorded either.
    }
    if (hasMore)
    {
        printMessage("line " + std::to_string(m_lines.empty() ? m_lineNumber + 1 : m_lines.front()) +
                     " and all after it: not recorded");
    }
}

} // namespace tool
