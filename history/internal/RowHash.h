#pragma once

#include <history/internal/RowBatch.h>

#include <cstdint>

namespace firaim
{

/// A hash of the types and contents of all cells, the same on every machine: FNV-1a, 64 bits.
std::uint64_t hashOf(RowView const& row);

/// As `hashOf`, of those cells of a fault's row that say what happened and when: code, module, parameter, time stamp
/// and system date-time text. The other ones are rewritten in a row that stays: status, start-up id and names.
std::uint64_t occurrenceHashOf(RowView const& row);

} // namespace firaim
