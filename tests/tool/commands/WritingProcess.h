#pragma once

#include "ToolProcess.h"

#include <atomic>
#include <string>
#include <thread>

/// Records faults one by one through the program until `stop`. Expects that none is refused.
class WritingProcess
{
public:
    explicit WritingProcess(std::string const& path)
        : m_process({"record", path, "--stdin"}, {}, true), m_thread([this] { run(); })
    {
    }
    ~WritingProcess() { stop(); }
    WritingProcess(WritingProcess const&) = delete;
    WritingProcess& operator=(WritingProcess const&) = delete;

    /// Stops recording and returns the number of recorded faults.
    int stop()
    {
        m_isStopping = true;
        if (m_thread.joinable())
        {
            m_thread.join();
        }
        return m_recorded;
    }

private:
    void run()
    {
        while (!m_isStopping)
        {
            m_process.write("{\"FaultCode\":1025,\"Description\":\"beside\"}\n");
            m_recorded += m_process.readLine() ? 1 : 0;
        }
        m_process.closeInput();
        EXPECT_EQ(m_process.finish(), 0);
        EXPECT_EQ(m_process.errors, "");
    }

    ToolProcess m_process;
    std::atomic<bool> m_isStopping{false};
    int m_recorded = 0;
    std::thread m_thread;
};
