#pragma once

#include "Rows.h"
#include "Sqlite.h"
#include "Times.h"

#include <fdb/records/Fault.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace tool
{

/// What a user asks for on the command line; absent where nothing is. An empty text asks for something, too.
struct FilterOptions
{
    std::optional<std::string> code;
    std::optional<std::string> module;
    std::optional<std::string> grep;
    std::optional<std::string> since;
    std::optional<std::string> until;
    std::optional<unsigned int> startup;
    std::optional<long long> after;
    bool isActiveOnly = false;

    bool areSet() const;
};

/// Tells which faults are wanted. Nothing of it ever becomes SQL: the faults are compared one by one.
class FaultFilter
{
public:
    /// Throws a Problem for a code or time that means nothing. `connection` is asked for the names of codes that this
    /// program does not know.
    FaultFilter(FilterOptions const& options, TimeStyle const& style, Connection const& connection);

    bool isEmpty() const { return m_criteria.empty(); }
    bool accepts(Fault const& fault);

    /// What no fault at all answered to, each as a whole sentence. Means something when all faults were asked about.
    std::vector<std::string> unanswered() const;

private:
    struct criterion_t
    {
        std::string complaint; ///< when nothing answers to it
        std::function<bool(Fault const&)> holds;
        bool isAnswered = false;
    };

    void add(std::string complaint, std::function<bool(Fault const&)> holds);
    void addTimes(FilterOptions const& options, TimeStyle const& style);

    std::vector<criterion_t> m_criteria;
};

/// The keys that can be wanted at all.
keyRange_t rangeOf(FilterOptions const& options);

/// Says on standard error why nothing was found.
void reportUnanswered(FaultFilter const& filter, FilterOptions const& options);

/// The period that the text of an option names. Throws a Problem when it names none.
period_t requireTime(std::string const& text, TimeStyle const& style);

} // namespace tool
