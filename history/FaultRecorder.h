#pragma once

#include <db/Export.h>
#include <history/FaultEvent.h>
#include <history/HistoryResult.h>
#include <history/TimeStamp.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace firaim
{

/// The outcome of one recorded event.
struct Receipt
{
    int result = HISTORY_INVALID_STATE; ///< a HistoryResult
    /// The key of the written row with HISTORY_OK; the key of the row that made the triple active when `raise` returns
    /// HISTORY_UNCHANGED; otherwise 0.
    unsigned long long key = 0;
};

/// Options of a recorder. The defaults suit an application that starts once with its device.
struct RecorderOptions
{
    /// Selects the start-up id of the recorded rows.
    enum StartupMode
    {
        NEXT_STARTUP,  ///< the largest id of the newest fault and the statistics, plus one; 1 in a new file
        SAME_STARTUP,  ///< the same largest id, for another process of the same start-up, once the first process has
                       ///< recorded something; 0 in a new file
        GIVEN_STARTUP, ///< the member `startupId`
    };

    StartupMode startup = NEXT_STARTUP; ///< selects the id
    unsigned int startupId = 0;         ///< the id, for GIVEN_STARTUP

    /// Unit of the time stamps that the recorder fills in. GUESSED: that of the newest fault; milliseconds without a
    /// fault.
    TimeUnit timeUnit = TimeUnit::GUESSED;
    std::string timeZone = "UTC"; ///< time zone of an event that gives none

    /// Returns true when a waiting call shall end early; may be null. Any waiting thread calls it often; it must not
    /// call the recorder.
    bool (*isCancelled)() = nullptr;

    std::size_t queueLimit = 1024; ///< the most events that `post` holds
    bool doesPostWait = false;     ///< whether `post` waits for room in a full queue, up to its timeout
    /// Called by `close` and the destructor with the number of posted or counted events that could not be recorded,
    /// unless it is 0.
    std::function<void(std::uint64_t)> onLost;

    /// Limits the rows that `record`, `recordAll` and `post` write for each triple: up to `stormBurst` at once, then
    /// `stormRowsPerMinute`, measured on the monotonic clock. Events above the limit are a storm: they are counted and
    /// get no row of their own. 0: no limit.
    unsigned int stormBurst = 0;
    unsigned int stormRowsPerMinute = 6; ///< at least 1

    /// Keeps the newest `keepNewest` keys. Recording new rows removes rows with older keys, except the newest row of
    /// each active triple and rows that an active statistic refers to. Keys are never used again. 0 keeps all rows.
    std::uint64_t keepNewest = 0;

    /// How to deal with a damaged fault database, found by `open` or, later, when damage is met a second time.
    ///
    /// Without a code, `open` refuses the file. With a code, the file is copied aside with its journal and log (to the
    /// same name with ".aside-", date and number). Its content is then replaced in place, in one transaction, by that
    /// of a new database, whose first fault reports the damage under this code.
    ///
    /// A file that cannot be recognised as a fault database is never touched. `open` returns HISTORY_BUSY while other
    /// processes keep the file locked, and, in write-ahead-log mode, while another process has it open, even idle.
    std::optional<std::uint32_t> setAsideCode;

    /// How a file protects a commit that is not complete. docs/embedding.md compares the two.
    enum Journal
    {
        ROLLBACK_JOURNAL, ///< everything is in the file; a commit synchronises five times
        WRITE_AHEAD_LOG   ///< the latest faults are in a second file, "-wal"; a commit synchronises once
    };

    /// The journal of a file that the recorder creates. An existing file keeps its own.
    Journal journal = ROLLBACK_JOURNAL;
};

/// Records faults and keeps the statistic of each fault code, in one call and one transaction.
///
/// | after this call and result                | this is on the storage                                        |
/// |-------------------------------------------|---------------------------------------------------------------|
/// | `record`, `raise`, `clear`: HISTORY_OK    | the row and the statistic of its code                         |
/// | `recordAll`                               | each event whose receipt says HISTORY_OK, with its statistic  |
/// | `clearCode`, `endCycle`: HISTORY_OK       | all of it                                                     |
/// | `record`: HISTORY_COUNTED                 | nothing yet; the statistic within 1 s; at the end of the      |
/// |                                           | storm, one row with the number of counted events              |
/// | `post`: HISTORY_QUEUED                    | nothing yet                                                   |
/// | `flush`, `close`: HISTORY_OK              | everything posted and counted before                          |
/// | `record`, `raise`, `clear`, `clearCode`,  | all of it or nothing of it; this cannot be known now.         |
/// | `endCycle`: HISTORY_UNKNOWN               | Likewise for one receipt of `recordAll`                       |
/// | `record`, `raise`, `clear`, `clearCode`:  | nothing of it                                                 |
/// | another code below 0                      |                                                               |
/// | `endCycle`: another code below 0          | no cycle; perhaps events that were posted or counted before   |
/// | `flush`, `close`: a code below 0          | the events that were recorded by then                         |
///
/// Data on the storage survives a power cut, a crash and a kill.
///
/// State belongs to the triple of code, module and parameter: a triple is active while its newest row is active.
/// `record` always writes a row and so sets the state; `raise` and `clear` write only when the state changes.
///
/// Statistics: one row for each code.
/// - A row that is recorded as active counts one occurrence and its first active cycle.
/// - `endCycle` counts one more cycle for each active code that this recorder has not recorded as active since its last
///   `endCycle`. So let one recorder count the cycles of a file.
/// - A code is active while any of its triples is. Its statistic refers to its newest row.
/// - First and last occurrence follow the order of recording, whatever the clock says.
/// - Counters stop at 65,535.
/// - A code without a name in this build keeps the name that its statistic has, or else the newest of its rows with a
///   name. If neither has one, the first event of such a code makes the
///   recorder read all rows, once.
/// - If an old file has several statistics for a code, the first is kept up to date and the others are left.
///
/// Threads: any thread may call any operation at any time, except the destructor. Calls that wait at the same time
/// share one commit; a call alone does not wait for others. Several recorders, also in several processes, may record
/// into one file: a recorder reads its state again when another connection has written. It notices a row that another
/// program rewrites in place, under its old key, or removes, if that row is the newest of an active triple.
///
/// Waiting: a call waits for other processes and other calls up to its `timeout`, 5 s by default, and then returns
/// HISTORY_BUSY (`close` HISTORY_FAILED, a `post` that waits for room HISTORY_QUEUE_FULL). A call
/// whose event is being written at that time returns the outcome of the write.
///
/// Failures: the only exceptions are those of copying the caller's objects. After any failure the object works again as
/// soon as the cause is gone; `open` can be called again after it failed. `lastProblem` describes the last failed call.
///
/// Forking: in a forked child every call returns HISTORY_INVALID_STATE before it takes any lock, and the destructor
/// leaves the parent's connection alone. The child can use a recorder of its own if no other thread was inside SQLite
/// at the fork. Otherwise SQLite's own locks may be held for ever, and the child must first start another program.
class FIRAIM_EXPORT FaultRecorder
{
public:
    using Timeout = std::chrono::milliseconds; ///< the longest time that a call waits
    FIRAIM_HIDDEN static constexpr Timeout kDefaultTimeout = std::chrono::seconds(5); ///< if the caller gives none

    FaultRecorder();
    /// As `close` with the default timeout.
    ~FaultRecorder();
    FaultRecorder(FaultRecorder const&) = delete;
    FaultRecorder& operator=(FaultRecorder const&) = delete;

    /// Opens the fault database at `path` for recording. `path` always names a file.
    ///
    /// If the file is missing or empty, the database is created, completely or not at all; the folder must exist. A
    /// journal or log without its file may hold the only remains of the data: it is copied first (to the same name with
    /// ".aside-", date and number). An unfinished transaction of a crashed writer is rolled back.
    ///
    /// - HISTORY_OK
    /// - HISTORY_INVALID_STATE: open already
    /// - HISTORY_FOREIGN_FILE, HISTORY_VERSION_MISMATCH, HISTORY_DAMAGED: the file is unchanged
    /// - HISTORY_BAD_PATH: nothing is created, and the call does not wait
    /// - HISTORY_REFUSED: the time zone of `options` has a zero byte
    /// - HISTORY_FAILED: the file cannot be created, read or written
    /// - HISTORY_BUSY, HISTORY_CANCELLED
    int open(std::string const& path, RecorderOptions const& options = {}, Timeout timeout = kDefaultTimeout);

    /// Ends recording. New calls return HISTORY_INVALID_STATE; calls under way are waited for. Records all posted and
    /// counted events for up to `timeout`; an attempt under way then gets half a second more.
    ///
    /// - HISTORY_OK
    /// - HISTORY_FAILED: not all events could be recorded; the recorder is closed all the same
    /// - HISTORY_INVALID_STATE: not open
    int close(Timeout timeout = kDefaultTimeout);

    /// Writes a row for `event` and sets the state of its triple to `event.status`.
    ///
    /// - HISTORY_OK: the receipt has the row's key
    /// - HISTORY_COUNTED: with RecorderOptions::stormBurst, see there
    /// - HISTORY_REFUSED: nothing is written, as `event` has a text with a zero byte, a code beyond 32 bits or a time
    ///   beyond 2^63 - 1; or a trigger or a constraint of the file forbids the row, or a trigger fails at it
    /// - HISTORY_INVALID_STATE, HISTORY_FAILED, HISTORY_BUSY, HISTORY_UNKNOWN, HISTORY_DAMAGED, HISTORY_CANCELLED
    Receipt record(FaultEvent const& event, Timeout timeout = kDefaultTimeout);

    /// As `record` with the status active. If the triple is active already, returns HISTORY_UNCHANGED with the key of
    /// the row that made it active, and writes nothing.
    Receipt raise(FaultEvent const& event, Timeout timeout = kDefaultTimeout);

    /// As `record` with the status inactive. If the triple is not active, returns HISTORY_UNCHANGED and writes nothing.
    Receipt clear(FaultEvent const& event, Timeout timeout = kDefaultTimeout);

    /// Records `events` in their order, as if each came from a thread of its own that calls `record`: they share
    /// commits, and an event that is refused or fails does not affect the others. `receipts` gets one receipt for each
    /// event. Returns the first result below 0; if there is none, the first above 0; HISTORY_OK when all are recorded.
    int recordAll(std::vector<FaultEvent> const& events, std::vector<Receipt>& receipts,
                  Timeout timeout = kDefaultTimeout);

    /// Copies `event` into a queue and returns; a thread of the recorder records it as `record` does. The thread tries
    /// again while the file is locked or its storage fails; an event that a rule of the file forbids is lost. `raise`,
    /// `clear` and `clearCode` do not see queued events: call `flush` first. `timeout` applies with
    /// RecorderOptions::doesPostWait.
    ///
    /// - HISTORY_QUEUED
    /// - HISTORY_COUNTED: as for `record`
    /// - HISTORY_QUEUE_FULL
    /// - HISTORY_REFUSED: `event` is invalid, as for `record`
    /// - HISTORY_INVALID_STATE
    /// - HISTORY_FAILED: no thread or no memory is available
    /// - HISTORY_CANCELLED: while waiting for room
    int post(FaultEvent const& event, Timeout timeout = kDefaultTimeout);

    /// Waits until everything posted and counted before is on the storage. A storm under way gets its row.
    ///
    /// - HISTORY_OK
    /// - HISTORY_BUSY: the timeout has passed
    /// - HISTORY_CANCELLED
    /// - HISTORY_FAILED: storing failed
    /// - HISTORY_INVALID_STATE
    ///
    /// `left` gets the number of events that are still tried, plus the lost events that no `flush` has reported yet.
    int flush(std::uint64_t& left, Timeout timeout = kDefaultTimeout);

    /// Ends every active triple of the code of `event`. Writes a row for each as `clear` does, with the texts, times
    /// and start-up of `event` and the triple's own module and parameter. If the statistic is active and no triple is,
    /// one row with the module and parameter of `event` ends it.
    ///
    /// - HISTORY_OK: `keys` has the keys of the rows
    /// - HISTORY_UNCHANGED: nothing of the code is active
    /// - otherwise as for `record`
    int clearCode(FaultEvent const& event, std::vector<unsigned long long>& keys, Timeout timeout = kDefaultTimeout);

    /// Records everything posted and counted before, then counts one more cycle of every active code; see the class.
    /// HISTORY_OK; otherwise as for `record`.
    int endCycle(Timeout timeout = kDefaultTimeout);

    /// The start-up id of the recorded rows; 0 when not open.
    unsigned int startupId() const;

    /// Numbers since `open`.
    struct Counters
    {
        std::uint64_t recorded = 0; ///< rows written
        std::uint64_t groups = 0;   ///< commits that stored something
        std::uint64_t refused = 0;  ///< calls that failed; of `recordAll`, events
        std::uint64_t counted = 0;  ///< events in storms, without a row
        std::uint64_t pruned = 0;   ///< rows removed
        std::uint64_t queued = 0;   ///< posted events not recorded yet
    };
    Counters counters() const; ///< the present numbers

    /// The text of the last failed call, of any thread, with the name of the file if one was opened; empty before the
    /// first failure.
    std::string lastProblem() const;

private:
    class Core;

    FIRAIM_HIDDEN bool isForked() const;

    std::unique_ptr<Core> m_core;
    int m_ownerPid;
};

} // namespace firaim
