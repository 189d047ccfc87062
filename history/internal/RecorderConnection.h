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

/// The connection that a recorder writes through. It opens the file as often as that is needed, sets aside what is
/// damaged, puts on the storage what a failed commit has left in doubt, and ends triggers that run too long. One thread
/// at a time uses it.
class RecorderConnection
{
public:
    using Timeout = std::chrono::milliseconds;

    /// `options` and `rows` must outlive this object; `rows` is connected for as long as this is open.
    RecorderConnection(std::string path, RecorderOptions const& options, RowWriter& rows);
    ~RecorderConnection();
    RecorderConnection(RecorderConnection const&) = delete;
    RecorderConnection& operator=(RecorderConnection const&) = delete;

    /// Opens the file unless it is open. Damage counts as such when it is seen twice: once may be a mishap of reading.
    /// Returns whether the file was set aside and holds nothing of before. Throws Failure; it can be called again.
    bool open(Timeout timeout);
    void close();
    bool isOpen() const { return m_connection.has_value(); }
    bool isInTransaction() const { return m_connection && m_connection->isInTransaction(); }

    std::string const& path() const { return m_path; }
    sqlite::Connection const& get() const { return *m_connection; }

    /// The next waits for others end then, at the latest.
    void waitUntil(deadline::TimePoint end) const;
    /// Begins a write transaction in the file that has the name now. Throws sqlite::Error.
    void begin();
    /// Throws sqlite::Error.
    void commit() { m_commit.run(); }
    /// Closes where rolling back fails: the next connection does it. Needs no memory.
    void rollBack();

    /// From here on to `endWork`, the processor works on this thread's group for at most 5 s: only triggers that the
    /// file brings along take that long. SQLite ends them with SQLITE_INTERRUPT.
    void beginWork();
    void endWork() { m_workBegin.reset(); }
    bool isAtWork() const { return m_workBegin.has_value(); }

    /// The failure that the caller gets for an error; damage is remembered.
    Failure failureOf(sqlite::Error const& error);
    /// A commit has succeeded, so what looked like damage was none.
    void forgetDamage() { m_damagesSeen = 0; }

    /// A commit has failed, and what it left in the file may be in the system's memory alone: `makeDurable` is due
    /// before anything is written or acknowledged.
    void doubtSync() { m_isSyncInDoubt = true; }
    /// The changes of the failed commit are not in the file: makes sure that they do not come back. Throws
    /// sqlite::Error.
    void dropLost();
    /// Puts on the storage what is in doubt, if anything is. Throws sqlite::Error.
    void makeDurable();

private:
    void keepToFile();
    void openOnce(sqlite::Waiting const& waiting);
    void noteFile();
    bool setAsideNow(sqlite::Waiting const& waiting);
    void recordIncident(sqlite::Connection const& connection, std::string const& text);

    static int onProgress(void* self);

    std::string m_path; ///< as the caller has it, until that means another file
    std::string const m_absolutePath;
    RecorderOptions const& m_options;
    RowWriter& m_rows;
    std::optional<sqlite::Connection> m_connection;
    dev_t m_device = 0; ///< of the file that was opened last
    ino_t m_inode = 0;  ///< see m_device
    sqlite::Statement m_begin;
    sqlite::Statement m_commit;
    int m_damagesSeen = 0;                               ///< without a success in between
    std::string m_damage;                                ///< what SQLite said of the last one
    std::optional<std::chrono::nanoseconds> m_workBegin; ///< processor time of this thread
    bool m_isSyncInDoubt = false;
};

} // namespace firaim
