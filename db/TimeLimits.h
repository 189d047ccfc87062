#pragma once

#include <db/Export.h>

#include <chrono>
#include <optional>

struct sqlite3;

/// What keeps an operation from taking for ever: how long it waits for other processes, and how long the file's own
/// triggers and views may run. Internal to the libraries.
namespace timeLimits
{

/// How long a statement waits for a lock, and how long one with a trigger or a view in it may run.
constexpr std::chrono::seconds kPatience(5);

/// From now on the statements of this connection wait for locks of other processes.
FIRAIM_HIDDEN void waitForLocks(sqlite3* db);

/// While it lives, this thread waits in vain only once: when one statement has waited as long as it may, those that
/// follow meet the lock without waiting. An operation of many statements takes no longer than one of them then.
class FIRAIM_EXPORT WaitInVainOnce
{
public:
    WaitInVainOnce();
    ~WaitInVainOnce();
    WaitInVainOnce(WaitInVainOnce const&) = delete;
    WaitInVainOnce& operator=(WaitInVainOnce const&) = delete;
};

/// Watches over the one statement that is compiled and run while it lives. It must outlive that statement.
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

    /// Whether statements that act when they are compiled, as many PRAGMAs do, are compiled to nothing. Off at first.
    FIRAIM_HIDDEN void ignorePragmas(bool isOn) { m_ignoresPragmas = isOn; }
    FIRAIM_HIDDEN bool hasIgnoredPragma() const { return m_hasIgnoredPragma; }

private:
    FIRAIM_HIDDEN static int onAccess(void* self, int action, char const*, char const*, char const*,
                                      char const* schemaPart);
    FIRAIM_HIDDEN static int onProgress(void* self);
    FIRAIM_HIDDEN void install();
    FIRAIM_HIDDEN bool isOverdue();

    sqlite3* m_db;
    StatementWatch* m_outer;                                      ///< of the statement whose row callback runs this one
    std::optional<std::chrono::steady_clock::time_point> m_begin; ///< of compiling, later of running
    bool m_hasSchemaPart = false;
    bool m_isRunning = false;
    bool m_ignoresPragmas = false;
    bool m_hasIgnoredPragma = false;
};

} // namespace timeLimits
