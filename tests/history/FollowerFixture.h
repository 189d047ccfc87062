#pragma once

#include "HistorySupport.h"

#include <history/FaultFollower.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

/// A fault database, and a reader of it that is open.
class FollowerTest : public HistoryTest
{
protected:
    /// Longer than any test may take.
    static constexpr std::chrono::minutes kLong{2};

    FollowerTest() { EXPECT_EQ(reader.open(path), firaim::HISTORY_OK) << reader.lastProblem(); }

    firaim::FollowPosition newest()
    {
        firaim::FollowPosition position;
        EXPECT_EQ(reader.newestPosition(position), firaim::HISTORY_OK) << reader.lastProblem();
        return position;
    }

    /// All that a follower gives now: keys of faults, and names of results.
    static std::vector<std::string> take(firaim::FaultFollower& follower)
    {
        std::vector<std::string> told;
        for (int calls = 0; calls < 10000; ++calls)
        {
            Fault fault;
            int const result = follower.next(fault, std::chrono::milliseconds(0));
            if (result == firaim::HISTORY_END)
            {
                return told;
            }
            told.push_back(result == firaim::HISTORY_OK ? std::to_string(fault.EntryId)
                                                        : firaim::historyResultName(result));
        }
        ADD_FAILURE() << "there is no end to it";
        return told;
    }

    /// The occurrences of the statistics that a follower gives now.
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

    /// The position behind the fault with that key.
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

    /// As addFaults, a day later.
    void addLaterFaults(int count) const
    {
        addFaults(count);
        exec("UPDATE FdbFaultTbl SET TimeStampUTC = TimeStampUTC + 86400000 WHERE EntryId > (SELECT max(EntryId) FROM "
             "FdbFaultTbl) - " +
             std::to_string(count));
    }

    /// Another fault database with one fault, in a file of its own.
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
