#include <db/internal/TimeLimits.h>

#include <ctime>

#include <sqlite3.h>

namespace
{

/// Steps of SQLite's virtual machine between two readings of the clock. Some steps take long.
constexpr int kStepsPerCheck = 250;

/// The lock wait of one thread, and its limits.
struct WaitState
{
    lockWait::LockWait wait;
    int onceCount; ///< number of living TimeOutOnce objects
    bool hasTimedOut;
    bool wasInterrupted;
};
thread_local WaitState waitState;

int onBusy(void*, int tries)
{
    if (waitState.onceCount != 0 && waitState.hasTimedOut)
    {
        return 0;
    }
    bool const goesOn = waitState.wait.pause(tries, lockWait::kBusyTimeout);
    waitState.hasTimedOut = waitState.hasTimedOut || !goesOn;
    return goesOn ? 1 : 0;
}

thread_local timeLimits::StatementWatch* innermostWatch = nullptr;

} // namespace

void timeLimits::waitForLocks(sqlite3* db)
{
    static_cast<void>(sqlite3_busy_handler(db, onBusy, nullptr));
}

timeLimits::TimeOutOnce::TimeOutOnce()
{
    if (waitState.onceCount++ == 0)
    {
        waitState.hasTimedOut = false;
        waitState.wasInterrupted = false;
    }
}

timeLimits::TimeOutOnce::~TimeOutOnce()
{
    --waitState.onceCount;
}

timeLimits::StatementWatch::StatementWatch(sqlite3* db) : m_db(db), m_outer(innermostWatch)
{
    innermostWatch = this;
    install();
}

timeLimits::StatementWatch::~StatementWatch()
{
    static_cast<void>(sqlite3_set_authorizer(m_db, nullptr, nullptr));
    sqlite3_progress_handler(m_db, 0, nullptr, nullptr);
    innermostWatch = m_outer;
    if (m_outer != nullptr)
    {
        m_outer->install();
    }
}

void timeLimits::StatementWatch::install()
{
    static_cast<void>(sqlite3_set_authorizer(m_db, onAccess, this));
    sqlite3_progress_handler(m_db, kStepsPerCheck, onProgress, this);
}

void timeLimits::StatementWatch::pause()
{
    if (m_begin)
    {
        m_pauseBegin = now();
    }
}

void timeLimits::StatementWatch::resume()
{
    if (m_begin)
    {
        *m_begin += now() - m_pauseBegin;
    }
}

timeLimits::StatementWatch::Duration timeLimits::StatementWatch::now()
{
    timespec time = {};
    static_cast<void>(clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time)); // Every Linux has this clock.
    return std::chrono::seconds(time.tv_sec) + Duration(time.tv_nsec);
}

int timeLimits::StatementWatch::onAccess(void* self, int action, char const*, char const* argument, char const*,
                                         char const* schemaPart)
{
    auto& watch = *static_cast<StatementWatch*>(self);
    if (schemaPart != nullptr && !watch.m_begin)
    {
        watch.m_begin = now();
    }
    if (watch.isOverdue())
    {
        return SQLITE_DENY; // Nested views can also keep the compiler busy.
    }
    if (action == SQLITE_PRAGMA && argument != nullptr && watch.m_ignoresPragmas)
    {
        watch.m_hasIgnoredPragma = true;
        return SQLITE_IGNORE;
    }
    return SQLITE_OK;
}

int timeLimits::StatementWatch::onProgress(void* self)
{
    return static_cast<StatementWatch*>(self)->isOverdue() ? 1 : 0;
}

bool timeLimits::StatementWatch::isOverdue() const
{
    if (!m_begin)
    {
        return false;
    }
    if (waitState.onceCount != 0 && waitState.wasInterrupted)
    {
        return true;
    }
    bool const result = now() - *m_begin >= kStatementLimit;
    waitState.wasInterrupted = waitState.wasInterrupted || result;
    return result;
}
