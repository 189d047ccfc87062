#pragma once

#include <string>
#include <vector>

#include <sys/types.h>

/// A program that runs beside this one.
class ChildProcess
{
public:
    /// Starts the program. Standard input and output are the files of these names; an empty name means /dev/null.
    ChildProcess(std::string const& program, std::vector<std::string> const& arguments, std::string const& input = "",
                 std::string const& output = "");
    /// Waits until the program has ended.
    ~ChildProcess();
    ChildProcess(ChildProcess&& other) noexcept;
    ChildProcess(ChildProcess const&) = delete;
    ChildProcess& operator=(ChildProcess const&) = delete;

    bool isRunning();
    /// Waits until the program has ended; returns true when it succeeded.
    bool wait();

    // Known once the program has been waited for.
    int exitStatus() const { return m_exitStatus; } ///< -1 if it ended by a signal
    double processorSeconds() const { return m_processorSeconds; }
    long peakMemory() const { return m_peakMemory; } ///< in KiB

private:
    std::string m_program;
    pid_t m_pid = -1; ///< -1 once it has been waited for
    int m_exitStatus = -1;
    double m_processorSeconds = 0;
    long m_peakMemory = 0;
};
