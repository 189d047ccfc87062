#pragma once

#include <db/internal/Sqlite.h>
#include <history/internal/BoundTable.h>
#include <history/internal/FaultState.h>

#include <cstdint>
#include <limits>
#include <set>
#include <vector>

namespace firaim
{

/// Removes rows with old keys, oldest first and a few at a time, except rows that an active statistic or triple refers
/// to.
class Retention
{
public:
    /// Keeps the newest `keepNewest` keys; 0 keeps all.
    explicit Retention(std::uint64_t keepNewest) : m_keepNewest(keepNewest) {}

    bool isOn() const { return m_keepNewest != 0; }

    /// Prepares its statements; call `disconnect` before the connection is closed.
    void connect(sqlite::Connection const& connection, BoundTable const& faults);
    void disconnect();

    /// Removes up to `most` rows inside a write transaction, given the newest key; returns their number. Keeps rows
    /// that a trigger or a constraint of the file protects. Throws sqlite::Error for any other failure.
    std::uint64_t prune(FaultState const& state, std::int64_t newestKey, std::int64_t most);

    void rolledBack();

private:
    std::vector<std::int64_t> candidates(std::int64_t limit, std::int64_t most);
    bool remove(std::int64_t key);

    static constexpr std::int64_t kBeforeAllKeys = std::numeric_limits<std::int64_t>::min();

    std::uint64_t const m_keepNewest;
    sqlite::Connection const* m_connection = nullptr;
    sqlite::Statement m_candidates;
    sqlite::Statement m_remove;
    std::int64_t m_examined = kBeforeAllKeys; ///< old rows up to this key are removed or in `m_spared`
    std::set<std::int64_t> m_spared;
};

} // namespace firaim
