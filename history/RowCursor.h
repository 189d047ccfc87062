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

/// Returns the rows of one table in the order of their keys, with the cells as the file holds them. Made by
/// FaultReader::rows.
///
/// Rows are read in batches of at most 1,000 rows or 1 MiB (one row may be larger). No lock is held between two calls,
/// however long the caller takes, so a cursor is no snapshot: rows added, changed or removed after the first call may
/// or may not be seen. Rows beyond the keys that existed at the first call are never seen.
///
/// A cursor keeps the file open, also after its reader is closed. It can be moved; a moved-from cursor can only be
/// assigned to.
class FIRAIM_EXPORT RowCursor
{
public:
    /// The type of a cell, as SQLite stores it.
    enum CellType : int
    {
        CELL_NULL, ///< also for a column that the file lacks
        CELL_INTEGER,
        CELL_REAL,
        CELL_TEXT,
        CELL_BLOB
    };

    /// A range of keys, both ends included.
    struct KeyRange
    {
        std::int64_t first = std::numeric_limits<std::int64_t>::min(); ///< smallest key
        std::int64_t last = std::numeric_limits<std::int64_t>::max();  ///< largest key
    };

    RowCursor(RowCursor&& other) noexcept;            ///< see the class
    RowCursor& operator=(RowCursor&& other) noexcept; ///< see the class
    ~RowCursor();

    /// Moves to the next row. With any result but HISTORY_OK, there is no present row.
    ///
    /// - HISTORY_OK
    /// - HISTORY_END: no more rows
    /// - HISTORY_INVALID_STATE: the reader was not open
    /// - HISTORY_BUSY, HISTORY_CANCELLED, HISTORY_FAILED: the next call tries again at the same place
    /// - HISTORY_HOT_JOURNAL
    /// - HISTORY_FOREIGN_FILE: the file was overwritten and is no database any more
    /// - HISTORY_DAMAGED: the cursor goes no further
    int next();

    /// The key of the present row; 0 if there is none.
    std::int64_t key() const;

    /// The number of columns of the table in the file format. Cells are numbered from 0 in that order; cell 0 is the
    /// key. This and the following require a present row.
    std::size_t cellCount() const;
    CellType type(std::size_t cell) const;        ///< type of a cell
    std::int64_t integer(std::size_t cell) const; ///< value of a CELL_INTEGER, else 0
    double real(std::size_t cell) const;          ///< value of a CELL_REAL, else 0
    /// Bytes of a CELL_TEXT (in UTF-8) or CELL_BLOB; SQLite's text of a CELL_REAL; else empty. Valid until the next
    /// call of `next`.
    std::string_view bytes(std::size_t cell) const;

    /// The part of the wanted rows that has been passed, judged by keys, between 0 and 1.
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
