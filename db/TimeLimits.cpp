#include <db/TimeLimits.h>

#include <ctime>

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

/// How many steps of SQLite's virtual machine pass between two looks at the clock. Some steps are heavy.
constexpr int kStepsPerLook = 250;

/// What one thread has been waiting for, and for how long.
struct patience_t
{
    steadyClock_t::time_point waitBegin;
    std::chrono::milliseconds slept;
    int onceCount; ///< how many LosePatienceOnce live
    bool waitedInVain;
    bool wasInterrupted;
};
thread_local patience_t patience;

int onBusy(void*, int tries)
{
    if (patience.onceCount != 0 && patience.waitedInVain)
    {
        return 0;
    }
    if (tries == 0)
    {
        patience.waitBegin = steadyClock_t::now();
        patience.slept = {};
    }
    // The clock, because a pause can be longer than asked for; the sum, because the file system decides what a pause
    // is.
    if (patience.slept >= timeLimits::kPatience || steadyClock_t::now() - patience.waitBegin >= timeLimits::kPatience)
    {
        patience.waitedInVain = true;
        return 0;
    }
    patience.slept += std::chrono::milliseconds(sqlite3_sleep(patience.slept < kLate ? kPauseMs : kLatePauseMs));
    return 1;
}

thread_local timeLimits::StatementWatch* innermostWatch = nullptr;

} // namespace

void timeLimits::waitForLocks(sqlite3* db)
{
    static_cast<void>(sqlite3_busy_handler(db, onBusy, nullptr));
}

timeLimits::LosePatienceOnce::LosePatienceOnce()
{
    if (patience.onceCount++ == 0)
    {
        patience.waitedInVain = false;
        patience.wasInterrupted = false;
    }
}

timeLimits::LosePatienceOnce::~LosePatienceOnce()
{
    --patience.onceCount;
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

timeLimits::StatementWatch::duration_t timeLimits::StatementWatch::now()
{
    timespec time = {};
    static_cast<void>(clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time)); // Every Linux has this clock.
    return std::chrono::seconds(time.tv_sec) + duration_t(time.tv_nsec);
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
        return SQLITE_DENY; // Views of views can keep the compiler busy, too.
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
    if (patience.onceCount != 0 && patience.wasInterrupted)
    {
        return true;
    }
    bool const result = now() - *m_begin >= kPatience;
    patience.wasInterrupted = patience.wasInterrupted || result;
    return result;
}
