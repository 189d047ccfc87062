#include <history/internal/StatisticMemory.h>

#include <db/internal/Join.h>
#include <history/internal/Failure.h>
#include <history/internal/ResetAtEnd.h>

#include <algorithm>

namespace firaim
{

void StatisticMemory::connect(sqlite::Connection const& connection)
{
    BoundTable const& table = m_table.bound();
    m_connection = &connection;
    m_read = connection.prepare(join({table.selectText(), " ORDER BY ", table.key()}));
    m_insert = connection.prepare(table.insertText());
    m_update = connection.prepare(table.updateText());
}

void StatisticMemory::disconnect()
{
    m_read = {};
    m_insert = {};
    m_update = {};
    m_connection = nullptr;
}

void StatisticMemory::forget()
{
    m_statistics.clear();
    m_touched.clear();
}

void StatisticMemory::read()
{
    m_statistics.clear();
    ResetAtEnd const end(m_read);
    while (m_read.step())
    {
        FaultStatistic const& statistic = m_table.decode(m_read);
        m_statistics.emplace(statistic.FaultCode, statistic); // If a code has several, the first one counts.
    }
}

void StatisticMemory::write()
{
    std::sort(m_touched.begin(), m_touched.end());
    m_touched.erase(std::unique(m_touched.begin(), m_touched.end()), m_touched.end());
    for (std::uint32_t const code : m_touched)
    {
        FaultStatistic& statistic = m_statistics[code];
        m_table.record() = statistic;
        if (statistic.EntryId == 0)
        {
            m_table.bound().bind(m_insert);
            m_insert.run();
            requireOneChange(*m_connection);
            statistic.EntryId = static_cast<unsigned long long>(sqlite3_last_insert_rowid(m_connection->get()));
        }
        else
        {
            m_table.bound().bind(m_update, static_cast<std::int64_t>(statistic.EntryId));
            m_update.run();
            requireOneChange(*m_connection);
        }
    }
    m_written.swap(m_touched);
    m_touched.clear();
}

FaultStatistic& StatisticMemory::of(std::uint32_t code)
{
    FaultStatistic& statistic = m_statistics[code];
    statistic.FaultCode = static_cast<faultCode_t>(code);
    return statistic;
}

std::vector<FaultStatistic> StatisticMemory::written() const
{
    std::vector<FaultStatistic> statistics;
    for (std::uint32_t const code : m_written)
    {
        statistics.push_back(m_statistics.at(code));
    }
    return statistics;
}

bool StatisticMemory::holds(std::vector<FaultStatistic> const& statistics)
{
    sqlite::Statement match = m_connection->prepare(m_table.bound().matchText());
    for (FaultStatistic const& statistic : statistics)
    {
        m_table.record() = statistic;
        m_table.bound().bind(match, static_cast<std::int64_t>(statistic.EntryId));
        if (!match.step())
        {
            return false;
        }
        match.reset();
    }
    return true;
}

unsigned int StatisticMemory::lastStartup()
{
    BoundTable const& table = m_table.bound();
    return static_cast<unsigned int>(m_connection->number(
        join({"SELECT max(", table.column(FdbSqlFaultStatisticTbl::kRdbStartupIdColumn), ") FROM ", table.name()})));
}

void StatisticMemory::rolledBack()
{
    m_touched.clear();
    m_written.clear();
}

} // namespace firaim
