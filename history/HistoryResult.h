#pragma once

#include <db/Export.h>

namespace firaim
{

/// Result codes of FaultRecorder, FaultReader and what they hand out, returned as a plain int. Numbers never change
/// their meaning. Above 0: all is well, and the code says what there was to do; below 0: it was not done.
enum HistoryResult : int
{
    /// Done; what was recorded is on the storage.
    HISTORY_OK = 0,
    /// An edge that is none: what was to be raised is active, or what was to be cleared is not. Nothing was written.
    HISTORY_UNCHANGED = 1,
    /// In a storm: counted, without a row of its own, and on the storage within 1 s.
    HISTORY_COUNTED = 2,
    /// There is no further row.
    HISTORY_END = 3,
    /// There is no row with that key, or no statistic of that code.
    HISTORY_NOT_FOUND = 4,
    /// Followed rows were removed, by trimming for example; those that are there go on.
    HISTORY_ROWS_REMOVED = 5,
    /// The followed file was replaced by another one, or its content was; it is followed from its beginning.
    HISTORY_FILE_REPLACED = 6,
    /// Taken into the queue; it will be recorded.
    HISTORY_QUEUED = 7,

    /// Cannot be done now: not open, open already, or a call of the parent's recorder in a forked child.
    HISTORY_INVALID_STATE = -1,
    /// The storage, SQLite or memory failed; nothing of it is stored.
    HISTORY_FAILED = -2,
    /// A fault database of another format version. It is left as it is.
    HISTORY_VERSION_MISMATCH = -5,
    /// The event itself cannot be what is meant: a text with a zero byte, a number that is too large. Or a rule of the
    /// file, a trigger or a constraint, forbids it, or a trigger fails at it; nothing of it is stored.
    HISTORY_REFUSED = -6,
    /// Another process kept the file locked for as long as was waited; nothing of it is stored.
    HISTORY_BUSY = -7,
    /// The storage failed in the last steps of a commit. The file cannot be read to see what became of it, or what is
    /// found there cannot be made sure of.
    HISTORY_UNKNOWN = -8,
    /// Another program's file, or no database at all. It is left as it is.
    HISTORY_FOREIGN_FILE = -9,
    /// A fault database whose content is damaged.
    HISTORY_DAMAGED = -10,
    /// There is no file of that name.
    HISTORY_NO_FILE = -11,
    /// The name is that of a folder, a device, a pipe, a link to nowhere, or no name at all.
    HISTORY_BAD_PATH = -12,
    /// The queue of posted events is full; the event was not taken.
    HISTORY_QUEUE_FULL = -13,
    /// An unfinished transaction must be rolled back before the file can be read, and that writes to it.
    HISTORY_HOT_JOURNAL = -14,
    /// Faults are in a write-ahead log that cannot be read where nothing can be written.
    HISTORY_LOG_UNREADABLE = -15,
    /// The call was told to end while it waited; nothing of it is stored.
    HISTORY_CANCELLED = -16
};

/// The name of a result code without its prefix, "BUSY" for example; "?" for a number that is none. Never null.
FIRAIM_EXPORT char const* historyResultName(int result);

} // namespace firaim
