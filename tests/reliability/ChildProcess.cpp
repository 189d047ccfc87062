#include "ChildProcess.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <stdexcept>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

constexpr long long kNoTimeout = -1;

/// A pipe, read end first. Other programs do not inherit it.
std::array<int, 2> makePipe()
{
    std::array<int, 2> ends;
    if (pipe2(ends.data(), O_CLOEXEC) != 0)
    {
        throw std::runtime_error("no pipe");
    }
    return ends;
}

} // namespace

ChildProcess::ChildProcess(std::vector<std::string> arguments)
{
    auto const input = makePipe();
    auto const output = makePipe();
    std::vector<char*> argv;
    for (std::string& argument : arguments)
    {
        argv.push_back(argument.data());
    }
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, input[0], STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, output[1], STDOUT_FILENO);
    int const error = posix_spawn(&m_pid, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    ::close(input[0]);
    ::close(output[1]);
    m_input = input[1];
    m_output = output[0];
    if (error != 0)
    {
        throw std::runtime_error("cannot start " + arguments.front());
    }
}

ChildProcess::~ChildProcess()
{
    closeInput();
    if (m_pid > 0)
    {
        kill();
        wait();
    }
    ::close(m_output);
}

void ChildProcess::send(std::string const& text)
{
    static_cast<void>(write(m_input, text.data(), text.size()) > 0); // The end of its output tells that it has ended.
}

void ChildProcess::closeInput()
{
    if (m_input >= 0)
    {
        ::close(m_input);
        m_input = -1;
    }
}

void ChildProcess::kill()
{
    ::kill(m_pid, SIGKILL);
}

bool ChildProcess::hasEnded() const
{
    siginfo_t information = {};
    bool const isKnown = waitid(P_PID, static_cast<id_t>(m_pid), &information, WEXITED | WNOHANG | WNOWAIT) == 0;
    return isKnown && information.si_pid == m_pid;
}

int ChildProcess::wait()
{
    int status = -1;
    while (waitpid(m_pid, &status, 0) < 0 && errno == EINTR)
    {
    }
    m_pid = -1;
    return status;
}

std::optional<std::string> ChildProcess::readLine()
{
    return readLine(kNoTimeout);
}

std::optional<std::string> ChildProcess::readLine(long long timeoutUs)
{
    std::optional<std::string> line = takeLine();
    while (!line && fill(timeoutUs))
    {
        line = takeLine();
    }
    return line;
}

std::optional<std::string> ChildProcess::takeLine()
{
    std::size_t const end = m_buffer.find('\n');
    if (end == std::string::npos)
    {
        return std::nullopt;
    }
    std::string line = m_buffer.substr(0, end);
    m_buffer.erase(0, end + 1);
    return line;
}

/// Waits for more output and reads it; returns false at the end of the output or after the timeout.
bool ChildProcess::fill(long long timeoutUs)
{
    pollfd descriptor = {m_output, POLLIN, 0};
    timespec const timeout = {static_cast<time_t>(timeoutUs / 1000000), static_cast<long>(timeoutUs % 1000000 * 1000)};
    if (ppoll(&descriptor, 1, timeoutUs == kNoTimeout ? nullptr : &timeout, nullptr) <= 0)
    {
        return false;
    }
    std::array<char, 4096> bytes;
    ssize_t const size = read(m_output, bytes.data(), bytes.size());
    if (size <= 0)
    {
        return false;
    }
    m_buffer.append(bytes.data(), static_cast<std::size_t>(size));
    return true;
}
