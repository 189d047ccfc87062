#pragma once

#include <history/internal/Deadline.h>
#include <history/internal/Failure.h>
#include <history/internal/RecorderConnection.h>
#include <history/internal/Request.h>
#include <history/internal/RowWriter.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace firaim
{

/// Writes groups of requests, each group in one transaction, and decides the result of each request when that fails.
/// One thread at a time uses it.
class GroupWriter
{
public:
    GroupWriter(std::string path, RecorderOptions const& options);
    GroupWriter(GroupWriter const&) = delete;
    GroupWriter& operator=(GroupWriter const&) = delete;

    using Timeout = RecorderConnection::Timeout;

    /// Opens the file. Throws Failure; it may be called again.
    void open(Timeout timeout);

    /// Begins the transaction of a group, waiting up to `timeout` for other connections. Reopens the file if its
    /// connection was lost. Throws Failure.
    void begin(Timeout timeout, bool needsSources);

    /// Writes the requests of a group and commits, waiting up to `timeout` for readers. Each request gets its own
    /// result; throws nothing.
    void write(std::vector<Request*> const& group, Timeout timeout);

    /// As in RowWriter.
    unsigned int startupId() const { return m_rows.startupId(); }
    std::uint64_t pruned() const { return m_rows.pruned(); }
    /// The number of commits that stored something.
    std::uint64_t groups() const { return m_groups; }
    bool needsSources(Request const& request) { return m_rows.needsSources(request); }
    /// Whether writing the request requires reading the active triples first. Only the leading call may ask.
    bool needsReading(Request const& request) noexcept;

private:
    void beginWithSources();
    void writeUntil(std::vector<Request*> const& group, deadline::TimePoint end);
    void tryToWrite(std::vector<Request*> const& group, deadline::TimePoint end);
    void abandon(std::vector<Request*> const& group, char const* problem);
    void failOne(Request& request, int result, char const* problem) const;
    void writeTogether(std::vector<Request*> const& group);
    void resolveFailedTrigger(Request& request, sqlite::Error const& error, deadline::TimePoint end);
    void writeWithoutPruning(std::vector<Request*> const& group, deadline::TimePoint end);
    void writeEachAlone(std::vector<Request*> const& group, deadline::TimePoint end);
    void commit(std::vector<Request*> const& group);
    void rollBack();
    void resolveCommit(std::vector<Request*> const& group, sqlite::Error const& error);
    void fail(std::vector<Request*> const& group, Failure const& failure);

    RecorderOptions const m_options;
    RowWriter m_rows;
    RecorderConnection m_connection;
    bool m_isPruning = false;
    bool m_isPruningOff = false;
    int m_changesBefore = 0; ///< rows that the connection had changed before this group
    bool m_hasWritten = false;
    std::uint64_t m_groups = 0;  ///< see `groups`
    bool m_isCommitting = false; ///< from now on, a failure does not mean that nothing was stored
};

} // namespace firaim
