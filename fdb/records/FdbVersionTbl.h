#pragma once

#include <db/Export.h>
#include <fdb/records/FdbVersion.h>

#include <vector>

/// The version rows that a query returned, in row order. Owned by the caller.
class FIRAIM_EXPORT FdbVersionTbl : public std::vector<FdbVersion>
{
public:
    virtual ~FdbVersionTbl() = default;
};
