#pragma once

#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>

/// A program that runs beside the test, its standard input and output held as pipes. It is killed and waited for when
/// the object goes.
class ChildProcess
{
public:
    /// `arguments` begin with the path of the program.
    explicit ChildProcess(std::vector<std::string> arguments);
    ~ChildProcess();
    ChildProcess(ChildProcess const&) = delete;
    ChildProcess& operator=(ChildProcess const&) = delete;

    /// The next whole line that the program writes, without its end; none when it has ended or, with a limit, when the
    /// time is over.
    std::optional<std::string> readLine();
    std::optional<std::string> readLine(long long timeoutUs);

    /// Tells the program that there is nothing more to read.
    void closeInput();
    void kill();
    /// The status as of waitpid.
    int wait();

private:
    bool fill(long long timeoutUs);
    std::optional<std::string> takeLine();

    pid_t m_pid = -1;
    int m_input = -1;
    int m_output = -1;
    std::string m_buffer;
};
