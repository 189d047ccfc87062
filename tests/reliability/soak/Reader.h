#pragma once

#include "Timeline.h"
#include "Trace.h"
#include "Use.h"
#include "reliability/ChildProcess.h"

#include <cstdint>
#include <memory>
#include <string>

namespace soak
{

/// A process that reads the whole file again and again.
class Reader
{
public:
    Reader(std::uint64_t seed, std::string path, Timeline const& timeline, Trace& trace);

    void start();
    void kill();
    bool poll();
    void expectSteadyUse();

    std::uint64_t readings() const { return m_readings; }
    std::uint64_t rows() const { return m_rows; }
    std::uint64_t failures() const { return m_failures; }

private:
    void take(std::string const& line);
    void takeFailure(std::string const& line, Moment begin, Moment end, int result);

    std::uint64_t const m_seed;
    std::string const m_path;
    Timeline const& m_timeline;
    Trace& m_trace;
    std::unique_ptr<ChildProcess> m_process;
    std::uint64_t m_readings = 0;
    std::uint64_t m_rows = 0;
    std::uint64_t m_failures = 0;
    Use m_use;
};

} // namespace soak
