// Runs a program and prints its cost: CPU time and wall time in milliseconds, wall time to the first byte of standard
// output in milliseconds, and peak memory in KiB.
//
//   command_use PROGRAM ARGUMENT...

#include <array>
#include <chrono>
#include <cstdio>
#include <system_error>

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

using std::chrono::steady_clock;

double millisecondsSince(steady_clock::time_point begin)
{
    return std::chrono::duration<double, std::milli>(steady_clock::now() - begin).count();
}

double milliseconds(timeval const& time)
{
    return 1e3 * static_cast<double>(time.tv_sec) + 1e-3 * static_cast<double>(time.tv_usec);
}

void require(bool isDone, char const* what)
{
    if (!isDone)
    {
        throw std::system_error(errno, std::generic_category(), what);
    }
}

int measure(char** command)
{
    int ends[2];
    require(pipe(ends) == 0, "pipe");
    auto const begin = steady_clock::now();
    pid_t const pid = fork();
    require(pid >= 0, "fork");
    if (pid == 0)
    {
        dup2(ends[1], STDOUT_FILENO);
        close(ends[0]);
        close(ends[1]);
        execvp(command[0], command);
        _exit(127);
    }
    close(ends[1]);
    std::array<char, 1 << 16> buffer;
    double first = 0;
    while (read(ends[0], buffer.data(), buffer.size()) > 0)
    {
        first = first == 0 ? millisecondsSince(begin) : first;
    }
    rusage use = {};
    int status = 0;
    require(wait4(pid, &status, 0, &use) == pid, "wait4");
    std::printf("%.0f %.0f %.1f %ld\n", milliseconds(use.ru_utime) + milliseconds(use.ru_stime),
                millisecondsSince(begin), first, use.ru_maxrss);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 2)
    {
        std::fputs("usage: command_use PROGRAM ARGUMENT...\n", stderr);
        return 2;
    }
    return measure(argv + 1);
}
