#include "ChildProcess.h"

#include "Files.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

constexpr char kNothing[] = "/dev/null";

char const* orNothing(std::string const& path)
{
    return path.empty() ? kNothing : path.c_str();
}

double seconds(timeval const& time)
{
    return static_cast<double>(time.tv_sec) + 1e-6 * static_cast<double>(time.tv_usec);
}

} // namespace

ChildProcess::ChildProcess(std::string const& program, std::vector<std::string> const& arguments,
                           std::string const& input, std::string const& output)
    : m_program(program)
{
    std::vector<std::string> words = arguments;
    std::vector<char*> argv = {m_program.data()};
    for (std::string& word : words)
    {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, orNothing(input), O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, orNothing(output), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    int const result = posix_spawnp(&m_pid, m_program.c_str(), &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    require(result == 0, m_program.c_str());
}

ChildProcess::ChildProcess(ChildProcess&& other) noexcept : m_program(std::move(other.m_program)), m_pid(other.m_pid)
{
    other.m_pid = -1;
}

ChildProcess::~ChildProcess()
{
    if (m_pid != -1)
    {
        static_cast<void>(waitpid(m_pid, nullptr, 0)); // Only reaps the child; its exit status is not needed.
    }
}

bool ChildProcess::isRunning()
{
    siginfo_t info = {};
    return m_pid != -1 && waitid(P_PID, static_cast<id_t>(m_pid), &info, WEXITED | WNOHANG | WNOWAIT) == 0 &&
           info.si_pid == 0;
}

bool ChildProcess::wait()
{
    int status = 1;
    rusage use = {};
    require(wait4(m_pid, &status, 0, &use) == m_pid, m_program.c_str());
    m_pid = -1;
    m_exitStatus = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    m_processorSeconds = seconds(use.ru_utime) + seconds(use.ru_stime);
    m_peakMemory = use.ru_maxrss;
    return m_exitStatus == 0;
}
