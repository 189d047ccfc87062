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

/// Removes rows with old keys, the oldest first and few at a time, but for those that something active needs.
class Retention
{
public:
    /// Keeps the newest `keepNewest` keys; 0 keeps all.
    explicit Retention(std::uint64_t keepNewest) : m_keepNewest(keepNewest) {}

    bool isOn() const { return m_keepNewest != 0; }

    /// Compiles its statements; they must go, by `disconnect`, before the connection does.
    void connect(sqlite::Connection const& connection, BoundTable const& faults);
    void disconnect();

    /// Removes up to `most` rows, given the newest key there is, inside a write transaction; returns how many. A row
    /// that the file itself does not let go is left. Throws sqlite::Error for anything else that fails.
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
    std::int64_t m_examined = kBeforeAllKeys; ///< the old rows up to this key are gone or spared
    std::set<std::int64_t> m_spared;
};

} // namespace firaim
