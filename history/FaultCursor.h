#pragma once

#include <db/Export.h>
#include <fdb/records/Fault.h>
#include <history/FaultQuery.h>
#include <history/FollowPosition.h>
#include <history/HistoryResult.h>
#include <history/RowCursor.h>

#include <cstdint>
#include <memory>
#include <optional>

namespace firaim
{

/// The faults that a query asks for, one after the other; FaultReader hands it out. What RowCursor says of batches,
/// locks, snapshots, moving and the life of the file holds here too.
class FIRAIM_EXPORT FaultCursor
{
public:
    FaultCursor(FaultCursor&& other) noexcept;            ///< see the class
    FaultCursor& operator=(FaultCursor&& other) noexcept; ///< see the class
    ~FaultCursor();

    /// Reads the next fault. Cells are decoded as the library decodes them, damaged ones included, with its reports on
    /// standard output; a status that is NULL is read as inactive. Results as of RowCursor::next; with any but
    /// HISTORY_OK, `fault` is left as it was.
    int next(Fault& fault);

    /// The fault that was read last, as the file holds it; to be looked at only.
    RowCursor const& row() const;
    std::int64_t key() const { return row().key(); }     ///< as RowCursor::key
    double progress() const { return row().progress(); } ///< as RowCursor::progress

    /// The key of the last row that was read, also where the filter refused it; none before the first. A query with it
    /// as `afterKey` (oldest first) or `beforeKey` (newest first) goes on from there.
    std::optional<std::int64_t> position() const;

    /// For FaultReader::follow: behind the fault that was read last; requires that `next` has just given one.
    FollowPosition followPosition() const;

private:
    friend class FaultReader;
    FIRAIM_HIDDEN FaultCursor(std::shared_ptr<ReaderCore> core, FaultQuery const& query);

    struct FIRAIM_HIDDEN State;
    std::unique_ptr<State> m_state;
};

} // namespace firaim
