#pragma once

#include "TestSupport.h"

#include <map>
#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>

/// How the program is started.
struct Setting
{
    std::string input; ///< on standard input, which ends after it
    std::map<std::string, std::string> environment;
    int outputColumns = 0;         ///< standard output is a terminal of that width; 0: a pipe
    int errorColumns = 0;          ///< the same for standard error
    unsigned long longestFile = 0; ///< in bytes; no file can be written beyond that; 0: as long as it likes
};

/// The program beside the test. It is killed and waited for when the object goes.
class ToolProcess
{
public:
    explicit ToolProcess(std::vector<std::string> arguments, Setting const& setting = {}, bool keepsInputOpen = false);
    ~ToolProcess();
    ToolProcess(ToolProcess const&) = delete;
    ToolProcess& operator=(ToolProcess const&) = delete;

    /// The next line of standard output, without its end; none when there is no more. Waits for it.
    std::optional<std::string> readLine();
    /// Sends something to standard input.
    void write(std::string const& text);
    void closeInput();
    /// Closes standard output, as a reader does that has enough.
    void closeOutput();
    void signal(int number) const;
    pid_t pid() const { return m_pid; }

    /// Waits for the program without reading what it writes; returns as `finish` does.
    int wait();
    /// Reads both outputs to their ends and waits for the program; returns its exit status, or 128 and the number of
    /// the signal that ended it.
    int finish();

    std::string output; ///< what was read of standard output, but for the lines taken
    std::string errors;
    long peakMemory = 0; ///< in KiB, once it has ended

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

/// Runs the program to its end.
Outcome runTool(std::vector<std::string> const& arguments, Setting const& setting = {});

/// A folder with a name for a database in it, and the program.
class ToolTest : public testing::Test
{
protected:
    /// Runs the program and expects it to succeed without a word on standard error; returns what it printed.
    std::string output(std::vector<std::string> const& arguments, Setting const& setting = {});
    /// Creates the database.
    void create();
    /// Creates the database with three faults of two codes and their statistics, the same in every run.
    void createSample();
    /// Adds a row to the fault table; the other columns are as in the sample.
    void insertFault(std::string const& columns, std::string const& values);
    /// Adds as many faults, which are all the same, to the fault table.
    void insertFaults(int count);
    /// The one cell of a query.
    std::string value(std::string const& sql);

    TempDir dir;
    std::string const path = dir.file("faults.db");
};
