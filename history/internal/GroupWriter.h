#pragma once

#include <history/internal/Failure.h>
#include <history/internal/Request.h>
#include <history/internal/RowWriter.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>

namespace firaim
{

/// Writes groups of requests, each group in one transaction, and keeps the connection that this takes. One thread at a
/// time uses it.
class GroupWriter
{
public:
    GroupWriter(std::string path, RecorderOptions const& options);
    ~GroupWriter();
    GroupWriter(GroupWriter const&) = delete;
    GroupWriter& operator=(GroupWriter const&) = delete;

    using patience_t = std::chrono::milliseconds;

    /// Opens the file. Throws Failure; it can be called again.
    void open(patience_t patience);

    /// Begins the transaction of a group, waiting for others for so long; opens the file anew where that was lost.
    /// Throws Failure.
    void begin(patience_t patience, bool needsSources);

    /// Writes the requests of a group and commits, waiting for readers for so long. Each gets its own result; nothing
    /// is thrown.
    void write(std::vector<Request*> const& group, patience_t patience);

    /// As of RowWriter.
    unsigned int startupId() const { return m_rows.startupId(); }
    std::uint64_t pruned() const { return m_rows.pruned(); }
    /// How many commits have stored something.
    std::uint64_t groups() const { return m_groups; }
    bool needsSources(Request const& request) const { return m_rows.needsSources(request); }

private:
    using time_t = std::chrono::steady_clock::time_point;

    bool connect(patience_t patience);
    void connectOnce(sqlite::Waiting const& waiting);
    void noteDamage(int result, std::string const& damage);
    bool setAsideNow(sqlite::Waiting const& waiting);
    void recordIncident(sqlite::Connection const& connection, std::string const& text);
    void disconnect();
    void beginWithSources();
    void waitUntil(time_t end) const;

    void writeUntil(std::vector<Request*> const& group, time_t end);
    void tryToWrite(std::vector<Request*> const& group, time_t end);
    void abandon(std::vector<Request*> const& group, char const* problem);
    void failPlainly(Request& request, int result, char const* problem) const;
    void writeTogether(std::vector<Request*> const& group);
    void writeWithoutPruning(std::vector<Request*> const& group, time_t end);
    void writeEachAlone(std::vector<Request*> const& group, time_t end);
    void commit(std::vector<Request*> const& group);
    void rollBack();
    void settle(std::vector<Request*> const& group, sqlite::Error const& error);
    void makeDurable();
    void fail(std::vector<Request*> const& group, Failure const& failure);

    static int onProgress(void* self);

    std::string const m_path;
    RecorderOptions const m_options;
    std::optional<sqlite::Connection> m_connection;
    dev_t m_device = 0; ///< of the file that was opened last
    ino_t m_inode = 0;  ///< see m_device
    sqlite::Statement m_begin;
    sqlite::Statement m_commit;
    RowWriter m_rows;
    int m_damagesSeen = 0; ///< without a success in between
    std::string m_damage;  ///< what SQLite said of the last one
    bool m_isPruning = false;
    bool m_isPruningOff = false;
    bool m_isPruningTooSlow = false; ///< a trigger of the file keeps it from ending; not tried again until reconnected
    std::chrono::nanoseconds m_writeBegin{}; ///< processor time of this thread
    int m_changesBefore = 0;                 ///< rows that the connection had changed before this group
    bool m_hasWritten = false;
    std::uint64_t m_groups = 0; ///< see `groups`
    bool m_isWriting = false;
    bool m_isCommitting = false; ///< from here on, a failure does not say that nothing was stored
    /// A commit has failed, and what it left in the file may be in the system's memory alone. Nothing is written or
    /// acknowledged before that is mended.
    bool m_isSyncInDoubt = false;
};

} // namespace firaim
