#include <db/TimeLimits.h>

#include <sqlite3.h>

namespace
{

using steadyClock_t = std::chrono::steady_clock;

/// SQLite's own handler waits up to 100 ms between two tries. A process that writes without a pause leaves gaps of far
/// less than that, and others could wait in vain for all of their time. Who has waited for long tries more often, and
/// so comes before those who have just begun to.
constexpr int kPauseMs = 5;
constexpr int kLatePauseMs = 1;
constexpr std::chrono::milliseconds kLate(400);

/// How many steps of SQLite's virtual machine pass between two looks at the clock: a fraction of a millisecond.
constexpr int kStepsPerLook = 10'000;

/// The wait of one thread for a lock.
struct wait_t
{
    steadyClock_t::time_point begin;
    std::chrono::milliseconds slept;
    int onceCount; ///< how many WaitInVainOnce live
    bool wasInVain;
};
thread_local wait_t currentWait;

int onBusy(void*, int tries)
{
    wait_t& wait = currentWait;
    if (wait.onceCount != 0 && wait.wasInVain)
    {
        return 0;
    }
    if (tries == 0)
    {
        wait.begin = steadyClock_t::now();
        wait.slept = {};
    }
    // The clock, because a pause can be longer than asked for; the sum, because the file system decides what a pause
    // is.
    if (wait.slept >= timeLimits::kPatience || steadyClock_t::now() - wait.begin >= timeLimits::kPatience)
    {
        wait.wasInVain = true;
        return 0;
    }
    wait.slept += std::chrono::milliseconds(sqlite3_sleep(wait.slept < kLate ? kPauseMs : kLatePauseMs));
    return 1;
}

thread_local timeLimits::StatementWatch* innermostWatch = nullptr;

} // namespace

void timeLimits::waitForLocks(sqlite3* db)
{
    static_cast<void>(sqlite3_busy_handler(db, onBusy, nullptr));
}

timeLimits::WaitInVainOnce::WaitInVainOnce()
{
    if (currentWait.onceCount++ == 0)
    {
        currentWait.wasInVain = false;
    }
}

timeLimits::WaitInVainOnce::~WaitInVainOnce()
{
    --currentWait.onceCount;
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
    sqlite3_progress_handler(m_db, kStepsPerLook, onProgress, this);
}

int timeLimits::StatementWatch::onAccess(void* self, int action, char const*, char const*, char const*,
                                         char const* schemaPart)
{
    auto& watch = *static_cast<StatementWatch*>(self);
    watch.m_hasSchemaPart = watch.m_hasSchemaPart || schemaPart != nullptr;
    if (watch.isOverdue())
    {
        return SQLITE_DENY; // Views of views can keep the compiler busy, too.
    }
    if (action == SQLITE_PRAGMA && watch.m_ignoresPragmas)
    {
        watch.m_hasIgnoredPragma = true;
        return SQLITE_IGNORE;
    }
    return SQLITE_OK;
}

int timeLimits::StatementWatch::onProgress(void* self)
{
    auto& watch = *static_cast<StatementWatch*>(self);
    if (!watch.m_isRunning)
    {
        watch.m_isRunning = true;
        watch.m_begin.reset(); // What was spent on compiling, and on waiting for a lock, does not count.
    }
    return watch.isOverdue() ? 1 : 0;
}

bool timeLimits::StatementWatch::isOverdue()
{
    if (!m_hasSchemaPart)
    {
        return false;
    }
    auto const now = steadyClock_t::now();
    if (!m_begin)
    {
        m_begin = now;
    }
    return now - *m_begin >= kPatience;
}
