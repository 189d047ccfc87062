#pragma once

#include <tool/process/LineReader.h>
#include <tool/store/FaultRequest.h>
#include <tool/terminal/Output.h>
#include <tool/terminal/Progress.h>

#include <history/FaultRecorder.h>

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

namespace tool
{

/// Records the faults of the lines on standard input, many in one transaction, and never waits for input inside of one.
/// Others who want to write get their turn, and it waits for them for as long as it takes.
class LineRecorder
{
public:
    /// Reads the fault in one line. Throws std::invalid_argument with the reason when there is none.
    using LineParser = FaultRequest (*)(std::string const& line, TimeStyle const& style);

    /// Opens nothing yet.
    LineRecorder(std::string const& path, TimeStyle const& style, LineParser parse, Output& output);

    /// Opens the file, prints the keys of the lines that were recorded, and says on standard error which ones were not.
    /// Returns whether all were. When it ends early, by whatever it throws, that is said of the rest of the lines as
    /// well.
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
    void letOthersIn(std::chrono::steady_clock::duration atWork);
    void showProgress();
    void nameRest();

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
    std::vector<unsigned long long> m_lines; ///< of these
    std::size_t m_bytes = 0;                 ///< of these lines, about
    unsigned long long m_lineNumber = 0;
    std::chrono::steady_clock::duration m_atWork{}; ///< since others last got their turn
    bool m_isOpen = false;
    bool m_areAllRecorded = true;
};

} // namespace tool
