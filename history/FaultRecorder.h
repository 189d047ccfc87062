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
    /// The key of the row: of the one that was written, with HISTORY_OK; of the one that made the triple active, when
    /// `raise` gives HISTORY_UNCHANGED; otherwise 0.
    unsigned long long key = 0;
};

/// How a recorder works. The defaults suit an application that starts once with its device.
struct RecorderOptions
{
    /// Which start-up id is recorded under.
    enum StartupMode
    {
        NEXT_STARTUP,  ///< one more than the largest that the newest fault and the statistics have; 1 in a new file
        SAME_STARTUP,  ///< that largest one, for a further process of the same start-up, once the first has recorded
                       ///< something; 0 in a new file
        GIVEN_STARTUP, ///< `startupId`
    };

    StartupMode startup = NEXT_STARTUP; ///< where the id comes from
    unsigned int startupId = 0;         ///< for GIVEN_STARTUP

    /// Unit of the time stamps that the recorder fills in; GUESSED: that of the newest fault, milliseconds without one.
    TimeUnit timeUnit = TimeUnit::GUESSED;
    std::string timeZone = "UTC"; ///< of an event that names none

    /// Whether somebody wants a waiting call to end; null: nobody. It is called often, by any thread that waits, and
    /// must not call the recorder.
    bool (*isCancelled)() = nullptr;

    std::size_t queueLimit = 1024; ///< most events that `post` holds
    bool doesPostWait = false;     ///< for room in a full queue, as long as its timeout says
    /// Told by `close` and the destructor how many posted or counted events could not be recorded, when there are any.
    std::function<void(std::uint64_t)> onLost;

    /// Limits the rows of a triple that `record` writes: so many at once, then so many a minute, on the clock that
    /// nobody sets. 0: no limit. What is above it is a storm: counted, without a row of its own.
    unsigned int stormBurst = 0;
    unsigned int stormRowsPerMinute = 6; ///< at least 1

    /// Keeps the newest so many keys: rows with older ones are removed as new ones are recorded, but for the newest row
    /// of each active triple and those that an active statistic refers to. Keys are never used again. 0 keeps all.
    std::uint64_t keepNewest = 0;

    /// How to deal with a damaged fault database, in `open` or, once damage has been met twice, later. With a code, it
    /// is copied aside (file, journal and log, to the same name with ".aside-", date and number), and its content is
    /// replaced in place, in one transaction, by that of a new one, whose first fault tells under this code what
    /// happened. Without a code, `open` refuses the file. A file of which nothing tells that it is a fault database is
    /// left as it is in any case. HISTORY_BUSY where others keep it locked; a file in write-ahead-log mode is also left
    /// while another process has it open, even idle.
    std::optional<std::uint32_t> setAsideCode;
};

