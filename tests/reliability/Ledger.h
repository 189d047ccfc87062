#pragma once

#include "TestSupport.h"

#include <fdb/records/Fault.h>
#include <fdb/records/FaultStatistic.h>

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <type_traits>
#include <utility>
#include <vector>

/// Identifies a record; updates do not change this number.
inline unsigned long long identityOf(Fault const& fault)
{
    return fault.TimeStampUTC;
}
inline unsigned long long identityOf(FaultStatistic const& statistic)
{
    return statistic.FaultCode;
}

/// The rows that a table must hold, and those that it may hold, by the results of the operations on it.
///
/// A successful operation is stored; a failed one is stored whole or not at all. Any other record in the file is a
/// partial one.
template <class Record>
class Ledger
{
public:
    void clear() { m_rows.clear(); }

    /// `mayStay`: according to the documentation, the row may be stored despite the failure.
    void inserted(Record const& record, bool isAcknowledged, bool mayStay = false)
    {
        m_rows.push_back({{{record, isAcknowledged || mayStay}}, isAcknowledged});
    }

    void updated(Record const& record, bool isAcknowledged)
    {
        for (Row& row : m_rows)
        {
            if (identityOf(row.first()) != identityOf(record))
            {
                continue;
            }
            if (isAcknowledged)
            {
                row.versions.clear();
            }
            row.versions.push_back({record, isAcknowledged});
        }
    }

    /// `isWhole`: all rows were moved; otherwise an unknown part of them.
    void moved(unsigned int newId, unsigned int oldId, bool isWhole)
    {
        for (Row& row : m_rows)
        {
            std::vector<Version> const before = std::exchange(row.versions, {});
            for (Version version : before)
            {
                bool const isMoved = version.record.RdbStartupId == oldId;
                if (!isMoved || !isWhole)
                {
                    row.versions.push_back(version);
                }
                if (isMoved)
                {
                    version.record.RdbStartupId = newId;
                    row.versions.push_back(version);
                }
            }
        }
    }

    /// Expects each record at most once in `found`, whole and with the key that was returned, and expects all records
    /// that must be there.
    void expectHolds(std::vector<Record> const& found) const
    {
        std::vector<bool> isFound(m_rows.size());
        for (Record const& record : found)
        {
            auto const row =
                std::find_if(m_rows.begin(), m_rows.end(), [&](Row const& r) { return r.find(record) != nullptr; });
            if (row == m_rows.end())
            {
                ADD_FAILURE() << "neither an old nor a new version: " << record;
                continue;
            }
            auto const index = static_cast<std::size_t>(row - m_rows.begin());
            EXPECT_FALSE(isFound[index]) << "duplicate: " << record;
            isFound[index] = true;
        }
        for (std::size_t i = 0; i < m_rows.size(); ++i)
        {
            EXPECT_TRUE(isFound[i] || !m_rows[i].isSure) << "lost: " << m_rows[i].first();
        }
    }

    /// Number of records in `found` from failed operations for which this is not documented.
    std::size_t countUnacknowledged(std::vector<Record> const& found) const
    {
        std::size_t count = 0;
        for (Record const& record : found)
        {
            for (Row const& row : m_rows)
            {
                Version const* const version = row.find(record);
                count += version != nullptr && !version->isAcknowledged ? 1U : 0U;
            }
        }
        return count;
    }

    /// Expects that `count` lies between the records that must be there and those that may be.
    void expectCount(std::size_t count) const
    {
        auto const sure = std::count_if(m_rows.begin(), m_rows.end(), [](Row const& row) { return row.isSure; });
        EXPECT_GE(count, static_cast<std::size_t>(sure));
        EXPECT_LE(count, m_rows.size());
    }

    /// Returns true when there are records and all of them must be stored.
    bool isSure() const
    {
        return !m_rows.empty() && std::all_of(m_rows.begin(), m_rows.end(), [](Row const& row) { return row.isSure; });
    }

    /// The records for which `holds` is true. Updates must not change the result of `holds`.
    template <class Predicate>
    Ledger<Record> part(Predicate holds) const
    {
        Ledger<Record> result;
        std::copy_if(m_rows.begin(), m_rows.end(), std::back_inserter(result.m_rows),
                     [&](Row const& row) { return holds(row.first()); });
        return result;
    }

private:
    struct Version
    {
        Record record;
        bool isAcknowledged;
    };

    struct Row
    {
        std::vector<Version> versions; ///< the record has one of these
        bool isSure;                   ///< the record must be stored

        Record const& first() const { return versions.front().record; }

        /// The version that equals `record`, or null.
        Version const* find(Record const& record) const
        {
            auto const found = std::find_if(versions.begin(), versions.end(),
                                            [&](Version const& version)
                                            {
                                                Record expected = version.record;
                                                // Only an acknowledged fault has its key; the key of a statistic is
                                                // never returned.
                                                bool const isKeyKnown = isSure && std::is_same_v<Record, Fault>;
                                                expected.EntryId = isKeyKnown ? expected.EntryId : record.EntryId;
                                                return members(expected) == members(record);
                                            });
            return found != versions.end() ? &*found : nullptr;
        }
    };

    std::vector<Row> m_rows;
};
