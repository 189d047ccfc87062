#pragma once

#include <history/internal/RowBatch.h>

#include <cstdint>

namespace firaim
{

/// Hashes the types and contents of all cells with 64-bit FNV-1a, the same on every machine.
std::uint64_t hashOf(RowView const& row);

/// As `hashOf`, for the cells that identify an occurrence: code, module, parameter, time stamp and system date-time
/// text. Others may be rewritten in place: status, start-up id and names.
std::uint64_t occurrenceHashOf(RowView const& row);

} // namespace firaim
