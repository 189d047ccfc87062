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

    /// Whether the batch has a row behind the present one.
    bool hasNext() const { return at < batch.size(); }
    /// Restarts with another range of keys and drops the batch.
    void restart(KeyRange range);
    /// Reads the next batch. Throws; the batch then has the rows before the failure.
    void fetch();

    std::shared_ptr<ReaderCore> core;
    HistoryTable const table;
    FaultQuery::Order const order;
    KeyRange whole;           ///< after the first reading, limited to the keys that exist
    KeyRange left;            ///< keys behind the batch
    bool isBegun = false;     ///< `whole` has been limited
    bool isDone = false;      ///< no rows remain behind the batch
    std::int64_t rowsInBatch; ///< of the next batch
    int failure = HISTORY_OK; ///< ended the batch; returned after its last row
    std::size_t at = 0;       ///< index behind the present row
    bool hasRow = false;
    RowBatch batch;
    sqlite::Statement statement; ///< empty before the first reading

private:
    void begin();
    bool moveOn(std::int64_t key);
};

} // namespace firaim
