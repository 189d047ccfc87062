#include <history/internal/GroupWriter.h>

#include <history/internal/Failure.h>
#include <history/internal/RecorderFile.h>
#include <history/internal/SetAside.h>

#include <algorithm>
#include <new>
#include <utility>

#include <sys/stat.h>
#include <time.h>

namespace firaim
{

namespace
{

/// Instructions of SQLite's machine between two looks at the clock: some hundred microseconds.
constexpr int kInstructionsPerLook = 10000;
/// How long the processor may work on one group. Only triggers that the file brings along take that long.
constexpr std::chrono::seconds kLongestWork(5);
constexpr int kDamagesToBelieve = 2;
/// How often the active triples are read in pieces that let others in.
constexpr int kMostReadings = 3;
constexpr char kNoMemory[] = "out of memory";

/// Sets a flag for as long as it lives.
class SetMeanwhile
{
public:
    explicit SetMeanwhile(bool& flag) : m_flag(flag) { m_flag = true; }
    ~SetMeanwhile() { m_flag = false; }
    SetMeanwhile(SetMeanwhile const&) = delete;
    SetMeanwhile& operator=(SetMeanwhile const&) = delete;

private:
    bool& m_flag;
};

std::chrono::nanoseconds processorTime()
{
    timespec time = {};
    static_cast<void>(clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time)); // Every Linux has this clock.
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

std::chrono::milliseconds timeTo(std::chrono::steady_clock::time_point end)
{
    auto const left = std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
    return std::max(left, std::chrono::milliseconds(0));
}

/// Whether `error` is about the storage or the whole file; another request would meet it as well.
bool concernsAll(sqlite::Error const& error)
{
    switch (error.kind())
    {
    case SQLITE_CONSTRAINT:
    case SQLITE_TOOBIG:
    case SQLITE_ERROR:
    case SQLITE_MISMATCH:
    case SQLITE_INTERRUPT: // Its trigger takes too long.
        return false;
    default:
        return true;
    }
}

/// Whether a rule of the file, a constraint or a trigger, forbids what was to be written.
bool isForbidden(sqlite::Error const& error)
{
    return error.kind() == SQLITE_CONSTRAINT || error.kind() == SQLITE_TOOBIG || error.kind() == SQLITE_MISMATCH;
}

} // namespace

GroupWriter::GroupWriter(std::string path, RecorderOptions const& options)
    : m_path(std::move(path)), m_options(options), m_rows(m_options)
{
}

GroupWriter::~GroupWriter()
{
    disconnect();
}

void GroupWriter::open(patience_t patience)
{
    static_cast<void>(connect(patience));
}

/// Opens the file. Damage counts as such when it is seen twice: once it may be a mishap of reading. Returns whether the
/// file has been set aside and holds nothing of before.
bool GroupWriter::connect(patience_t patience)
{
    sqlite::Waiting const waiting = {patience, m_options.isCancelled};
    bool isAnew = false;
    bool isMended = !m_options.setAsideCode; // Or is not to be.
    while (!m_connection)
    {
        try
        {
            if (m_damagesSeen >= kDamagesToBelieve && !isMended)
            {
                m_damagesSeen = 0;
                isMended = true;
                isAnew = setAsideNow(waiting);
            }
            connectOnce(waiting);
        }
        catch (sqlite::Error const& error)
        {
            disconnect();
            Failure const failure(m_path, error);
            noteDamage(failure.result(), error.what());
            if (!isDamage(error) || (m_damagesSeen >= kDamagesToBelieve && isMended))
            {
                m_damagesSeen = 0; // The next call looks twice again.
                throw failure;
            }
        }
        catch (std::exception const&) // Failure, or a lack of memory.
        {
            disconnect();
            throw;
        }
    }
    return isAnew;
}

void GroupWriter::noteDamage(int result, std::string const& damage)
{
    if (result == HISTORY_DAMAGED)
    {
        ++m_damagesSeen;
        m_damage = damage;
    }
}

void GroupWriter::connectOnce(sqlite::Waiting const& waiting)
{
    m_connection.emplace(openForRecording(m_path, waiting));
    m_isPruningTooSlow = false;
    // What was read from another file of that name is of no use.
    struct stat status = {};
    bool const isSame = stat(m_path.c_str(), &status) == 0 && status.st_dev == m_device && status.st_ino == m_inode;
    m_device = status.st_dev;
    m_inode = status.st_ino;
    if (!isSame)
    {
        m_rows.forget();
    }
    sqlite3_progress_handler(m_connection->get(), kInstructionsPerLook, onProgress, this);
    m_begin = m_connection->prepare("BEGIN IMMEDIATE");
    m_commit = m_connection->prepare("COMMIT");
    m_rows.connect(*m_connection);
}

/// Makes a new file of the damaged one, whose first row tells why; returns whether there was a need.
bool GroupWriter::setAsideNow(sqlite::Waiting const& waiting)
{
    m_rows.forget();
    bool isAnew = false;
    try
    {
        isAnew = setAside(m_path, m_damage, waiting,
                          [this](sqlite::Connection const& connection, std::string const& text)
                          { recordIncident(connection, text); });
    }
    catch (std::exception const&)
    {
        m_rows.forget(); // The incident is in no file.
        throw;
    }
    if (isAnew)
    {
        m_rows.committed();
    }
    m_rows.forget();
    return isAnew;
}

/// Writes the row into the new content, which is not in the file yet.
void GroupWriter::recordIncident(sqlite::Connection const& connection, std::string const& text)
{
    FaultEvent event;
    event.code = *m_options.setAsideCode;
    event.description = text;
    Request request;
    request.event = &event;
    request.takeMoment();
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
        m_rows.disconnect(); // The connection goes first otherwise.
        m_rows.rolledBack();
        throw;
    }
    m_rows.disconnect();
}

