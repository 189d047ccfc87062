#pragma once

#include <string>
#include <vector>

#include <sys/types.h>

/// A program that runs beside this one.
class ChildProcess
{
public:
    /// Starts it. Standard input and output are the files with these names; an empty one is /dev/null.
    ChildProcess(std::string const& program, std::vector<std::string> const& arguments, std::string const& input = "",
                 std::string const& output = "");
    /// Waits for its end.
    ~ChildProcess();
    ChildProcess(ChildProcess&& other) noexcept;
    ChildProcess(ChildProcess const&) = delete;
    ChildProcess& operator=(ChildProcess const&) = delete;

    bool isRunning();
    /// Waits for its end; returns whether it succeeded.
    bool wait();

private:
    std::string m_program;
    pid_t m_pid = -1; ///< -1 once it has been waited for
};
