#pragma once

#include "Fixtures.h"

#include <fdb/FaultDb.h>
#include <history/FaultRecorder.h>

#include <gmock/gmock.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include <sys/wait.h>
#include <unistd.h>

/// An event with all members set that the recorder would take from the clock.
inline firaim::FaultEvent eventOf(std::uint64_t code, std::string module = "module",
                                  std::string parameter = "parameter", faultStatus_t status = FAULT_ACTIVE)
{
    firaim::FaultEvent event;
    event.code = code;
    event.status = status;
    event.module = std::move(module);
    event.parameter = std::move(parameter);
    event.time = 1'772'366'400'000;
    event.upTime = 10;
    event.systemTimeText = "2026-03-01T12:00:00.000Z";
    return event;
}

/// A signal from one process to another, through a pipe.
class Signal
{
public:
    Signal() { EXPECT_EQ(pipe(m_ends), 0); }
    ~Signal()
    {
        close(m_ends[0]);
        close(m_ends[1]);
    }
    Signal(Signal const&) = delete;
    Signal& operator=(Signal const&) = delete;

    void give(char byte = '+') const { EXPECT_EQ(write(m_ends[1], &byte, 1), 1); }
    char wait() const
    {
        char byte = 0;
        EXPECT_EQ(read(m_ends[0], &byte, 1), 1);
        return byte;
    }

private:
    int m_ends[2] = {-1, -1};
};

/// Runs `body` in a child process, which exits with 0 if all expectations hold. Returns the child's process id.
template <class Body>
pid_t startChild(Body const& body)
{
    std::fflush(nullptr); // Otherwise both processes would write the buffered output.
    pid_t const child = fork();
    if (child == 0)
    {
        body();
        std::fflush(nullptr);
        _exit(testing::Test::HasFailure() ? 1 : 0);
    }
    return child;
}

inline void expectSuccess(pid_t child)
{
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0) << "an expectation of the other process failed";
}

/// A path for a file, and a recorder that is not open yet.
class FaultRecorderTest : public testing::Test
{
protected:
    using Rows = std::vector<RawDb::Row>;

    static constexpr char kStatistics[] = "SELECT * FROM FdbFaultStatisticTbl ORDER BY EntryId";
    static constexpr char kFaults[] = "SELECT * FROM FdbFaultTbl ORDER BY EntryId";
    static constexpr char kCountOfFaults[] = "SELECT count(*) FROM FdbFaultTbl";

    /// New files have the journal of the test program's environment.
    void open(firaim::RecorderOptions options = {})
    {
        if (std::getenv("FIRAIM_TEST_WRITE_AHEAD_LOG") != nullptr)
        {
            options.journal = firaim::RecorderOptions::WRITE_AHEAD_LOG;
        }
        ASSERT_EQ(recorder.open(path, options), firaim::HISTORY_OK) << recorder.lastProblem();
    }

    /// Creates the file with the facade and closes it.
    void createWithFacade() const
    {
        Console const console;
        ASSERT_EQ(FaultDb::getInstance()->createDb(path, false), RESULT_OK);
    }

    Rows rows(std::string const& query) const { return RawDb(path).rows(query); }
    std::string value(std::string const& query) const { return RawDb(path).value(query); }
    void exec(std::string const& statement) const { RawDb(path).exec(statement); }

    /// A cell of the first statistic of a code.
    std::string statistic(std::uint64_t code, std::string const& column) const
    {
        return value("SELECT " + column + " FROM FdbFaultStatisticTbl WHERE FaultCode = " + std::to_string(code) +
                     " ORDER BY EntryId LIMIT 1");
    }

    TempDir dir;
    std::string const path = dir.file("faults.db");
    firaim::FaultRecorder recorder;
};

/// Writes through the facade, like an application beside the recorder.
class Facade
{
public:
    explicit Facade(std::string const& path) { EXPECT_EQ(m_db->openDb(path, false), RESULT_OK); }
    ~Facade() { EXPECT_EQ(m_db->closeDb(), RESULT_OK); }
    Facade(Facade const&) = delete;
    Facade& operator=(Facade const&) = delete;

    FaultDb* operator->() const { return m_db; }

private:
    Console m_console;
    FaultDb* m_db = FaultDb::getInstance();
};
