#pragma once

#include <db/Export.h>
#include <db/internal/LockWait.h>

#include <chrono>
#include <optional>

struct sqlite3;

/// Limits how long an operation waits for other processes, and how long the file's own triggers and views may run.
namespace timeLimits
{

/// The processor time of a statement with a trigger or a view.
constexpr std::chrono::seconds kStatementLimit = lockWait::kBusyTimeout;

/// Makes the statements of this connection wait for locks of other processes.
FIRAIM_HIDDEN void waitForLocks(sqlite3* db);

/// While it lives, this thread uses up at most one busy timeout and one statement limit. After a statement has waited
/// in vain for a lock, later ones do not wait; after a statement was interrupted, later ones are interrupted at once.
/// So many rows that cannot be written take no longer than one.
class FIRAIM_EXPORT TimeOutOnce
{
public:
    TimeOutOnce();
    ~TimeOutOnce();
    TimeOutOnce(TimeOutOnce const&) = delete;
    TimeOutOnce& operator=(TimeOutOnce const&) = delete;
};

/// Limits the statements that are compiled and run on a connection during its lifetime. It must outlive them.
///
/// The triggers and views of a file are untrusted: one that does not end, by accident or intent, is interrupted as
/// SQLite interrupts statements, and its statement changes nothing. SQLite reports the terms of a WITH clause like
/// views, so a statement with a WITH clause is limited as well. All other statements run as long as they need.
class FIRAIM_EXPORT StatementWatch
{
public:
    explicit StatementWatch(sqlite3* db);
    ~StatementWatch();
    StatementWatch(StatementWatch const&) = delete;
    StatementWatch& operator=(StatementWatch const&) = delete;

    /// Makes PRAGMAs that set something compile to nothing: many of them act when they are compiled. Off at first.
    FIRAIM_HIDDEN void ignorePragmas(bool isOn) { m_ignoresPragmas = isOn; }
    FIRAIM_HIDDEN bool hasIgnoredPragma() const { return m_hasIgnoredPragma; }

    /// Call these around work that is not the statement's own, such as its row callback.
    FIRAIM_HIDDEN void pause();
    FIRAIM_HIDDEN void resume();

private:
    /// Processor time of this thread: waiting for locks or for the storage is not the file's fault.
    using Duration = std::chrono::nanoseconds;

    FIRAIM_HIDDEN static Duration now();
    FIRAIM_HIDDEN static int onAccess(void* self, int action, char const*, char const* argument, char const*,
                                      char const* schemaPart);
    FIRAIM_HIDDEN static int onProgress(void* self);
    FIRAIM_HIDDEN void install();
    FIRAIM_HIDDEN bool isOverdue() const;

    sqlite3* m_db;
    StatementWatch* m_outer;         ///< of the statement whose row callback runs this one
    std::optional<Duration> m_begin; ///< time of the first trigger or view
    Duration m_pauseBegin{};
    bool m_ignoresPragmas = false;
    bool m_hasIgnoredPragma = false;
};

} // namespace timeLimits
