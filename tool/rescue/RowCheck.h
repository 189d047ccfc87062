#pragma once

#include <tool/pages/RecordDecoder.h>
#include <tool/schema/TableSchema.h>

#include <cstdint>
#include <string>
#include <vector>

namespace tool
{

/// Why a record is no row that the library writes into the table: it does not have exactly its columns, or a cell is
/// not of the type and range of its column. Empty if it is one. The key is not in the record: its cell is NULL.
std::string rowProblem(std::int64_t key, std::vector<RecordCell> const& cells, TableSchema const& schema);

} // namespace tool
