#include <history/internal/Retention.h>

#include <db/internal/Join.h>
#include <history/internal/ResetAtEnd.h>

#include <algorithm>
#include <string>

namespace firaim
{

void Retention::connect(sqlite::Connection const& connection, BoundTable const& faults)
{
    if (!isOn())
    {
        return;
    }
    m_connection = &connection;
    std::string const& key = faults.key();
    m_candidates = connection.prepare(join({"SELECT ", key, " FROM ", faults.name(), " WHERE ", key, " > ?1 AND ", key,
                                            " <= ?2 ORDER BY ", key, " LIMIT ?3"}));
    m_remove = connection.prepare(join({"DELETE FROM ", faults.name(), " WHERE ", key, " = ?1"}));
    rolledBack(); // Forget the state of the previous file.
}

void Retention::disconnect()
{
    m_candidates = {};
    m_remove = {};
    m_connection = nullptr;
}

std::uint64_t Retention::prune(FaultState const& state, std::int64_t newestKey, std::int64_t most)
{
    if (!isOn() || newestKey <= 0 || static_cast<std::uint64_t>(newestKey) <= m_keepNewest)
    {
        return 0;
    }
    auto const limit = newestKey - static_cast<std::int64_t>(m_keepNewest);
    std::vector<std::int64_t> const needed = state.neededKeys();
    auto const isNeeded = [&](std::int64_t key) { return std::binary_search(needed.begin(), needed.end(), key); };
    std::int64_t tries = 0;
    std::uint64_t removed = 0;
    // Rows that were spared may not be needed any more.
    for (auto spared = m_spared.begin(); spared != m_spared.end() && tries < most;)
    {
        if (isNeeded(*spared))
        {
            ++spared;
            continue;
        }
        ++tries;
        removed += remove(*spared) ? 1 : 0;
        spared = m_spared.erase(spared);
    }
    for (std::int64_t const candidate : candidates(limit, most - tries))
    {
        m_examined = candidate;
        if (isNeeded(candidate))
        {
            m_spared.insert(candidate);
        }
        else
        {
            removed += remove(candidate) ? 1 : 0;
        }
    }
    return removed;
}

/// The keys of up to `most` old rows that were not examined yet.
std::vector<std::int64_t> Retention::candidates(std::int64_t limit, std::int64_t most)
{
    std::vector<std::int64_t> keys;
    m_candidates.bind(1, m_examined).bind(2, limit).bind(3, most);
    ResetAtEnd const end(m_candidates);
    while (m_candidates.step())
    {
        keys.push_back(m_candidates.integer(0));
    }
    return keys;
}

bool Retention::remove(std::int64_t key)
{
    try
    {
        m_remove.bind(1, key).run();
        return sqlite3_changes(m_connection->get()) == 1; // A trigger may skip it.
    }
    catch (sqlite::Error const& error)
    {
        if (error.kind() != SQLITE_CONSTRAINT || !m_connection->isInTransaction())
        {
            throw;
        }
        return false; // A trigger of the file refuses it, and has rolled back nothing else.
    }
}

void Retention::rolledBack()
{
    m_examined = kBeforeAllKeys;
    m_spared.clear();
}

} // namespace firaim
