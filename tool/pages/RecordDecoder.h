#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace tool
{

/// A value in a record.
struct RecordCell
{
    enum Type
    {
        MISSING, ///< not in the bytes that are there
        EMPTY,   ///< NULL
        INTEGER,
        REAL,
        TEXT,
        BLOB
    };

    Type type = EMPTY;
    std::int64_t integer = 0;
    double real = 0;
    std::string_view bytes; ///< of a text or a blob
    bool isCut = false;     ///< the text or blob has more bytes than there are
};

/// Decodes records, the rows of a table: a header with the type of each cell, and the cells.
class RecordDecoder
{
public:
    /// Decodes the record in `payload`, whose bytes must stay while the cells are used. Returns whether header and
    /// cells fill it exactly.
    bool decode(std::string_view payload);
    /// Decodes the beginning of a record of `size` bytes whose end is lost. Returns whether the header is there, and
    /// the record has that size according to it.
    bool decodeBeginning(std::string_view payload, std::uint64_t size);

    /// Cells of the decoded record, in the order of the columns.
    std::vector<RecordCell> const& cells() const { return m_cells; }

    /// The number of cells of the record that begins with `payload`; none if its header is not there or is wrong.
    static std::optional<std::size_t> countCells(std::string_view payload);

private:
    bool decodeCells(std::string_view payload, std::uint64_t size);

    std::vector<RecordCell> m_cells;
};

} // namespace tool
