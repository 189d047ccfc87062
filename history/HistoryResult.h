#pragma once

#include <db/Export.h>

namespace firaim
{

/// Result codes of FaultRecorder, FaultReader, their cursors and followers, returned as a plain int. Numbers never
/// change their meaning. Above 0: the call succeeded, and the code says in which way. Below 0: the call failed.
enum HistoryResult : int
{
    /// Done; what was recorded is on the storage.
    HISTORY_OK = 0,
    /// `raise` of an active triple, or `clear` of an inactive one. Nothing was written.
    HISTORY_UNCHANGED = 1,
    /// The event is part of a storm: counted without a row of its own, and on the storage within 1 s.
    HISTORY_COUNTED = 2,
    /// There is no further row.
    HISTORY_END = 3,
    /// There is no row with that key, or no statistic of that code.
    HISTORY_NOT_FOUND = 4,
    /// Followed rows were removed, by trimming for example; following continues with the rows that exist.
    HISTORY_ROWS_REMOVED = 5,
    /// The followed file or its content was replaced; following continues from the beginning of the new one.
    HISTORY_FILE_REPLACED = 6,
    /// Taken into the queue; it will be recorded.
    HISTORY_QUEUED = 7,

    /// Not possible now: not open, open already, or a call in a forked child on the parent's recorder.
    HISTORY_INVALID_STATE = -1,
    /// The storage, SQLite or memory failed; nothing of the call is stored.
    HISTORY_FAILED = -2,
    /// A fault database of another format version; it is left unchanged.
    HISTORY_VERSION_MISMATCH = -5,
    /// The event is invalid: a text has a zero byte, or a number is too large. Or a trigger or a constraint of the file
    /// forbids it, or a trigger fails at it. Nothing of it is stored.
    HISTORY_REFUSED = -6,
    /// The file, or another call of the recorder, was not free within the timeout. No event with this result is stored.
    HISTORY_BUSY = -7,
    /// The storage failed in the last steps of a commit, and the file cannot be read to see whether the commit is
    /// stored, or the content found there cannot be made durable.
    HISTORY_UNKNOWN = -8,
    /// The file belongs to another program or is no database; it is left unchanged.
    HISTORY_FOREIGN_FILE = -9,
    /// A fault database whose content is damaged.
    HISTORY_DAMAGED = -10,
    /// There is no file of that name.
    HISTORY_NO_FILE = -11,
    /// The path names a folder, a device, a pipe or a link to nowhere, or is no file name at all.
    HISTORY_BAD_PATH = -12,
    /// The queue of posted events is full; the event was not taken.
    HISTORY_QUEUE_FULL = -13,
    /// A transaction in the journal must be rolled back before the file can be read, and that would write to the file.
    HISTORY_HOT_JOURNAL = -14,
    /// Faults are in a write-ahead log that cannot be read where nothing can be written.
    HISTORY_LOG_UNREADABLE = -15,
    /// The call was cancelled while it waited; nothing of it is stored.
    HISTORY_CANCELLED = -16
};

/// The name of a result code without its prefix, for example "BUSY"; "?" for any other number. Never null.
FIRAIM_EXPORT char const* historyResultName(int result);

} // namespace firaim
