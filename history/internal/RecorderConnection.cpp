#include <history/internal/RecorderConnection.h>

#include <db/internal/Folder.h>
#include <db/internal/ReadOnlyOpening.h>
#include <db/internal/SyncAgain.h>
#include <history/internal/RecorderFile.h>
#include <history/internal/SetAside.h>

#include <utility>

#include <sys/stat.h>
#include <time.h>

namespace firaim
{

namespace
{

/// Instructions of SQLite's virtual machine between two readings of the clock: some hundred microseconds.
constexpr int kInstructionsPerCheck = 10000;
constexpr std::chrono::seconds kLongestWork(5);
constexpr int kDamagesToBelieve = 2;

std::chrono::nanoseconds processorTime()
{
    timespec time = {};
    static_cast<void>(clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time)); // Every Linux has this clock.
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

} // namespace

RecorderConnection::RecorderConnection(std::string path, RecorderOptions const& options, RowWriter& rows)
    : m_path(std::move(path)), m_absolutePath(folder::absolutePath(m_path)), m_options(options), m_rows(rows)
{
}

RecorderConnection::~RecorderConnection()
{
    emptyLog();
    close();
}

bool RecorderConnection::open(Timeout timeout)
{
    sqlite::Waiting const waiting = {timeout, m_options.isCancelled};
    bool wasSetAside = false;
    bool isSetAsideDone = !m_options.setAsideCode; // Without a code, no file is set aside.
    while (!m_connection)
    {
        try
        {
            pinPath();
            if (m_damagesSeen >= kDamagesToBelieve && !isSetAsideDone)
            {
                m_damagesSeen = 0;
                isSetAsideDone = true;
                wasSetAside = setAsideNow(waiting);
            }
            openOnce(waiting);
        }
        catch (sqlite::Error const& error)
        {
            close();
            Failure const failure = failureOf(error);
            if (!isDamage(error) || (m_damagesSeen >= kDamagesToBelieve && isSetAsideDone))
            {
                m_damagesSeen = 0; // The next call again needs to see damage twice.
                throw failure;
            }
        }
        catch (std::exception const&) // Failure or std::bad_alloc.
        {
            close();
            throw;
        }
    }
    return wasSetAside;
}

/// After a change of the current folder, a relative path names another file: use the absolute one.
void RecorderConnection::pinPath()
{
    if (folder::absolutePath(m_path) != m_absolutePath)
    {
        m_path = m_absolutePath;
    }
}

void RecorderConnection::openOnce(sqlite::Waiting const& waiting)
{
    m_connection.emplace(openForRecording(m_path, m_options.journal, waiting));
    updateIdentity();
    sqlite3_progress_handler(m_connection->get(), kInstructionsPerCheck, onProgress, this);
    m_begin = m_connection->prepare("BEGIN IMMEDIATE");
    m_commit = m_connection->prepare("COMMIT");
    m_rows.connect(*m_connection);
}

/// Forgets what was read if the file is another one than before.
void RecorderConnection::updateIdentity()
{
    struct stat status = {};
    bool const isSame = stat(m_path.c_str(), &status) == 0 && status.st_dev == m_device && status.st_ino == m_inode;
    m_device = status.st_dev;
    m_inode = status.st_ino;
    if (!isSame)
    {
        m_rows.forget();
    }
}

void RecorderConnection::close()
{
    m_rows.disconnect();
    m_begin = {};
    m_commit = {};
    if (m_connection && m_connection->hasMoved())
    {
        rollBackNow(); // Otherwise the log cannot be emptied.
        emptyLog();    // It belongs to the moved file, and SQLite would apply it to another file of that name.
    }
    m_connection.reset();
}

Failure RecorderConnection::failureOf(sqlite::Error const& error)
{
    // If the file has moved, the wait for a lock has ended early.
    bool const hasMoved = error.kind() == SQLITE_BUSY && m_connection && m_connection->hasMoved();
    Failure failure(m_path, hasMoved ? sqlite::Error(nullptr, SQLITE_READONLY_DBMOVED) : error);
    if (failure.result() == HISTORY_DAMAGED)
    {
        ++m_damagesSeen;
        m_damage = error.what();
    }
    return failure;
}

/// Replaces the damaged content by a new one, whose first row gives the reason; returns whether that was necessary.
bool RecorderConnection::setAsideNow(sqlite::Waiting const& waiting)
{
    m_rows.forget();
    bool wasSetAside = false;
    try
    {
        wasSetAside = setAside(m_path, m_damage, waiting,
                               [this](sqlite::Connection const& connection, std::string const& text)
                               { recordIncident(connection, text); });
    }
    catch (std::exception const&)
    {
        m_rows.forget(); // The row of the incident was not stored.
        throw;
    }
    if (wasSetAside)
    {
        m_rows.committed();
    }
    m_rows.forget();
    return wasSetAside;
}

/// Writes the row into the new content, which is not in the file yet.
void RecorderConnection::recordIncident(sqlite::Connection const& connection, std::string const& text)
{
    FaultEvent event;
    event.code = *m_options.setAsideCode;
    event.description = text;
    Request request;
    request.event = &event;
    request.setTimes();
    try
    {
        m_rows.connect(connection);
        sqlite::Transaction transaction(connection, "BEGIN");
        m_rows.prepare({&request});
        m_rows.write({&request});
        transaction.commit();
    }
    catch (std::exception const&)
    {
        m_rows.disconnect(); // Otherwise the connection would be closed before its statements.
        m_rows.rolledBack();
        throw;
    }
    m_rows.disconnect();
}

void RecorderConnection::waitUntil(deadline::TimePoint end) const
{
    m_connection->waitFor({deadline::timeTo(end), m_options.isCancelled});
}

/// Copies a write-ahead log into the file, so that the file alone holds everything, and empties the log. If that fails
/// or another connection uses the log, the log still holds it. Keeps the log if there is no file of that name: if the
/// file was removed, its log is all that is left. Without the mode in the file's header, a log that SQLite has found is
/// another file's.
void RecorderConnection::emptyLog() const
{
    if (!m_connection || !readOnlyOpening::isInWalMode(*m_connection))
    {
        return;
    }
    struct stat status = {};
    int const mode = stat(m_path.c_str(), &status) == 0 ? SQLITE_CHECKPOINT_TRUNCATE : SQLITE_CHECKPOINT_PASSIVE;
    m_connection->waitFor({Timeout::zero(), nullptr});
    static_cast<void>(sqlite3_wal_checkpoint_v2(m_connection->get(), nullptr, mode, nullptr, nullptr));
}

/// The file may move while SQLite waits for its lock. SQLite itself notices that when it begins a rollback journal, but
/// not for a write-ahead log. Rows written to the moved file would be lost.
void RecorderConnection::begin()
{
    m_connection->requireName();
    m_begin.run();
    m_connection->requireName();
}

void RecorderConnection::rollBack()
{
    if (!rollBackNow())
    {
        close();
    }
}

/// Returns whether no transaction is open any more.
bool RecorderConnection::rollBackNow() const
{
    // After some failures SQLite has already rolled back.
    return !isInTransaction() || sqlite3_exec(m_connection->get(), "ROLLBACK", nullptr, nullptr, nullptr) == SQLITE_OK;
}

void RecorderConnection::beginWork()
{
    m_workBegin = processorTime();
}

/// Limits triggers only. Reading does not wait and comes to an end, so it ignores cancellation.
int RecorderConnection::onProgress(void* self)
{
    auto const* const connection = static_cast<RecorderConnection*>(self);
    return connection->m_workBegin && processorTime() - *connection->m_workBegin > kLongestWork ? 1 : 0;
}

void RecorderConnection::dropLost()
{
    syncAgain::dropLost(*m_connection);
    m_isSyncInDoubt = false;
}

void RecorderConnection::makeDurable()
{
    if (m_isSyncInDoubt)
    {
        m_connection->requireName();
        syncAgain::keepFound(*m_connection);
        m_isSyncInDoubt = false;
    }
}

} // namespace firaim
