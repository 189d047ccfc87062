#pragma once

#include <history/internal/StatisticMemory.h>

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>

namespace firaim
{

/// Counts occurrences and active cycles in the statistics of a StatisticMemory, as FaultRecorder describes them. Call
/// it inside a transaction, and end that with `committed` or `rolledBack`.
class StatisticCounter
{
public:
    /// Occurrences of one code.
    struct Occurrences
    {
        std::uint64_t events;
        std::uint64_t order; ///< of the last one, among all acknowledgements of the recorder
        unsigned long long timeStamp;
        std::string const& timeZone;
    };

    /// `statistics` must outlive this object.
    explicit StatisticCounter(StatisticMemory& statistics) : m_statistics(statistics) {}
    StatisticCounter(StatisticCounter const&) = delete;
    StatisticCounter& operator=(StatisticCounter const&) = delete;

    /// Counts what was recorded. The last of it becomes the code's last occurrence unless a later one was counted
    /// before.
    void count(FaultStatistic& statistic, Occurrences const& occurrences);
    /// As `count`, for a row that is written now: it is the last occurrence, whatever its order.
    void countRow(FaultStatistic& statistic, Occurrences const& occurrence);
    /// Counts an active cycle of each active code that has not been recorded as active since the last call.
    void endCycle();

    /// The codes that were recorded as active since the last `endCycle`.
    std::set<std::uint32_t> const& countedInCycle() const { return m_countedInCycle; }
    /// Reports that a transaction that was rolled back is stored after all; it had left `codes`.
    void foundStored(std::set<std::uint32_t> codes) { m_countedInCycle.swap(codes); }

    void committed() { m_countedInCycleBefore.reset(); }
    void rolledBack();
    /// Forgets the state of another file. Needs no memory.
    void forget();

private:
    void keepCountedInCycle();

    StatisticMemory& m_statistics;
    std::map<std::uint32_t, std::uint64_t> m_lastOrder; ///< order of each code's last occurrence
    std::set<std::uint32_t> m_countedInCycle;           ///< see `countedInCycle`
    /// `m_countedInCycle` before this transaction, if the transaction has changed it: few do.
    std::optional<std::set<std::uint32_t>> m_countedInCycleBefore;
};

} // namespace firaim
