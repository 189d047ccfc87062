#include <history/internal/GroupWriter.h>

#include <new>
#include <utility>

namespace firaim
{

namespace
{

/// How often the active triples are read outside a transaction, which lets other processes in.
constexpr int kMaxReadings = 3;

/// Sets a flag for the lifetime of this object.
class FlagGuard
{
public:
    explicit FlagGuard(bool& flag) : m_flag(flag) { m_flag = true; }
    ~FlagGuard() { m_flag = false; }
    FlagGuard(FlagGuard const&) = delete;
    FlagGuard& operator=(FlagGuard const&) = delete;

private:
    bool& m_flag;
};

/// Whether `error` is about the storage or the whole file, so that every other request would fail too.
bool concernsAll(sqlite::Error const& error)
{
    switch (error.kind())
    {
    case SQLITE_CONSTRAINT:
    case SQLITE_TOOBIG:
    case SQLITE_ERROR:
    case SQLITE_MISMATCH:
    case SQLITE_INTERRUPT: // A trigger takes too long.
        return false;
    default:
        return true;
    }
}

/// Whether a rule of the file, a constraint or a trigger, forbids the write.
bool isForbidden(sqlite::Error const& error)
{
    return error.kind() == SQLITE_CONSTRAINT || error.kind() == SQLITE_TOOBIG || error.kind() == SQLITE_MISMATCH;
}

} // namespace

GroupWriter::GroupWriter(std::string path, RecorderOptions const& options)
    : m_options(options), m_rows(m_options), m_connection(std::move(path), m_options, m_rows)
{
}

void GroupWriter::open(Timeout timeout)
{
    static_cast<void>(m_connection.open(timeout));
}

void GroupWriter::begin(Timeout timeout, bool needsSources)
{
    if (m_connection.isInTransaction())
    {
        m_connection.close(); // The last rollback failed.
    }
    deadline::TimePoint const end = deadline::after(timeout);
    static_cast<void>(m_connection.open(timeout));
    try
    {
        m_connection.waitUntil(end);
        m_connection.makeDurable();
        if (needsSources)
        {
            beginWithSources();
        }
        else
        {
            m_connection.begin();
        }
    }
    catch (sqlite::Error const& error)
    {
        Failure const failure = m_connection.failureOf(error);
        if (failure.result() != HISTORY_BUSY)
        {
            m_connection.close(); // The next attempt reopens the file.
        }
        throw failure;
    }
}

bool GroupWriter::needsReading(Request const& request) noexcept
{
    try
    {
        return !m_rows.areSourcesKnown() && m_rows.needsSources(request);
    }
    catch (std::bad_alloc const&)
    {
        return true; // Not known. The next group tries again.
    }
}

/// Begins the transaction with the active triples known. If others have changed them since they were read, reads them
/// again; after a few attempts, they are read inside the transaction.
void GroupWriter::beginWithSources()
{
    for (int reading = 0; reading < kMaxReadings; ++reading)
    {
        m_rows.loadSources();
        m_connection.begin();
        try
        {
            if (m_rows.refresh())
            {
                return;
            }
        }
        catch (std::exception const&)
        {
            rollBack(); // Other processes need not wait for the next attempt.
            throw;
        }
        m_connection.get().run("ROLLBACK");
        m_rows.rolledBack();
    }
    m_connection.begin();
}

void GroupWriter::write(std::vector<Request*> const& group, Timeout timeout)
{
    writeUntil(group, deadline::after(timeout));
}

void GroupWriter::writeUntil(std::vector<Request*> const& group, deadline::TimePoint end)
{
    try
    {
        tryToWrite(group, end);
    }
    catch (std::bad_alloc const&)
    {
        abandon(group, kNoMemory); // Memory was also too short to handle a failure.
    }
    catch (std::exception const& exception)
    {
        abandon(group, exception.what());
    }
    m_isCommitting = false;
}

/// Ends an attempt that cannot continue. Needs no memory. Closing rolls back.
void GroupWriter::abandon(std::vector<Request*> const& group, char const* problem)
{
    if (m_isCommitting)
    {
        m_connection.setSyncDoubtful();
    }
    m_connection.close();
    m_connection.endWork();
    m_rows.forget();
    m_isPruning = false;
    m_isPruningOff = false;
    for (Request* const request : group)
    {
        failOne(*request, m_isCommitting ? HISTORY_UNKNOWN : HISTORY_FAILED, problem);
    }
}

void GroupWriter::failOne(Request& request, int result, char const* problem) const
{
    request.receipt = {result, 0};
    request.keys.clear();
    setProblem(request.problem, m_connection.path(), problem);
}

void GroupWriter::tryToWrite(std::vector<Request*> const& group, deadline::TimePoint end)
{
    try
    {
        m_connection.waitUntil(end);
        writeTogether(group);
    }
    catch (sqlite::Error const& error)
    {
        bool const wasAtWork = m_connection.isAtWork();
        bool const wasPruning = m_isPruning;
        rollBack();
        if (wasPruning)
        {
            if (error.kind() == SQLITE_INTERRUPT)
            {
                m_rows.stopPruning(); // The trigger would end the next pruning too.
            }
            writeWithoutPruning(group, end);
        }
        else if (error.kind() == SQLITE_INTERRUPT && group.size() == 1)
        {
            fail(group, Failure(HISTORY_FAILED, m_connection.path() + ": a trigger in the file takes too long"));
            group.front()->isRefusedByFile = true;
        }
        else if (isForbidden(error) && group.size() == 1)
        {
            fail(group, Failure(HISTORY_REFUSED, m_connection.path() + ": " + error.what()));
            group.front()->isRefusedByFile = true;
        }
        else if (wasAtWork && error.kind() == SQLITE_ERROR && group.size() == 1)
        {
            resolveFailedTrigger(*group.front(), error, end);
        }
        else if (concernsAll(error) || group.size() == 1)
        {
            fail(group, m_connection.failureOf(error));
        }
        else
        {
            writeEachAlone(group, end);
        }
    }
    catch (std::bad_alloc const&)
    {
        if (m_isCommitting)
        {
            throw;
        }
        bool const wasPruning = m_isPruning;
        rollBack();
        if (wasPruning)
        {
            writeWithoutPruning(group, end);
            return;
        }
        fail(group, Failure(HISTORY_FAILED, m_connection.path() + ": " + kNoMemory));
    }
}

/// The one request of the group failed in a trigger, or because the schema of the file has changed. Reopening the file
/// compiles the statements again, which fails in the second case.
void GroupWriter::resolveFailedTrigger(Request& request, sqlite::Error const& error, deadline::TimePoint end)
{
    m_connection.close();
    try
    {
        open(deadline::timeTo(end));
        fail({&request}, Failure(HISTORY_REFUSED, m_connection.path() + ": " + error.what()));
        request.isRefusedByFile = true;
    }
    catch (Failure const& failure)
    {
        fail({&request}, failure);
    }
}

/// Pruning has ended the transaction. The group must still be stored.
void GroupWriter::writeWithoutPruning(std::vector<Request*> const& group, deadline::TimePoint end)
{
    FlagGuard const noPruning(m_isPruningOff);
    try
    {
        begin(deadline::timeTo(end), false);
        writeUntil(group, end);
    }
    catch (Failure const& failure)
    {
        fail(group, failure);
    }
}

/// One request of the group cannot be stored. Store the others one by one, until the same deadline.
void GroupWriter::writeEachAlone(std::vector<Request*> const& group, deadline::TimePoint end)
{
    std::vector<Request*> single(1);
    for (Request* const request : group)
    {
        single.front() = request;
        try
        {
            begin(deadline::timeTo(end), false);
        }
        catch (Failure const& failure)
        {
            fail(single, failure);
            continue;
        }
        catch (std::bad_alloc const&)
        {
            failOne(*request, HISTORY_FAILED, kNoMemory);
            continue;
        }
        catch (std::exception const& exception)
        {
            failOne(*request, HISTORY_FAILED, exception.what());
            continue;
        }
        writeUntil(single, end);
    }
}

void GroupWriter::writeTogether(std::vector<Request*> const& group)
{
    m_rows.prepare(group);
    m_connection.beginWork(); // Reading for the group is not the work of triggers.
    m_changesBefore = sqlite3_total_changes(m_connection.get().get());
    m_rows.write(group);
    if (!m_isPruningOff)
    {
        m_isPruning = true; // Stays set after a failure, until that is handled.
        m_rows.prune();
        m_isPruning = false;
    }
    m_connection.endWork();
    commit(group);
}

void GroupWriter::commit(std::vector<Request*> const& group)
{
    m_isCommitting = true;
    m_hasWritten = sqlite3_total_changes(m_connection.get().get()) != m_changesBefore;
    try
    {
        m_connection.commit();
    }
    catch (sqlite::Error const& error)
    {
        if (error.kind() == SQLITE_BUSY && m_connection.isInTransaction())
        {
            m_isCommitting = false;
            throw; // The commit has not begun.
        }
        resolveCommit(group, error);
        return;
    }
    m_rows.committed();
    m_groups += m_hasWritten ? 1 : 0;
    m_connection.forgetDamage();
}

/// Handles a failed commit. Storage that fails in the last steps of a commit may have stored it, so the file is read
/// again; its content decides, once that is durable.
void GroupWriter::resolveCommit(std::vector<Request*> const& group, sqlite::Error const& error)
{
    Failure const failure = m_connection.failureOf(error);
    m_connection.setSyncDoubtful();
    RowWriter::Outcome outcome = m_rows.outcome();
    rollBack();
    m_connection.close();
    try
    {
        bool const wasSetAside = m_connection.open(lockWait::kBusyTimeout);
        if (!wasSetAside && m_rows.isStored(outcome))
        {
            m_connection.makeDurable();
            m_rows.foundStored(std::move(outcome));
            m_groups += m_hasWritten ? 1 : 0;
            return;
        }
        m_connection.dropLost();
        fail(group, failure);
    }
    catch (std::exception const& problem)
    {
        m_connection.close();
        for (Request* const request : group)
        {
            request->doubtfulKey = request->keys.empty() ? 0 : static_cast<std::int64_t>(request->keys.front());
        }
        fail(group, Failure(HISTORY_UNKNOWN,
                            failure.text() + "; and whether it is on the storage is not known: " + problem.what()));
    }
}

void GroupWriter::rollBack()
{
    m_connection.endWork();
    m_isPruning = false;
    m_connection.rollBack();
    m_rows.rolledBack();
}

void GroupWriter::fail(std::vector<Request*> const& group, Failure const& failure)
{
    for (Request* const request : group)
    {
        request->receipt = {failure.result(), 0};
        request->keys.clear();
        setProblem(request->problem, failure.text());
    }
    if (failure.result() == HISTORY_FAILED || failure.result() == HISTORY_DAMAGED)
    {
        m_connection.close(); // The next attempt reopens the file.
    }
}

} // namespace firaim
