#include <history/internal/StatisticChanges.h>

#include <history/internal/RowHash.h>

namespace firaim
{

void StatisticChanges::readFirst(ReaderCore& core)
{
    m_isFirstRead = m_isFirstRead || read(core, false) == HISTORY_OK;
}

int StatisticChanges::compare(ReaderCore& core)
{
    return read(core, true);
}

int StatisticChanges::read(ReaderCore& core, bool isTold)
{
    std::int64_t version = 0;
    try
    {
        version = core.connection().number("PRAGMA data_version");
    }
    catch (...)
    {
        return core.fail();
    }
    if (m_version == version)
    {
        return HISTORY_OK;
    }
    RowCursor rows = core.rows(HistoryTable::STATISTICS, FaultQuery::OLDEST_FIRST);
    int result = rows.next();
    for (; result == HISTORY_OK; result = rows.next())
    {
        std::uint64_t const hash = hashOf(ReaderCore::rowOf(rows));
        auto const [known, isNew] = m_hashes.emplace(rows.key(), hash);
        if (isTold && (isNew || known->second != hash))
        {
            m_changed.push_back(core.statistics().decode(ReaderCore::rowOf(rows)));
        }
        known->second = hash;
    }
    if (result != HISTORY_END)
    {
        return result;
    }
    m_version = version;
    return HISTORY_OK;
}

void StatisticChanges::clear()
{
    m_hashes.clear();
    m_version.reset();
    m_changed.clear();
}

void StatisticChanges::pop(FaultStatistic& statistic)
{
    statistic = m_changed.front();
    m_changed.pop_front();
}

} // namespace firaim
