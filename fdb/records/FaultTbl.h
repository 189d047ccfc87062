#pragma once

#include <db/Export.h>
#include <fdb/records/Fault.h>

#include <vector>

/// The faults that a query returned, in row order. Owned by the caller.
class FIRAIM_EXPORT FaultTbl : public std::vector<Fault>
{
public:
    virtual ~FaultTbl() = default;
};
