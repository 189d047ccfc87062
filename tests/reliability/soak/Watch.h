#pragma once

#include "Ledger.h"
#include "Trace.h"
#include "Use.h"
#include "reliability/ChildProcess.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace soak
{

/// `firaim watch --json` on the file. Its rows come in the order of their keys, none twice, and none is missing, except
/// where it says that rows were removed or that the file is another one.
class Watch
{
public:
    Watch(std::string path, Ledger const& ledger, Trace& trace);

    void start();
    void kill();
    bool poll();
    void expectSteadyUse();

    /// Whether it has printed the row with that key, or there is none.
    bool hasPrinted(unsigned long long key) const { return key == 0 || m_lastKey == key; }
    unsigned long long lastKey() const { return m_lastKey.value_or(0); }
    std::uint64_t rows() const { return m_rows; }
    std::uint64_t gaps() const { return m_gaps; }

private:
    void take(std::string const& line);
    void takeRow(std::string const& line);
    void takeMessage(std::string const& line);

    std::string const m_path;
    Ledger const& m_ledger;
    Trace& m_trace;
    std::unique_ptr<ChildProcess> m_process;
    std::optional<unsigned long long> m_lastKey; ///< of this file; none before its first row
    bool m_isGapReported = false;                ///< before the next row
    bool m_isFollowing = false;                  ///< it has printed something
    std::uint64_t m_rows = 0;
    std::uint64_t m_gaps = 0;
    Use m_use;
};

} // namespace soak
