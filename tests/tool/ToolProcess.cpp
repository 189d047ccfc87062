#include "ToolProcess.h"

#include "StandardStreams.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <stdexcept>

#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

void preload(std::string const& module)
{
    if (module.empty())
    {
        return;
    }
#ifdef FIRAIM_TEST_IS_EMULATED
    setenv("QEMU_SET_ENV", ("LD_PRELOAD=" + module).c_str(), 1); // Not into the emulator.
#else
    setenv("LD_PRELOAD", module.c_str(), 1);
#endif
}

void exitIfFailed(int result)
{
    if (result != 0)
    {
        _exit(126);
    }
}

void closeIfOpen(int& descriptor)
{
    if (descriptor >= 0)
    {
        close(descriptor);
        descriptor = -1;
    }
}

} // namespace

ToolProcess::ToolProcess(std::vector<std::string> arguments, Setting const& setting, bool keepsInputOpen)
{
    int input[2];
    EXPECT_EQ(pipe2(input, O_CLOEXEC), 0);
    Stream const out = makeStream(setting.outputColumns);
    Stream const err = makeStream(setting.errorColumns);
    arguments.insert(arguments.begin(), FIRAIM_TEST_TOOL);
    std::vector<char*> argv;
    for (std::string& argument : arguments)
    {
        argv.push_back(argument.data());
    }
    argv.push_back(nullptr);
    m_pid = fork();
    if (m_pid == 0)
    {
        dup2(input[0], STDIN_FILENO);
        dup2(out.writeEnd, STDOUT_FILENO);
        dup2(err.writeEnd, STDERR_FILENO);
        useTestEnvironment(setting.environment);
        preload(setting.preloaded);
        if (setting.longestFile != 0)
        {
            rlimit const limit = {setting.longestFile, setting.longestFile};
            exitIfFailed(setrlimit(RLIMIT_FSIZE, &limit));
        }
        WithoutRoot::findPrograms();
        execv(argv[0], argv.data());
        _exit(127);
    }
    close(input[0]);
    close(out.writeEnd);
    close(err.writeEnd);
    m_input = input[1];
    m_output = out.readEnd;
    m_error = err.readEnd;
    write(setting.input);
    if (!keepsInputOpen)
    {
        closeInput();
    }
}

ToolProcess::~ToolProcess()
{
    if (!m_status)
    {
        signal(SIGKILL);
        waitpid(m_pid, nullptr, 0);
    }
    closeIfOpen(m_input);
    closeIfOpen(m_output);
    closeIfOpen(m_error);
}

void ToolProcess::write(std::string const& text)
{
    // Read the outputs meanwhile, as otherwise the program could block before it has read all input.
    std::string_view left = text;
    while (!left.empty())
    {
        std::array<pollfd, 3> waited = {pollfd{m_input, POLLOUT, 0}, pollfd{m_output, POLLIN, 0},
                                        pollfd{m_error, POLLIN, 0}};
        poll(waited.data(), waited.size(), -1);
        if ((waited[0].revents & POLLOUT) != 0)
        {
            ssize_t const size = ::write(m_input, left.data(), std::min<std::size_t>(left.size(), PIPE_BUF));
            ASSERT_GT(size, 0) << std::strerror(errno);
            left.remove_prefix(static_cast<std::size_t>(size));
        }
        else if (!readMore())
        {
            return;
        }
    }
}

void ToolProcess::closeInput()
{
    closeIfOpen(m_input);
}

void ToolProcess::closeOutput()
{
    closeIfOpen(m_output);
}

void ToolProcess::signal(int number) const
{
    kill(m_pid, number);
}

/// Waits for data on either output and reads it. Returns false when both have ended.
bool ToolProcess::readMore()
{
    std::array<pollfd, 2> waited = {pollfd{m_output, POLLIN, 0}, pollfd{m_error, POLLIN, 0}};
    if (m_output < 0 && m_error < 0)
    {
        return false;
    }
    poll(waited.data(), waited.size(), -1);
    std::array<char, 65536> buffer;
    for (bool const isError : {false, true})
    {
        if (waited[isError].revents == 0)
        {
            continue;
        }
        int& descriptor = isError ? m_error : m_output;
        ssize_t const size = read(descriptor, buffer.data(), buffer.size());
        if (size > 0)
        {
            (isError ? errors : output).append(buffer.data(), static_cast<std::size_t>(size));
        }
        else
        {
            closeIfOpen(descriptor); // A terminal without a program gives an error, not its end.
        }
    }
    return true;
}

