#pragma once

#include <tool/store/FaultFile.h>
#include <tool/values/Times.h>

#include <history/FaultQuery.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace tool
{

/// The filters on the command line; absent ones do not filter. An empty text does.
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

/// Tells which faults are wanted, and why there are none.
class FaultFilter
{
public:
    /// Throws a Problem for a code, time or key that means nothing. `file` is asked for the names of codes that this
    /// program does not know; it must outlive this object.
    FaultFilter(FilterOptions const& options, TimeStyle const& style, FaultFile& file);

    /// The faults that answer to all that was asked for.
    firaim::FaultQuery const& query() const { return m_query; }
    /// Whether it is only the key that decides.
    bool isEmpty() const { return m_criteria.empty(); }

    /// Says on standard error why nothing was found: what no fault at all answers to, each as a whole sentence.
    void reportUnanswered() const;

private:
    struct Criterion
    {
        std::string complaint;    ///< when nothing answers to it
        firaim::FaultQuery query; ///< it alone
    };

    void add(std::string complaint, std::function<void(firaim::FaultQuery&)> const& ask);
    void addTimes(FilterOptions const& options, TimeStyle const& style);

    FaultFile& m_file;
    firaim::FaultQuery m_query;
    std::vector<Criterion> m_criteria;
};

} // namespace tool
