#pragma once

#include <fdb/records/Fault.h>
#include <history/FaultQuery.h>

namespace firaim
{

/// Tells which faults a query asks for, apart from their keys, their order and their number.
class QueryFilter
{
public:
    explicit QueryFilter(FaultQuery query);

    bool accepts(Fault const& fault) const;

private:
    bool isInTime(Fault const& fault) const;
    bool isMentionedIn(Fault const& fault) const;

    FaultQuery m_query; ///< its text in lower case
};

} // namespace firaim
