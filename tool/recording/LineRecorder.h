#pragma once

#include <tool/process/LineReader.h>
#include <tool/recording/FaultRequest.h>
#include <tool/terminal/Output.h>
#include <tool/terminal/Progress.h>

#include <history/FaultRecorder.h>

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

namespace tool
{

/// Records the faults in the lines of standard input, many in one transaction, and never waits for input inside of one.
/// It lets other processes write in between, and waits for them without a timeout.
class LineRecorder
{
public:
    /// Parses the fault in one line. Throws std::invalid_argument with the reason when the line is not a fault.
    using LineParser = FaultRequest (*)(std::string const& line, TimeStyle const& style);

    /// Does not open the file yet.
    LineRecorder(std::string const& path, TimeStyle const& style, LineParser parse, Output& output);

    /// Opens the file, records the lines and prints the keys of their faults. Reports on standard error the lines that
    /// were not recorded; if it throws, these include all remaining lines. Returns whether all were recorded.
    bool run();

private:
    void recordLines();
    bool readLine();
    void take(std::string const& line);
    void recordBatch();
    void reportBatch(std::vector<firaim::Receipt> const& receipts);
    firaim::Receipt recordAlone(unsigned long long line, firaim::FaultEvent const& event);
    void printKeys(std::vector<firaim::Receipt> const& receipts);
    void refuse(unsigned long long line, std::string const& reason);
    void yieldToOthers(std::chrono::steady_clock::duration writingTime);
    void showProgress();
    void reportUnrecordedLines();

    std::string const m_path;
    TimeStyle const m_style;
    LineParser const m_parse;
    Output& m_output;
    FaultCompleter m_completer;
    firaim::FaultRecorder m_recorder;
    LineReader m_input;
    Progress m_progress;
    std::size_t const m_inputSize; ///< 0: not known
    std::vector<firaim::FaultEvent> m_events;
    std::vector<unsigned long long> m_lines; ///< the line numbers of `m_events`
    std::size_t m_bytes = 0;                 ///< of these lines, about
    unsigned long long m_lineNumber = 0;
    std::chrono::steady_clock::duration m_writingTime{}; ///< time spent on writing since the last pause
    bool m_isOpen = false;
    bool m_areAllRecorded = true;
};

} // namespace tool