void GroupWriter::disconnect()
{
    m_rows.disconnect();
    m_begin = {};
    m_commit = {};
    m_connection.reset();
}

/// The next waits for others end then, at the latest.
void GroupWriter::waitUntil(time_t end) const
{
    m_connection->waitFor({timeTo(end), m_options.isCancelled});
}

void GroupWriter::begin(patience_t patience, bool needsSources)
{
    if (m_connection && m_connection->isInTransaction())
    {
        disconnect(); // Rolling back has failed.
    }
    time_t const end = std::chrono::steady_clock::now() + patience;
    if (!m_connection)
    {
        static_cast<void>(connect(patience));
    }
    try
    {
        waitUntil(end);
        if (m_isSyncInDoubt)
        {
            makeDurable();
        }
        if (needsSources)
        {
            beginWithSources();
        }
        else
        {
            m_begin.run();
        }
    }
    catch (sqlite::Error const& error)
    {
        Failure const failure(m_path, error);
        noteDamage(failure.result(), error.what());
        if (failure.result() != HISTORY_BUSY)
        {
            disconnect(); // Another try begins with another look at the file.
        }
        throw failure;
    }
}

/// Begins the transaction when it is known which triples are active. Others can change that after the reading of it,
/// which then begins anew. When that does not come to an end, they are read inside the transaction.
void GroupWriter::beginWithSources()
{
    for (int reading = 0; reading < kMostReadings; ++reading)
    {
        m_rows.loadSources();
        m_begin.run();
        try
        {
            if (m_rows.refresh())
            {
                return;
            }
        }
        catch (std::exception const&)
        {
            rollBack(); // Others need not wait for the next try.
            throw;
        }
        m_rows.rolledBack();
        m_connection->run("ROLLBACK");
    }
    m_begin.run();
}

/// Ends what takes too long. What is read waits for nobody and comes to an end, so it is done even when cancelled.
int GroupWriter::onProgress(void* self)
{
    auto const* const writer = static_cast<GroupWriter*>(self);
    return writer->m_isWriting && processorTime() - writer->m_writeBegin > kLongestWork ? 1 : 0;
}

void GroupWriter::write(std::vector<Request*> const& group, patience_t patience)
{
    writeUntil(group, std::chrono::steady_clock::now() + patience);
}

