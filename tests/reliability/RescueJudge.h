#pragma once

#include "DamagedSet.h"

#include "TestSupport.h"

#include <set>
#include <string>
#include <utility>
#include <vector>

/// What `firaim rescue` made of one file of the damaged set.
struct RescueOutcome
{
    using KeyRange = std::pair<long long, long long>; ///< first and last key

    int status = 0;
    bool isThere = false; ///< the new file; the members below are empty without it
    std::string integrity;
    StoredRows faults;
    StoredRows statistics;
    std::set<long long> doubtful; ///< keys of the doubtful rows
    long long doubtfulRows = 0;   ///< their number; two may have one key
    long long lastKey = 0;        ///< the last key that the new file calls used

    // As the command reports it.
    std::string result;
    long long reportedFaults = -1;
    long long reportedDoubtful = -1;
    std::vector<KeyRange> missing;

    /// Reads the new file, if it is there, and the command's JSON.
    void read(std::string const& path, std::string const& json);

    bool isMissing(long long key) const; ///< as the command reports it
};

/// Compares a rescued file with the truth about it.
class RescueJudge
{
public:
    RescueJudge(DamagedFile const& file, RescueOutcome const& rescued);

    /// Everything that is wrong, as lines; empty when nothing is.
    std::string problems();

    std::size_t lostRows() const { return m_lostRows; } ///< rows of the sound file of which a page is lost

private:
    bool isLost(std::set<PageNumber> const& pages) const;
    bool canNameLastKeys() const;
    void judgeReport();
    void judgeResult();
    void judgeFaults();
    void judgeLostRow(long long key);
    void judgeRanges();
    void judgeStatistics();
    void judgeRebuiltStatistics();
    void complain(std::string const& text, long long key = 0);

    DamagedFile const& m_file;
    SoundFile const& m_sound;
    RescueOutcome const& m_rescued;
    bool m_mayDoubt;
    std::size_t m_lostRows = 0;
    std::map<std::string, std::vector<long long>> m_problems; ///< keys, by what is wrong with them
};
