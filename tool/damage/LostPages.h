#pragma once

#include <tool/pages/ByteSource.h>
#include <tool/pages/TableTree.h>
#include <tool/schema/TableSchema.h>

#include <cstdint>
#include <string>
#include <vector>

namespace tool
{

/// Keys of a table that cannot be read, and the pages that held them. An end that nothing tells is the smallest or the
/// largest number.
struct KeyGap
{
    KeyRange keys;
    std::vector<TableTree::Lost> pages; ///< empty if only SQLite has met the damage
    bool isMedium = false;              ///< the medium fails, so that nothing need be damaged
};

/// The gaps that the pages of a table's tree show, in the order of their keys; neighbours with the same
/// reason are one gap. None if the tree is not found at all.
std::vector<KeyGap> findGaps(ByteSource const& file, TableSchema const& schema);

/// The same for the file at `path`, which SQLite opens; none if some of its pages are in a write-ahead log, or if its
/// tables have other columns than the library's. Writers wait meanwhile. Throws sqlite::Error.
std::vector<KeyGap> findGapsOf(std::string const& path, TableSchema const& schema);

/// Whether the first page is no page of a database, but others have rows of faults; looks at the first 4 MiB.
bool hasFaultPages(ByteSource const& file);

/// Names the rows of a table in a range of keys, for example "faults 828 to 851".
std::string keysText(TableSchema const& schema, KeyRange const& keys);
/// Names the rows of a gap and the pages that are damaged.
std::string gapText(TableSchema const& schema, KeyGap const& gap);

} // namespace tool
