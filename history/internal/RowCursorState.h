#pragma once

#include <history/RowCursor.h>
#include <history/internal/ReaderCore.h>
#include <history/internal/RowBatch.h>

#include <memory>

namespace firaim
{

struct FIRAIM_HIDDEN RowCursor::State
{
    State(std::shared_ptr<ReaderCore> owner, HistoryTable whose, FaultQuery::Order which, KeyRange range);

    /// Whether there is a row behind the present one in memory.
    bool hasNext() const { return at < batch.size(); }
    /// Goes back to the beginning, with other keys; what was in memory is gone.
    void restart(KeyRange range);
    /// Reads the next batch. Throws; the rows that came before the failure are then in the batch.
    void fetch();

    std::shared_ptr<ReaderCore> core;
    HistoryTable const table;
    FaultQuery::Order const order;
    KeyRange whole;           ///< once something was read, no further than the keys go
    KeyRange left;            ///< behind the batch
    bool isBegun = false;     ///< `whole` has been cut
    bool isDone = false;      ///< nothing is behind the batch
    std::int64_t rowsInBatch; ///< of the next batch
    int failure = HISTORY_OK; ///< what ended the batch, to be told behind its last row
    std::size_t at = 0;       ///< behind the present row
    bool hasRow = false;
    RowBatch batch;
    sqlite::Statement statement; ///< empty until something was read

private:
    void begin();
    bool moveOn(std::int64_t key);
};

} // namespace firaim
