#pragma once

#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>

/// A child process whose standard input and output are pipes to the test. The destructor kills and reaps it.
class ChildProcess
{
public:
    /// The first argument is the path of the program.
    explicit ChildProcess(std::vector<std::string> arguments);
    ~ChildProcess();
    ChildProcess(ChildProcess const&) = delete;
    ChildProcess& operator=(ChildProcess const&) = delete;

    /// Reads the next line, without its newline; returns none after the last line or after the timeout.
    std::optional<std::string> readLine();
    std::optional<std::string> readLine(long long timeoutUs);

    pid_t pid() const { return m_pid; }
    /// Writes to the program's standard input; ignores a program that has ended, if the caller ignores SIGPIPE.
    void send(std::string const& text);
    /// Closes the program's standard input.
    void closeInput();
    void kill();
    /// Whether the program has ended; `wait` is still to be called.
    bool hasEnded() const;
    /// Waits until the program has ended and returns the status from waitpid.
    int wait();

private:
    bool fill(long long timeoutUs);
    std::optional<std::string> takeLine();

    pid_t m_pid = -1;
    int m_input = -1;
    int m_output = -1;
    std::string m_buffer;
};
