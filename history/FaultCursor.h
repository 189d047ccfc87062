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

/// Returns the faults that match a query, one by one. Made by FaultReader::faults. Batches, locks, snapshots, moving
/// and the life of the file are as for RowCursor.
class FIRAIM_EXPORT FaultCursor
{
public:
    FaultCursor(FaultCursor&& other) noexcept;            ///< see the class
    FaultCursor& operator=(FaultCursor&& other) noexcept; ///< see the class
    ~FaultCursor();

    /// Reads the next fault. Decodes cells as the library does, damaged ones included, with its reports on standard
    /// output; a NULL status is read as inactive. Results as for RowCursor::next; with any but HISTORY_OK, `fault` is
    /// unchanged.
    int next(Fault& fault);

    /// The fault read last, as the file holds it. Do not call its `next`.
    RowCursor const& row() const;
    std::int64_t key() const { return row().key(); }     ///< as RowCursor::key
    double progress() const { return row().progress(); } ///< as RowCursor::progress

    /// The key of the last row read, also if the query did not match it; none before the first. To continue, pass it as
    /// `afterKey` (oldest first) or `beforeKey` (newest first) of another query.
    std::optional<std::int64_t> position() const;

    /// The position behind the fault read last, for FaultReader::follow; requires that `next` has just returned
    /// HISTORY_OK.
    FollowPosition followPosition() const;

private:
    friend class FaultReader;
    FIRAIM_HIDDEN FaultCursor(std::shared_ptr<ReaderCore> core, FaultQuery const& query);

    struct FIRAIM_HIDDEN State;
    std::unique_ptr<State> m_state;
};

} // namespace firaim
