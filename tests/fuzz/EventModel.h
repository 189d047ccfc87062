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

/// A code, a module and a parameter, which are active or not.
using Triple = std::tuple<std::uint32_t, std::string, std::string>;

/// The moments between which a call was made.
struct Moments
{
    std::int64_t begin = 0;
    std::int64_t end = 0;
};

/// The expected content of the file, and what the recorder remembers of it.
class EventModel
{
public:
    struct Row
    {
        Fault fault;
        firaim::FaultEvent event; ///< tells which members were filled in
        Moments moments;
        std::pair<unsigned int, unsigned int> upTimes;
        firaim::TimeUnit unit = firaim::TimeUnit::GUESSED;
    };

    struct Statistic
    {
        FaultStatistic record; ///< without its times where the row's was filled in
        unsigned long long firstKey = 0;
        unsigned long long lastKey = 0; ///< keys of the rows that first and last occurrence are of
    };

    /// The key of the row that made the triple active; 0 when it is not.
    unsigned long long activeKey(Triple const& triple) const;
    /// The active triples of a code.
    std::vector<Triple> activeTriples(std::uint32_t code) const;
    bool isCodeActive(std::uint32_t code) const;
    void write(firaim::FaultEvent const& event, faultStatus_t status);
    /// The rows from that one on were recorded between these moments, at these up-times.
    void date(std::size_t first, Moments const& moments, std::pair<unsigned int, unsigned int> upTimes);
    void endCycle();
    void begin(firaim::RecorderOptions const& options);
    unsigned int startupId() const { return m_startupId; }
    std::size_t size() const { return m_rows.size(); }
    /// The file, read by the library, is the model.
    void requireContent(firaim::FaultReader& reader);

private:
    std::string codeName(firaim::FaultEvent const& event) const;
    void requireRow(Row const& row, Fault const& read) const;
    void requireStatistic(Statistic const& statistic, FaultStatistic const& read) const;

    std::vector<Row> m_rows;
    std::map<std::uint32_t, Statistic> m_statistics;
    std::vector<std::uint32_t> m_codes; ///< in the order of the rows of their statistics
    std::map<Triple, unsigned long long> m_active;
    std::set<std::uint32_t> m_countedInCycle;
    std::vector<unsigned long long> m_stamps; ///< as read, by key
    firaim::RecorderOptions m_options;
    firaim::TimeUnit m_unit = firaim::TimeUnit::GUESSED;
    unsigned int m_startupId = 0;
};
