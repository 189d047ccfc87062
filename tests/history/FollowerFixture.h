#pragma once

#include "HistorySupport.h"

#include <history/FaultFollower.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

/// A fault database with an open reader.
class FollowerTest : public HistoryTest
{
protected:
    /// Longer than any of these tests takes.
    static constexpr std::chrono::minutes kLong{2};

    FollowerTest() { EXPECT_EQ(reader.open(path), firaim::HISTORY_OK) << reader.lastProblem(); }

    firaim::FollowPosition newest()
    {
        firaim::FollowPosition position;
        EXPECT_EQ(reader.newestPosition(position), firaim::HISTORY_OK) << reader.lastProblem();
        return position;
    }

    /// Reads a follower to its present end. Returns the keys of the faults and the names of the other results.
    static std::vector<std::string> take(firaim::FaultFollower& follower)
    {
        std::vector<std::string> results;
        for (int calls = 0; calls < 10000; ++calls)
        {
            Fault fault;
            int const result = follower.next(fault, std::chrono::milliseconds(0));
            if (result == firaim::HISTORY_END)
            {
                return results;
            }
            results.push_back(result == firaim::HISTORY_OK ? std::to_string(fault.EntryId)
                                                           : firaim::historyResultName(result));
        }
        ADD_FAILURE() << "the follower does not end";
        return results;
    }

    /// Reads the changed statistics of a follower and returns their occurrences.
    static std::vector<unsigned short> takeCounts(firaim::FaultFollower& follower)
    {
        std::vector<unsigned short> counts;
        FaultStatistic statistic;
        int result = firaim::HISTORY_OK;
        while ((result = follower.nextStatistic(statistic)) == firaim::HISTORY_OK)
        {
            counts.push_back(statistic.OccurenceCnt);
        }
        EXPECT_EQ(result, firaim::HISTORY_END) << follower.lastProblem();
        return counts;
    }

    /// Sets `position` to that after the fault with this key; false when there is no such fault.
    bool positionOf(unsigned long long key, firaim::FollowPosition& position)
    {
        firaim::FaultCursor cursor = reader.faults();
        Fault fault;
        while (cursor.next(fault) == firaim::HISTORY_OK)
        {
            if (fault.EntryId == key)
            {
                position = cursor.followPosition();
                return true;
            }
        }
        return false;
    }

    /// Like addFaults, but with times one day later.
    void addLaterFaults(int count) const
    {
        addFaults(count);
        exec("UPDATE FdbFaultTbl SET TimeStampUTC = TimeStampUTC + 86400000 WHERE EntryId > (SELECT max(EntryId) FROM "
             "FdbFaultTbl) - " +
             std::to_string(count));
    }

    /// Creates another fault database with one fault and returns its path.
    std::string makeOther(std::string const& description) const
    {
        std::string other = dir.file("other.db");
        std::filesystem::copy(path, other);
        RawDb(other).exec("DELETE FROM FdbFaultTbl; DELETE FROM sqlite_sequence; INSERT INTO FdbFaultTbl(Description) "
                          "VALUES('" +
                          description + "')");
        return other;
    }
};
