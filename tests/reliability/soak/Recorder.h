#pragma once

#include "Ledger.h"
#include "Trace.h"
#include "Use.h"
#include "reliability/ChildProcess.h"

#include <cstdint>
#include <memory>
#include <string>

namespace soak
{

/// The options of one recording process.
struct Recording
{
    std::uint64_t keepNewest = 0;
    unsigned int stormBurst = 0;
    bool isLying = false;
};

/// A recording process, started again and again under the same number.
class Recorder
{
public:
    Recorder(unsigned int worker, std::uint64_t seed, std::string path, Timeline& timeline, Ledger& ledger,
             Trace& trace);

    void start(Recording const& options);
    void kill();
    /// Lets the process end by itself.
    void end();

    /// Asks for a pause; `isPaused` once everything is flushed.
    void pause();
    bool isPaused() const { return m_isPaused; }
    /// During a pause, closes the file until `goOn`.
    void close();
    bool isClosed() const { return m_isClosed; }
    void goOn();

    /// Takes the lines that are there, and waits up to that time for one. Returns whether there was any.
    bool poll(long long timeoutUs);

    /// Whether all calls on the file that was pulled have been taken.
    bool isSettled() const;
    void expectSteadyUse();

    Recording const& options() const { return m_options; }
    unsigned int starts() const { return m_identity.incarnation; }

private:
    void take(std::string const& line);
    void takeCall(std::string const& line);
    void takeOther(std::string const& line);
    std::string name() const { return "recorder " + std::to_string(m_identity.worker); }

    std::uint64_t const m_seed;
    std::string const m_path;
    Timeline& m_timeline;
    Ledger& m_ledger;
    Trace& m_trace;
    Identity m_identity;
    Recording m_options;
    std::unique_ptr<ChildProcess> m_process;
    bool m_isPaused = false;
    bool m_isClosed = false;
    Use m_use;
};

} // namespace soak
