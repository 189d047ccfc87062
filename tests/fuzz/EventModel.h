#pragma once

#include <history/FaultReader.h>
#include <history/FaultRecorder.h>

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

/// A code, a module and a parameter. Each triple is active or not.
using Triple = std::tuple<std::uint32_t, std::string, std::string>;

/// The times just before and just after a call.
struct Moments
{
    std::int64_t begin = 0;
    std::int64_t end = 0;
};

/// The expected content of the file, and the state that the recorder keeps of it.
class EventModel
{
public:
    struct Row
    {
        Fault fault;
        firaim::FaultEvent event; ///< as given; the recorder filled in the members that it lacks
        Moments moments;
        std::pair<unsigned int, unsigned int> upTimes;
        firaim::TimeUnit unit = firaim::TimeUnit::GUESSED;
    };

    struct Statistic
    {
        FaultStatistic record; ///< without times, which `requireContent` takes from the rows
        unsigned long long firstKey = 0;
        unsigned long long lastKey = 0; ///< keys of the rows of first and last occurrence
    };

    /// The key of the row that made the triple active; 0 when the triple is not active.
    unsigned long long activeKey(Triple const& triple) const;
    /// The active triples of a code.
    std::vector<Triple> activeTriples(std::uint32_t code) const;
    bool isCodeActive(std::uint32_t code) const;
    void write(firaim::FaultEvent const& event, faultStatus_t status);
    /// Sets the range of times and of up-times in which the rows from index `first` on were recorded.
    void date(std::size_t first, Moments const& moments, std::pair<unsigned int, unsigned int> upTimes);
    void endCycle();
    void begin(firaim::RecorderOptions const& options);
    unsigned int startupId() const { return m_startupId; }
    std::size_t size() const { return m_rows.size(); }
    /// Requires that the library reads the model's content from the file.
    void requireContent(firaim::FaultReader& reader);

private:
    std::string codeName(firaim::FaultEvent const& event) const;
    void requireRow(Row const& row, Fault const& read) const;
    void requireStatistic(Statistic const& statistic, FaultStatistic const& read) const;

    std::vector<Row> m_rows;
    std::map<std::uint32_t, Statistic> m_statistics;
    std::vector<std::uint32_t> m_codes; ///< in the order of the statistics' rows
    std::map<Triple, unsigned long long> m_active;
    std::set<std::uint32_t> m_countedInCycle;
    std::vector<unsigned long long> m_stamps; ///< time stamps read from the file, by key
    firaim::RecorderOptions m_options;
    firaim::TimeUnit m_unit = firaim::TimeUnit::GUESSED;
    unsigned int m_startupId = 0;
};
