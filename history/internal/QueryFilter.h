#pragma once

#include <fdb/records/Fault.h>
#include <history/FaultQuery.h>

namespace firaim
{

/// Selects the faults that match a query; its keys, order and limit are not considered.
class QueryFilter
{
public:
    explicit QueryFilter(FaultQuery query);

    bool accepts(Fault const& fault) const;

private:
    bool isInTime(Fault const& fault) const;
    bool isMentionedIn(Fault const& fault) const;

    FaultQuery m_query; ///< its `text` in lower case
};

} // namespace firaim