/// Records faults and keeps the statistic of each fault code, in one call and one transaction.
///
/// | when this has returned                    | this is on the storage                                        |
/// |-------------------------------------------|---------------------------------------------------------------|
/// | `record`, `raise`, `clear`, HISTORY_OK    | the row and the statistic of its code                         |
/// | `recordAll`                               | each event whose receipt says HISTORY_OK, with its statistic  |
/// | `clearCode`, `endCycle`, HISTORY_OK       | all of it                                                     |
/// | `record`, HISTORY_COUNTED                 | nothing yet; the statistic within 1 s, the number that a      |
/// |                                           | storm had at its end, in one row                              |
/// | `post`, HISTORY_QUEUED                    | nothing yet                                                   |
/// | `flush`, `close`, HISTORY_OK              | all that was posted and counted before                        |
/// | `record`, `raise`, `clear`, `clearCode`,  | nothing of it                                                 |
/// | `endCycle`, a code below 0                |                                                               |
/// | any of these, HISTORY_UNKNOWN             | all of it or nothing of it; nobody can tell now               |
///
/// Data on the storage survives a power cut, a crash and a kill.
///
/// State belongs to the triple of code, module and parameter: a triple is active while its newest row is. `record`
/// always writes a row and so sets the state; `raise` and `clear` write at an edge only.
///
/// Statistics, one row for each code: a row that is recorded as active counts the occurrence and its first active
/// cycle; `endCycle` counts one further cycle for every active code that this recorder has not recorded as active since
/// its last `endCycle`, so one recorder counts the cycles of a file. A code is active while any of its triples is, and
/// its statistic refers to its newest row. First and last occurrence are in the order of recording, whatever the clock
/// says. Counters stay at 65,535. A code that this build has no name for keeps the one that its statistic has or else
/// the newest of its rows that names it; where neither does, the first call reads all rows, once. Where an old file has
/// several statistics for a code, the first is kept up and the others are left.
///
/// Threads: any thread may call anything at any time but the destructor. Callers that wait at the same time share one
/// commit; alone, nobody waits for company. Several recorders, also in several processes, may record into one file;
/// what a recorder remembers is read anew when somebody else has written. A row that somebody else rewrites in place,
/// under its old key, or removes, is noticed where it is the newest of an active triple.
///
/// Waiting: a call waits for other processes for as long as its `timeout` says, 5 s by default, then gives
/// HISTORY_BUSY. A call whose event is being written when its time runs out returns with what became of it.
///
/// Failures: no exception leaves this class but those of copying the caller's objects. After any failure the object
/// works on, as soon as the cause is gone; `open` can be called again after it has failed. A failed call has a text:
/// `lastProblem`.
///
/// Forking: in a forked child every call returns HISTORY_INVALID_STATE before it takes any lock, and the destructor
/// leaves the parent's connection alone. The child can use a recorder of its own where no other thread was inside
/// SQLite at the fork; else SQLite's own locks may be held for ever, and the child starts another program first.
class FIRAIM_EXPORT FaultRecorder
{
public:
    using Timeout = std::chrono::milliseconds; ///< how long a call waits
    FIRAIM_HIDDEN static constexpr Timeout kDefaultTimeout =
        std::chrono::seconds(5); ///< unless the caller says otherwise

    FaultRecorder();
    /// Closes.
    ~FaultRecorder();
    FaultRecorder(FaultRecorder const&) = delete;
    FaultRecorder& operator=(FaultRecorder const&) = delete;

    /// Opens the fault database at `path`, which always names a file, for recording.
    ///
    /// No file or an empty one: the database is created whole, or not at all; the folder must be there. A journal or
    /// log that lies there without its file, and may be all that is left of it, is copied first (to the same name with
    /// ".aside-", date and number). What a crashed writer left half done is rolled back.
    ///
    /// HISTORY_OK; HISTORY_INVALID_STATE when open already; HISTORY_FOREIGN_FILE, HISTORY_VERSION_MISMATCH,
    /// HISTORY_DAMAGED, with the file as it was; HISTORY_BAD_PATH, nothing made and nothing waited for;
    /// HISTORY_REFUSED when the time zone of `options` has a zero byte;
    /// HISTORY_FAILED when it cannot be created, read or written; HISTORY_BUSY.
    int open(std::string const& path, RecorderOptions const& options = {}, Timeout timeout = kDefaultTimeout);

    /// Ends recording: calls that come now give HISTORY_INVALID_STATE, those under way are waited for, and what was
    /// posted or counted is recorded, for as long as `timeout`; an attempt under way then is given half a second more.
    /// HISTORY_OK; HISTORY_FAILED when that was not possible for all of it, with the recorder closed all the same;
    /// HISTORY_INVALID_STATE when not open.
    int close(Timeout timeout = kDefaultTimeout);

