#pragma once

#include <algorithm>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

/// A simple model of the rows of a file and of the statistics that the documentation promises: a list of all rows, and
/// an entry for each code.
class StatisticModel
{
public:
    struct Row
    {
        unsigned long long key;
        std::uint32_t code;
        std::string module;
        std::string parameter;
        bool isActive;
    };

    struct Statistic
    {
        unsigned int occurrences = 0;
        unsigned int cycles = 0;
        bool isActive = false;
        unsigned long long first = 0;
        unsigned long long last = 0;
        unsigned long long entry = 0;
        bool isCountedInCycle = false;
    };

    /// The newest row of a triple if it is active, otherwise null.
    Row const* active(std::uint32_t code, std::string const& module, std::string const& parameter) const
    {
        for (auto row = rows.rbegin(); row != rows.rend(); ++row)
        {
            if (row->code == code && row->module == module && row->parameter == parameter)
            {
                return row->isActive ? &*row : nullptr;
            }
        }
        return nullptr;
    }

    /// Module and parameter of every active triple of a code.
    std::set<std::pair<std::string, std::string>> activeTriples(std::uint32_t code) const
    {
        std::set<std::pair<std::string, std::string>> result;
        for (Row const& row : rows)
        {
            if (row.code == code && active(code, row.module, row.parameter) != nullptr)
            {
                result.emplace(row.module, row.parameter);
            }
        }
        return result;
    }

    /// Adds a row that a recorder has written.
    void recorded(Row const& row, unsigned long long time)
    {
        rows.push_back(row);
        Statistic& statistic = statistics[row.code];
        statistic.entry = row.key;
        if (!row.isActive)
        {
            statistic.isActive = !activeTriples(row.code).empty();
            return;
        }
        statistic.isActive = true;
        statistic.first = statistic.occurrences == 0 ? time : statistic.first;
        statistic.last = time;
        statistic.isCountedInCycle = true;
        countUp(statistic.occurrences);
        countUp(statistic.cycles);
    }

    void cycleEnded()
    {
        for (auto& [code, statistic] : statistics)
        {
            if (statistic.isActive && !statistic.isCountedInCycle)
            {
                countUp(statistic.cycles);
            }
            statistic.isCountedInCycle = false;
        }
    }

    std::vector<Row> rows;
    std::map<std::uint32_t, Statistic> statistics;

private:
    static void countUp(unsigned int& count) { count = std::min(count + 1, 65535U); }
};
