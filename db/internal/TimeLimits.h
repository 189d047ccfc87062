#pragma once

#include <db/Export.h>
#include <db/internal/LockWait.h>

#include <chrono>
#include <optional>

struct sqlite3;

/// Keeps an operation from taking for ever: limits how long it waits for other processes, and how long the file's own
/// triggers and views may run.
namespace timeLimits
{

/// How long the processor may work on a statement with a trigger or a view in it.
constexpr std::chrono::seconds kStatementLimit = lockWait::kBusyTimeout;

/// From now on the statements of this connection wait for locks of other processes.
FIRAIM_HIDDEN void waitForLocks(sqlite3* db);

/// While it lives, this thread waits for one busy timeout at most, and for one statement limit: once a statement has
/// waited in vain for a lock, later ones do not wait, and once a statement has been interrupted, later ones are
/// interrupted at once. Many rows that cannot be written then take no longer than one of them.
class FIRAIM_EXPORT TimeOutOnce
{
public:
    TimeOutOnce();
    ~TimeOutOnce();
    TimeOutOnce(TimeOutOnce const&) = delete;
    TimeOutOnce& operator=(TimeOutOnce const&) = delete;
};

/// Limits the statements that are compiled and run on a connection while it lives. It must outlive them.
///
/// The triggers and views of a file are the file's, not ours: one that does not end, by chance or by intent, is
/// interrupted as SQLite interrupts statements, and its statement changes nothing. SQLite names the terms of a WITH
/// clause as it names views, so a statement with those is limited as well. All others run as long as they need.
class FIRAIM_EXPORT StatementWatch
{
public:
    explicit StatementWatch(sqlite3* db);
    ~StatementWatch();
    StatementWatch(StatementWatch const&) = delete;
    StatementWatch& operator=(StatementWatch const&) = delete;

    /// Whether PRAGMAs that set something are compiled to nothing: many of them act when they are compiled. Off at
    /// first.
    FIRAIM_HIDDEN void ignorePragmas(bool isOn) { m_ignoresPragmas = isOn; }
    FIRAIM_HIDDEN bool hasIgnoredPragma() const { return m_hasIgnoredPragma; }

    /// Called around work that is not the statement's own, as its row callback.
    FIRAIM_HIDDEN void pause();
    FIRAIM_HIDDEN void resume();

private:
    /// The processor's time on this thread: waiting for locks or for the storage is not the file's fault.
    using Duration = std::chrono::nanoseconds;

    FIRAIM_HIDDEN static Duration now();
    FIRAIM_HIDDEN static int onAccess(void* self, int action, char const*, char const* argument, char const*,
                                      char const* schemaPart);
    FIRAIM_HIDDEN static int onProgress(void* self);
    FIRAIM_HIDDEN void install();
    FIRAIM_HIDDEN bool isOverdue() const;

    sqlite3* m_db;
    StatementWatch* m_outer;         ///< of the statement whose row callback runs this one
    std::optional<Duration> m_begin; ///< when the first trigger or view was met
    Duration m_pauseBegin{};
    bool m_ignoresPragmas = false;
    bool m_hasIgnoredPragma = false;
};

} // namespace timeLimits