    /// Writes a row for `event` and sets the state of its triple to `event.status`.
    ///
    /// HISTORY_OK with the row's key; HISTORY_REFUSED, before anything is written, for a text with a zero byte, a code
    /// beyond 32 bits or a time beyond 2^63 - 1, and where a trigger or a constraint of the file forbids the row, or a
    /// trigger fails at it;
    /// HISTORY_INVALID_STATE, HISTORY_FAILED, HISTORY_BUSY, HISTORY_UNKNOWN, HISTORY_DAMAGED, HISTORY_CANCELLED.
    Receipt record(FaultEvent const& event, Timeout timeout = kDefaultTimeout);

    /// As `record`, with the status active, unless the triple is active: HISTORY_UNCHANGED, with the key of the row
    /// that made it so.
    Receipt raise(FaultEvent const& event, Timeout timeout = kDefaultTimeout);

    /// As `record`, with the status inactive, unless the triple is not active: HISTORY_UNCHANGED.
    Receipt clear(FaultEvent const& event, Timeout timeout = kDefaultTimeout);

    /// As if as many threads called `record`, one for each of `events`, in their order: they share commits, and one
    /// that is refused or fails leaves the others alone. `receipts` gets one for each. Returns the first
    /// receipt's result that is below 0; without one, the first above 0; HISTORY_OK when all are recorded.
    int recordAll(std::vector<FaultEvent> const& events, std::vector<Receipt>& receipts,
                  Timeout timeout = kDefaultTimeout);

    /// Takes `event` into a queue, from which a thread of the recorder records it as `record` does. It tries again
    /// while the file is locked or its storage fails; an event that a rule of the file forbids is lost. An edge that is
    /// asked for meanwhile does not know of it: `flush` comes first. `timeout` is for RecorderOptions::doesPostWait.
    /// HISTORY_QUEUED; HISTORY_COUNTED; HISTORY_QUEUE_FULL; HISTORY_REFUSED; HISTORY_INVALID_STATE; HISTORY_FAILED when
    /// no thread can be had; HISTORY_CANCELLED while it waited for room.
    int post(FaultEvent const& event, Timeout timeout = kDefaultTimeout);

    /// Waits until all that was posted and counted before is on the storage. A storm gets its row.
    /// HISTORY_OK; HISTORY_BUSY when the time has passed, HISTORY_CANCELLED, HISTORY_FAILED when storing failed: `left`
    /// then says how many posted events are not recorded, which are still tried, and how many were lost since a `flush`
    /// told of such; HISTORY_INVALID_STATE.
    int flush(std::uint64_t& left, Timeout timeout = kDefaultTimeout);

    /// Ends every active triple of the code of `event`: writes a row for each as `clear` does, with the texts, times
    /// and start-up of `event` and the triple's module and parameter. Where the statistic is active and no triple is,
    /// one row with the module and parameter of `event` ends it. HISTORY_OK, with the rows' keys in `keys`;
    /// HISTORY_UNCHANGED when nothing of the code is active; otherwise as `record`.
    int clearCode(FaultEvent const& event, std::vector<unsigned long long>& keys, Timeout timeout = kDefaultTimeout);

    /// Records what was posted and counted before, then counts a further cycle of every active code, see above.
    /// HISTORY_OK; otherwise as `record`.
    int endCycle(Timeout timeout = kDefaultTimeout);

    /// The start-up id that is recorded under; 0 when not open.
    unsigned int startupId() const;

    /// Numbers since `open`.
    struct Counters
    {
        std::uint64_t recorded = 0; ///< rows
        std::uint64_t groups = 0;   ///< commits that stored something
        std::uint64_t refused = 0;  ///< events, codes and cycles that got a result below 0
        std::uint64_t counted = 0;  ///< events in storms, without a row
        std::uint64_t pruned = 0;   ///< rows that were removed
        std::uint64_t queued = 0;   ///< posted events that are not recorded yet
    };
    Counters counters() const; ///< as of now

    /// The problem of the last call that failed, by any thread, with the name of the file; empty before the first.
    std::string lastProblem() const;

private:
    class Core;

    FIRAIM_HIDDEN bool isForked() const;

    std::unique_ptr<Core> m_core;
    int m_ownerPid;
};

} // namespace firaim
