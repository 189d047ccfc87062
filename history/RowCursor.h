#pragma once

#include <db/Export.h>
#include <history/FaultQuery.h>
#include <history/HistoryResult.h>

#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <string_view>

namespace firaim
{

class ReaderCore;
struct RowView;

/// The tables of a fault database.
enum class HistoryTable : int
{
    FAULTS,
    STATISTICS,
    VERSIONS
};

/// The rows of one table in the order of their keys, with their cells as the file holds them. FaultReader hands it out.
///
/// Rows are taken from the file in batches of at most 1,000 rows or 1 MiB (one row may be larger). No lock is ever held
/// between two calls, however long the caller takes. So this is no snapshot: a row that is added, changed or removed
/// after the first call may or may not be seen, and none beyond the keys that were there at the first call.
/// A cursor keeps the file open, also when its reader is closed. It can be moved; one that was moved from can only be
/// assigned to.
class FIRAIM_EXPORT RowCursor
{
public:
    /// As SQLite stores the cell.
    enum CellType : int
    {
        CELL_NULL, ///< also of a column that the file lacks
        CELL_INTEGER,
        CELL_REAL,
        CELL_TEXT,
        CELL_BLOB
    };

    /// The keys of the rows that are wanted, both included.
    struct KeyRange
    {
        std::int64_t first = std::numeric_limits<std::int64_t>::min(); ///< smallest one
        std::int64_t last = std::numeric_limits<std::int64_t>::max();  ///< largest one
    };

    RowCursor(RowCursor&& other) noexcept;            ///< see the class
    RowCursor& operator=(RowCursor&& other) noexcept; ///< see the class
    ~RowCursor();

    /// Goes to the next row. HISTORY_OK; HISTORY_END when there is none; HISTORY_INVALID_STATE when the reader was not
    /// open; HISTORY_BUSY, HISTORY_CANCELLED and HISTORY_FAILED, and the next call tries again where this one ended;
    /// HISTORY_HOT_JOURNAL; HISTORY_DAMAGED, and it goes no further. After anything but HISTORY_OK there is no row.
    int next();

    /// The key of the present row; 0 without one.
    std::int64_t key() const;

    /// The number of columns that the file format has for the table. Cells count from 0 in its order, the key is the
    /// first. All of these require a row.
    std::size_t cellCount() const;
    CellType type(std::size_t cell) const;        ///< of a cell of the present row
    std::int64_t integer(std::size_t cell) const; ///< of CELL_INTEGER, else 0
    double real(std::size_t cell) const;          ///< of CELL_REAL, else 0
    /// Of CELL_TEXT (in UTF-8) and CELL_BLOB; of CELL_REAL the text that SQLite makes of it; else empty. Valid until
    /// the next call of `next`.
    std::string_view bytes(std::size_t cell) const;

    /// How much of the wanted rows has been passed, as far as keys tell, between 0 and 1.
    double progress() const;

private:
    friend class FaultReader;
    friend class FaultCursor;
    friend class FaultFollower;
    friend class ReaderCore;
    FIRAIM_HIDDEN RowCursor(std::shared_ptr<ReaderCore> core, HistoryTable table, FaultQuery::Order order,
                            KeyRange range);
    FIRAIM_HIDDEN bool advance();
    FIRAIM_HIDDEN RowView row() const;

    struct FIRAIM_HIDDEN State;
    std::unique_ptr<State> m_state;
};

} // namespace firaim
