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

/// The filters on the command line. An absent one does not filter; an empty text does.
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

/// Makes the query of the filters, and reports why it finds nothing.
class FaultFilter
{
public:
    /// Throws a Problem for an invalid code, time or key. Looks up names of codes that this program does not know in
    /// `file`, which must outlive this object.
    FaultFilter(FilterOptions const& options, TimeStyle const& style, FaultFile& file);

    /// The query for the faults that match all filters.
    firaim::FaultQuery const& query() const { return m_query; }
    /// Whether there is no filter but that of the key.
    bool isEmpty() const { return m_criteria.empty(); }

    /// Prints to standard error why nothing was found: each filter that no fault matches by itself.
    void reportNoMatch() const;

private:
    /// One filter.
    struct Criterion
    {
        std::string message;      ///< when no fault matches
        firaim::FaultQuery query; ///< with this filter alone
    };

    void add(std::string message, std::function<void(firaim::FaultQuery&)> const& apply);
    void addTimes(FilterOptions const& options, TimeStyle const& style);

    FaultFile& m_file;
    firaim::FaultQuery m_query;
    std::vector<Criterion> m_criteria;
};

} // namespace tool
