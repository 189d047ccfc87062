#pragma once

#include <history/internal/Deadline.h>
#include <history/internal/Failure.h>
#include <history/internal/RowWriter.h>

#include <chrono>
#include <optional>
#include <string>

#include <sys/types.h>

namespace firaim
{

/// The connection that a recorder writes through. Reopens the file when needed, sets a damaged file aside, makes the
/// outcome of a failed commit durable, and ends triggers that run too long. One thread at a time uses it.
class RecorderConnection
{
public:
    using Timeout = std::chrono::milliseconds;

    /// `options` and `rows` must outlive this object; `rows` is connected while this is open.
    RecorderConnection(std::string path, RecorderOptions const& options, RowWriter& rows);
    ~RecorderConnection();
    RecorderConnection(RecorderConnection const&) = delete;
    RecorderConnection& operator=(RecorderConnection const&) = delete;

    /// Opens the file unless it is open. Damage must be seen twice: once may be a read error. Returns whether the file
    /// was set aside and has lost its old content. Throws Failure; it may be called again.
    bool open(Timeout timeout);
    void close();
    bool isOpen() const { return m_connection.has_value(); }
    bool isInTransaction() const { return m_connection && m_connection->isInTransaction(); }

    std::string const& path() const { return m_path; }
    sqlite::Connection const& get() const { return *m_connection; }

    /// Sets the deadline of later waits for other connections.
    void waitUntil(deadline::TimePoint end) const;
    /// Begins a write transaction, in the file that has the name now. Throws sqlite::Error.
    void begin();
    /// Throws sqlite::Error.
    void commit() { m_commit.run(); }
    /// Rolls back; if that fails, closes the connection, and the next one rolls back. Needs no memory.
    void rollBack();

    /// Until `endWork`, this thread may use 5 s of processor time for its group: only triggers of the file take that
    /// long. SQLite ends them with SQLITE_INTERRUPT.
    void beginWork();
    void endWork() { m_workBegin.reset(); }
    bool isAtWork() const { return m_workBegin.has_value(); }

    /// The failure to report for an error. Counts damage.
    Failure failureOf(sqlite::Error const& error);
    /// Resets the count of damage: a commit has succeeded, so there was none.
    void forgetDamage() { m_damagesSeen = 0; }

    /// A commit has failed, and its changes may be in the system's memory only: `makeDurable` must come before anything
    /// else is written or acknowledged.
    void setSyncDoubtful() { m_isSyncInDoubt = true; }
    /// The changes of the failed commit are not in the file: makes sure that they do not come back. Throws
    /// sqlite::Error.
    void dropLost();
    /// Makes doubtful changes durable, if there are any. Throws sqlite::Error.
    void makeDurable();

private:
    void pinPath();
    void openOnce(sqlite::Waiting const& waiting);
    void updateIdentity();
    bool rollBackNow() const;
    void emptyLog() const;
    bool setAsideNow(sqlite::Waiting const& waiting);
    void recordIncident(sqlite::Connection const& connection, std::string const& text);

    static int onProgress(void* self);

    std::string m_path; ///< the caller's path, while it names the same file
    std::string const m_absolutePath;
    RecorderOptions const& m_options;
    RowWriter& m_rows;
    std::optional<sqlite::Connection> m_connection;
    dev_t m_device = 0; ///< of the file opened last
    ino_t m_inode = 0;  ///< of the file opened last
    sqlite::Statement m_begin;
    sqlite::Statement m_commit;
    int m_damagesSeen = 0;                               ///< since the last success
    std::string m_damage;                                ///< SQLite's message for the last one
    std::optional<std::chrono::nanoseconds> m_workBegin; ///< in processor time of this thread
    bool m_isSyncInDoubt = false;
};

} // namespace firaim
