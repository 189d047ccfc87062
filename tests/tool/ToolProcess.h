#pragma once

#include "TestSupport.h"

#include <map>
#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>

/// Input, environment and limits of the program.
struct Setting
{
    std::string input; ///< content of standard input
    std::map<std::string, std::string> environment;
    int outputColumns = 0;         ///< standard output is a terminal with this number of columns; 0: a pipe
    int errorColumns = 0;          ///< the same for standard error
    std::string preloaded;         ///< a module to load into the program before its libraries
    unsigned long longestFile = 0; ///< limit of the size of files, in bytes; 0: no limit
};

/// The program `firaim` as a child process. The destructor kills and reaps it.
class ToolProcess
{
public:
    explicit ToolProcess(std::vector<std::string> arguments, Setting const& setting = {}, bool keepsInputOpen = false);
    ~ToolProcess();
    ToolProcess(ToolProcess const&) = delete;
    ToolProcess& operator=(ToolProcess const&) = delete;

    /// Waits for the next line of standard output and returns it without its newline; none at the end.
    std::optional<std::string> readLine();
    /// Writes `text` to standard input.
    void write(std::string const& text);
    void closeInput();
    /// Closes the read end of standard output, like a reader that stops early.
    void closeOutput();
    void signal(int number) const;
    pid_t pid() const { return m_pid; }

    /// Waits for the program without reading its output; returns the same value as `finish`.
    int wait();
    /// Reads both outputs to their ends and waits for the program. Returns its exit status, or 128 plus the number of
    /// the signal that ended it.
    int finish();

    std::string output; ///< standard output, except the lines that `readLine` returned
    std::string errors;
    long peakMemory = 0; ///< in KiB, set when the program has ended

private:
    bool readMore();

    pid_t m_pid = -1;
    int m_input = -1;
    int m_output = -1;
    int m_error = -1;
    std::optional<int> m_status;
};

struct Outcome
{
    int status;
    std::string output;
    std::string errors;
};

/// Runs the program until it ends.
Outcome runTool(std::vector<std::string> const& arguments, Setting const& setting = {});

/// Functions that run the program, and a path for a database in a temporary folder.
class ToolTest : public testing::Test
{
protected:
    /// Runs the program, expects success and nothing on standard error, and returns its standard output.
    std::string output(std::vector<std::string> const& arguments, Setting const& setting = {});
    /// Creates the database.
    void create();
    /// Creates the database with three faults of two codes and their statistics, the same in every run.
    void createSample();
    /// Adds a row to the fault table; the other columns are as in the sample.
    void insertFault(std::string const& columns, std::string const& values);
    /// Adds `count` equal faults to the fault table.
    void insertFaults(int count);
    /// Copies the file and its journal in the middle of a large transaction, as a power cut would leave them. Returns
    /// the path of the copy.
    std::string makeHotJournal();
    /// The cell of a query whose result is one cell.
    std::string value(std::string const& sql);

    TempDir dir;
    std::string const path = dir.file("faults.db");
};