void GroupWriter::writeUntil(std::vector<Request*> const& group, time_t end)
{
    try
    {
        tryToWrite(group, end);
    }
    catch (std::bad_alloc const&)
    {
        abandon(group, kNoMemory); // It was short for dealing with a failure, too.
    }
    catch (std::exception const& exception)
    {
        abandon(group, exception.what());
    }
    m_isCommitting = false;
}

/// Ends what cannot be gone on with; needs no memory. Closing rolls back.
void GroupWriter::abandon(std::vector<Request*> const& group, char const* problem)
{
    m_isSyncInDoubt = m_isSyncInDoubt || m_isCommitting;
    disconnect();
    m_rows.forget();
    m_isWriting = false;
    m_isPruning = false;
    m_isPruningOff = false;
    for (Request* const request : group)
    {
        failPlainly(*request, m_isCommitting ? HISTORY_UNKNOWN : HISTORY_FAILED, problem);
    }
}

void GroupWriter::failPlainly(Request& request, int result, char const* problem) const
{
    request.receipt = {result, 0};
    request.keys.clear();
    keep(request.problem, m_path, problem);
}

void GroupWriter::tryToWrite(std::vector<Request*> const& group, time_t end)
{
    try
    {
        waitUntil(end);
        writeTogether(group);
    }
    catch (sqlite::Error const& error)
    {
        bool const wasWriting = m_isWriting;
        bool const wasPruning = m_isPruning;
        rollBack();
        if (wasPruning)
        {
            m_isPruningTooSlow = error.kind() == SQLITE_INTERRUPT;
            writeWithoutPruning(group, end);
        }
        else if (error.kind() == SQLITE_INTERRUPT && group.size() == 1)
        {
            fail(group, Failure(HISTORY_FAILED, m_path + ": a trigger in the file takes too long"));
            group.front()->isRefusedByFile = true;
        }
        else if (isForbidden(error) && group.size() == 1)
        {
            fail(group, Failure(HISTORY_REFUSED, m_path + ": " + error.what()));
            group.front()->isRefusedByFile = true;
        }
        else if (concernsAll(error) || group.size() == 1)
        {
            Failure const failure(m_path, error);
            noteDamage(failure.result(), error.what());
            fail(group, failure);
            group.front()->isRefusedByFile = wasWriting && !concernsAll(error);
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
        fail(group, Failure(HISTORY_FAILED, m_path + ": out of memory"));
    }
}

/// Pruning has ended the transaction; it must not keep the group from being stored.
void GroupWriter::writeWithoutPruning(std::vector<Request*> const& group, time_t end)
{
    SetMeanwhile const noPruning(m_isPruningOff);
    try
    {
        begin(timeTo(end), false);
        writeUntil(group, end);
    }
    catch (Failure const& failure)
    {
        fail(group, failure);
    }
}

/// One of the group cannot be stored; it must not keep the others from it, which share the time that there is.
void GroupWriter::writeEachAlone(std::vector<Request*> const& group, time_t end)
{
    std::vector<Request*> single(1);
    for (Request* const request : group)
    {
        single.front() = request;
        try
        {
            begin(timeTo(end), false);
        }
        catch (Failure const& failure)
        {
            fail(single, failure);
            continue;
        }
        catch (std::bad_alloc const&)
        {
            failPlainly(*request, HISTORY_FAILED, kNoMemory);
            continue;
        }
        catch (std::exception const& exception)
        {
            failPlainly(*request, HISTORY_FAILED, exception.what());
            continue;
        }
        writeUntil(single, end);
    }
}

void GroupWriter::writeTogether(std::vector<Request*> const& group)
{
    m_rows.prepare(group);
    m_writeBegin = processorTime(); // What is read for the group is not the work of triggers.
    m_isWriting = true;
    m_changesBefore = sqlite3_total_changes(m_connection->get());
    m_rows.write(group);
    if (!m_isPruningOff && !m_isPruningTooSlow)
    {
        m_isPruning = true;
        m_rows.prune();
        m_isPruning = false;
    }
    m_isWriting = false;
    commit(group);
}

void GroupWriter::commit(std::vector<Request*> const& group)
{
    m_isCommitting = true;
    m_hasWritten = sqlite3_total_changes(m_connection->get()) != m_changesBefore;
    try
    {
        m_commit.run();
    }
    catch (sqlite::Error const& error)
    {
        if (error.kind() == SQLITE_BUSY && m_connection->isInTransaction())
        {
            m_isCommitting = false;
            throw; // It has not begun.
        }
        settle(group, error);
        return;
    }
    m_rows.committed();
    m_groups += m_hasWritten ? 1 : 0;
    m_damagesSeen = 0;
}

/// After a commit that failed: what the file says decides, once that is known to be on the storage. Storage that fails
/// in the last steps of a commit may have stored it.
void GroupWriter::settle(std::vector<Request*> const& group, sqlite::Error const& error)
{
    Failure const failure(m_path, error);
    noteDamage(failure.result(), error.what());
    m_isSyncInDoubt = true;
    RowWriter::outcome_t outcome = m_rows.outcome();
    rollBack();
    disconnect();
    try
    {
        bool const isAnew = connect(lockWait::kPatience);
        if (!isAnew && m_rows.isStored(outcome))
        {
            makeDurable();
            m_rows.foundStored(std::move(outcome));
            m_groups += m_hasWritten ? 1 : 0;
            return;
        }
        m_isSyncInDoubt = false;
        fail(group, failure);
    }
    catch (std::exception const& problem)
    {
        disconnect();
        for (Request* const request : group)
        {
            request->doubtfulKey = request->keys.empty() ? 0 : static_cast<std::int64_t>(request->keys.front());
        }
        fail(group, Failure(HISTORY_UNKNOWN,
                            failure.text() + "; and whether it is on the storage is not known: " + problem.what()));
    }
}

/// Puts on the storage what a commit has left in the file although its synchronising failed. Until then, the rows can
/// be read, and a power cut can take them: after a failure the system takes the pages for written, and synchronising
/// once more passes over them. So all that the failed call was to write is written anew. Throws sqlite::Error.
///
/// - With a rollback journal, rows are only found when the database was synchronised and the journal's header zeroed;
///   what is missing is the zeroed header. Any commit that changes a page writes the header, zeroes it again and
///   synchronises both.
/// - In a write-ahead log a lost frame makes all later ones worthless. A checkpoint copies the frames into the file,
///   synchronises that and empties the log; the commit then begins the log anew, under a new salt, and synchronises it.
///
/// The page that is changed is the first one: it gets the user version that it has. Rewriting a row with its own values
/// would change no page, and SQLite then writes nothing.
void GroupWriter::makeDurable()
{
    {
        sqlite::Statement checkpoint = m_connection->prepare("PRAGMA wal_checkpoint(TRUNCATE)");
        if (checkpoint.step() && checkpoint.integer(0) != 0)
        {
            throw sqlite::Error(nullptr, SQLITE_BUSY); // Somebody reads what is in the log.
        }
    }
    std::string const version = "PRAGMA user_version";
    sqlite::Transaction transaction(*m_connection, "BEGIN IMMEDIATE");
    m_connection->run(version + '=' + std::to_string(m_connection->number(version)));
    transaction.commit();
    m_isSyncInDoubt = false;
}

void GroupWriter::rollBack()
{
    m_isWriting = false;
    m_isPruning = false;
    m_rows.rolledBack();
    // After some failures SQLite has rolled back on its own. Where rolling back fails, the next connection does it.
    if (m_connection && m_connection->isInTransaction() &&
        sqlite3_exec(m_connection->get(), "ROLLBACK", nullptr, nullptr, nullptr) != SQLITE_OK)
    {
        disconnect();
    }
}

void GroupWriter::fail(std::vector<Request*> const& group, Failure const& failure)
{
    for (Request* const request : group)
    {
        request->receipt = {failure.result(), 0};
        request->keys.clear();
        keep(request->problem, failure.text());
    }
    if (failure.result() == HISTORY_FAILED || failure.result() == HISTORY_DAMAGED)
    {
        disconnect(); // Another try begins with another look at the file.
    }
}

} // namespace firaim