std::optional<std::string> ToolProcess::readLine()
{
    std::size_t end = output.find('\n');
    while (end == std::string::npos)
    {
        if (m_output < 0 || !readMore())
        {
            return std::nullopt;
        }
        end = output.find('\n');
    }
    std::string line = output.substr(0, end);
    output.erase(0, end + 1);
    return line;
}

int ToolProcess::finish()
{
    while (readMore())
    {
    }
    return wait();
}

int ToolProcess::wait()
{
    int status = 0;
    rusage use = {};
    EXPECT_EQ(wait4(m_pid, &status, 0, &use), m_pid);
    peakMemory = use.ru_maxrss;
    m_status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return *m_status;
}

Outcome runTool(std::vector<std::string> const& arguments, Setting const& setting)
{
    ToolProcess process(arguments, setting);
    int const status = process.finish();
    return {status, process.output, process.errors};
}

std::string ToolTest::output(std::vector<std::string> const& arguments, Setting const& setting)
{
    Outcome const outcome = runTool(arguments, setting);
    EXPECT_EQ(outcome.status, 0) << arguments[0];
    EXPECT_EQ(outcome.errors, "") << arguments[0];
    return outcome.output;
}

void ToolTest::create()
{
    output({"create", path});
}

void ToolTest::createSample()
{
    create();
    insertFault("Parameter", "'p1'");
    insertFault("FaultCode,FaultCodeName,Status,RdbStartupId,Description,TimeStampUTC",
                "1285,'FC_SENSOR_TIMEOUT','ErrorInactive',2,'',1935630122000");
    insertFault("TimeStampUTC,RdbStartupId", "1935716521500,2");
    RawDb(path).exec("INSERT INTO FdbFaultStatisticTbl VALUES"
                     "(NULL,1025,'FC_BUS_OFF',1935630121000,1935716521500,'UTC','UTC',2,'active',3,3,2),"
                     "(NULL,1285,'FC_SENSOR_TIMEOUT',1935630122000,1935630122000,'UTC','UTC',1,'inactive',1,2,2)");
}

void ToolTest::insertFault(std::string const& columns, std::string const& values)
{
    RawDb raw(path);
    raw.exec("INSERT INTO FdbFaultTbl VALUES(NULL,'2031-05-04T03:02:01.000Z',1025,'FC_BUS_OFF','can0','',1935630121000,"
             "'UTC','ErrorActive','no answer','',11,12,'',1,'2031-05-04T03:02:01.000Z')");
    raw.exec("UPDATE FdbFaultTbl SET (EntryId," + columns + ") = (EntryId," + values +
             ") WHERE EntryId = last_insert_rowid()");
}

void ToolTest::insertFaults(int count)
{
    RawDb(path).exec("WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < " +
                     std::to_string(count) +
                     ") INSERT INTO FdbFaultTbl SELECT NULL, '', 1025, 'FC_BUS_OFF', 'm', 'p', 1935630121000, 'UTC', "
                     "'ErrorActive', 'some text of some length', '', 1, 2, '', 3, '' FROM n");
}

std::string ToolTest::makeHotJournal()
{
    RawDb raw(path);
    raw.exec("WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 2000) INSERT INTO "
             "FdbFaultTbl(Description) SELECT 'before' FROM n");
    raw.exec("PRAGMA cache_size=5; BEGIN; UPDATE FdbFaultTbl SET Description = 'half done'");
    std::string crashed = dir.file("crashed.db");
    std::filesystem::copy(path, crashed);
    std::filesystem::copy(path + "-journal", crashed + "-journal");
    raw.exec("ROLLBACK");
    EXPECT_NE(readFile(crashed).find("half done"), std::string::npos);
    return crashed;
}

std::string ToolTest::value(std::string const& sql)
{
    return RawDb(path).value(sql);
}
