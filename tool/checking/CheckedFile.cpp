#include <tool/checking/CheckedFile.h>

#include <tool/damage/LostPages.h>
#include <tool/files/Failures.h>
#include <tool/files/LockedBytes.h>
#include <tool/process/Interrupt.h>
#include <tool/process/Problem.h>
#include <tool/store/FaultFile.h>
#include <tool/store/FileCopy.h>

#include <db/internal/ReadOnlyOpening.h>

#include <system_error>
#include <utility>

namespace tool
{

namespace
{

/// Whether the rest of the file may be read although SQLite does not open it.
bool isDamage(sqlite::Error const& error)
{
    return error.kind() == SQLITE_CORRUPT || error.kind() == SQLITE_IOERR;
}

} // namespace

CheckedFile::CheckedFile(std::string path, Work work, std::function<void(double share)> const& showShare)
    : m_path(std::move(path))
{
    std::optional<sqlite::Connection> const connection = open();
    usingSqlite(m_path, [&] { examineHeader(); });
    if (!m_isFirstPageLost && (work == ON_COPY || !connection || m_pages.isCut()))
    {
        // Of a file whose last page is cut off, SQLite would read and copy zeros.
        makeCopy(connection && !m_pages.isCut() ? &*connection : nullptr, showShare);
    }
}

/// Opens the file for reading; none if it is damaged.
std::optional<sqlite::Connection> CheckedFile::open()
{
    try
    {
        return readOnlyOpening::open(m_path, {lockWait::kBusyTimeout, interrupt::isPending});
    }
    catch (readOnlyOpening::Failure const& failure)
    {
        throw Problem(STATUS_BAD_FILE, failure.what());
    }
    catch (sqlite::Error const& error)
    {
        m_isFirstPageLost =
            error.kind() == SQLITE_NOTADB && usingSqlite(m_path, [&] { return hasFaultPages(LockedBytes(m_path)); });
        if (!m_isFirstPageLost && !isDamage(error))
        {
            throwFailure(m_path, error);
        }
        if (!m_isFirstPageLost)
        {
            m_openProblem = error;
        }
    }
    return std::nullopt;
}

void CheckedFile::examineHeader()
{
    m_pages = countPages(m_path);
    if (m_openProblem && m_pages.whole == 0)
    {
        throw Problem(STATUS_BAD_FILE, m_path + ": no page of it can be read, so there is nothing to check");
    }
}

/// Without a connection, copies the bytes.
void CheckedFile::makeCopy(sqlite::Connection const* connection, std::function<void(double share)> const& showShare)
{
    try
    {
        auto copy = std::make_unique<TemporaryFile const>(m_pages.size);
        std::swap(m_copy, copy);
        if (connection == nullptr || !copyBySqlite(*connection, showShare))
        {
            m_unreadable = copyBytes(m_path, *m_copy, showShare).unreadable;
        }
        leaveWalMode(*m_copy);
        return;
    }
    catch (std::system_error const& error)
    {
        m_copyProblem = error.what();
    }
    catch (sqlite::Error const& error)
    {
        m_copyProblem = error.what();
    }
    m_copy.reset();
}

/// Returns false if the file cannot be copied so.
bool CheckedFile::copyBySqlite(sqlite::Connection const& connection, std::function<void(double share)> const& showShare)
{
    try
    {
        sqlite::Connection const copy(m_copy->path(), sqlite::Connection::READ_WRITE);
        // The copy is gone after the command: it needs neither a journal nor the storage.
        copy.run("PRAGMA journal_mode=OFF");
        copy.run("PRAGMA synchronous=OFF");
        copyPages(connection, m_path, copy, m_copy->path(), showShare);
        return true;
    }
    catch (Problem const&)
    {
        return false; // The medium fails, or there is no room: copying bytes tells which.
    }
}

} // namespace tool
