#include <tool/files/LockedBytes.h>

#include <tool/process/Interrupt.h>

namespace tool
{

namespace
{

sqlite3_file* fileOf(sqlite::Connection const& connection)
{
    sqlite3_file* file = nullptr;
    int const code = sqlite3_file_control(connection.get(), "main", SQLITE_FCNTL_FILE_POINTER, &file);
    if (code != SQLITE_OK || file == nullptr || file->pMethods == nullptr)
    {
        throw sqlite::Error(nullptr, code == SQLITE_OK ? SQLITE_CANTOPEN : code);
    }
    return file;
}

} // namespace

LockedBytes::LockedBytes(std::string const& path)
    : m_connection(path, sqlite::Connection::READ_ONLY), m_file(fileOf(m_connection))
{
    lockWait::LockWait wait;
    int code = m_file->pMethods->xLock(m_file, SQLITE_LOCK_SHARED);
    for (int tries = 0; code == SQLITE_BUSY && wait.pause(tries, lockWait::kBusyTimeout); ++tries)
    {
        interrupt::throwIfPending();
        code = m_file->pMethods->xLock(m_file, SQLITE_LOCK_SHARED);
    }
    sqlite3_int64 size = 0;
    if (code == SQLITE_OK)
    {
        code = m_file->pMethods->xFileSize(m_file, &size);
    }
    if (code != SQLITE_OK)
    {
        throw sqlite::Error(nullptr, code);
    }
    m_size = static_cast<std::uint64_t>(size);
}

LockedBytes::~LockedBytes()
{
    // If this fails, closing the connection ends the lock.
    static_cast<void>(m_file->pMethods->xUnlock(m_file, SQLITE_LOCK_NONE));
}

int LockedBytes::tryRead(std::uint64_t offset, char* bytes, std::size_t count) const
{
    int const code =
        m_file->pMethods->xRead(m_file, bytes, static_cast<int>(count), static_cast<sqlite3_int64>(offset));
    // Behind a short read, SQLite has filled the rest with zeros.
    return code == SQLITE_IOERR_SHORT_READ ? SQLITE_OK : code;
}

bool LockedBytes::read(std::uint64_t offset, char* bytes, std::size_t count) const
{
    return offset <= m_size && count <= m_size - offset && tryRead(offset, bytes, count) == SQLITE_OK;
}

} // namespace tool
