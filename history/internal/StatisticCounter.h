#pragma once

#include <history/internal/StatisticMemory.h>

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>

namespace firaim
{

/// Counts occurrences and active cycles in the statistics of a StatisticMemory, as FaultRecorder
/// describes them. It is called inside a transaction, and `committed` or `rolledBack` says what became of that.
class StatisticCounter
{
public:
    /// Occurrences of one code.
    struct Occurrences
    {
        std::uint64_t events;
        std::uint64_t order; ///< of the last one among all acknowledgements of the recorder
        unsigned long long timeStamp;
        std::string const& timeZone;
    };

    /// `statistics` must outlive this object.
    explicit StatisticCounter(StatisticMemory& statistics) : m_statistics(statistics) {}
    StatisticCounter(StatisticCounter const&) = delete;
    StatisticCounter& operator=(StatisticCounter const&) = delete;

    /// Counts what was recorded; the last of it becomes the code's last occurrence unless that has come later.
    void count(FaultStatistic& statistic, Occurrences const& occurrences);
    /// As `count`, of a row that is written now: whatever its order, it is the last occurrence.
    void countRow(FaultStatistic& statistic, Occurrences const& occurrence);
    /// Counts an active cycle of each code that is active and has not been recorded as active since the last call.
    void endCycle();

    /// The codes that were recorded as active since the last `endCycle`.
    std::set<std::uint32_t> const& countedInCycle() const { return m_countedInCycle; }
    /// A transaction that was rolled back turned out to be stored; it had left `codes`.
    void foundStored(std::set<std::uint32_t> codes) { m_countedInCycle.swap(codes); }

    void committed() { m_countedInCycleBefore.reset(); }
    void rolledBack();
    /// Forgets what belongs to another file. Needs no memory.
    void forget();

private:
    void keepCountedInCycle();

    StatisticMemory& m_statistics;
    std::map<std::uint32_t, std::uint64_t> m_lastOrder; ///< of each code's last occurrence
    std::set<std::uint32_t> m_countedInCycle;           ///< see `countedInCycle`
    /// The same before this transaction, if that has changed it: few do.
    std::optional<std::set<std::uint32_t>> m_countedInCycleBefore;
};

} // namespace firaim
