// The life of the facade: the singleton, creating, opening and closing a database file.

#include <fdb/FaultDb.h>

#include <db/Sqlite3Db.h>
#include <db/internal/Folder.h>
#include <fdb/internal/FaultDbLog.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <iostream> // Constructs std::cout before the object below, and so before anything here can log.
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

/// Whether `path` is a name that the system takes whole; it would cut one with a zero byte and mean another file.
bool isFileName(std::string const& path)
{
    return path.find('\0') == std::string::npos;
}

/// Whether the effective user may use the file at `path` as `mode` says. Opens nothing: closing a descriptor drops
/// every lock that this process has on the file through another one.
bool mayUse(std::string const& path, int mode)
{
    return faccessat(AT_FDCWD, path.c_str(), mode, AT_EACCESS) == 0;
}

/// Whether `path` names what cannot be opened for reading and writing, whatever its permissions say.
bool isDirectoryOrSocket(std::string const& path)
{
    struct stat status = {};
    return stat(path.c_str(), &status) == 0 && (S_ISDIR(status.st_mode) || S_ISSOCK(status.st_mode));
}

/// Whether there is a file at `path` that may be read and written.
bool fileExists(std::string const& path)
{
    return isFileName(path) && mayUse(path, R_OK | W_OK) && !isDirectoryOrSocket(path);
}

/// Where the symbolic link at `path` leads; empty when there is no link.
std::string targetOfLink(std::string const& path)
{
    char target[PATH_MAX];
    ssize_t const size = readlink(path.c_str(), target, sizeof target);
    if (size <= 0)
    {
        return {};
    }
    std::string const name(target, static_cast<std::size_t>(size));
    return name.front() == '/' ? name : folder::folderOf(path) + name;
}

/// Creates an empty file where nothing is. What another process puts there meanwhile is neither opened nor emptied.
bool createNewFile(std::string path)
{
    constexpr int kMostLinks = 40; // As many as the system follows.
    constexpr mode_t kMode = S_IRUSR | S_IWUSR | S_IRGRP | S_IWGRP | S_IROTH | S_IWOTH;
    for (int links = 0; links <= kMostLinks && !path.empty(); ++links)
    {
        int const descriptor = open(path.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, kMode);
        if (descriptor >= 0)
        {
            static_cast<void>(close(descriptor));
            return true;
        }
        if (errno != EEXIST)
        {
            return false;
        }
        // O_EXCL does not follow links. One whose target is missing is followed here, a step at a time.
        path = targetOfLink(path);
    }
    return false;
}

/// Whether there is an empty file at `path`, created when there was nothing. A file that holds something is left alone.
bool provideEmptyFile(std::string const& path)
{
    struct stat status = {};
    if (!isFileName(path))
    {
        return false;
    }
    if (stat(path.c_str(), &status) == 0)
    {
        return S_ISREG(status.st_mode) && status.st_size == 0 && mayUse(path, W_OK);
    }
    // Any other error says nothing about what is there.
    return errno == ENOENT && createNewFile(path);
}

} // namespace

FaultDb* FaultDb::m_pInstance = nullptr;
std::string const FaultDb::SUPPORTED_VERSION = FdbSqlVersionTbl::kFormatVersion;

// The pointer is deliberately not reset: nothing may ask for the object after this.
FaultDb::Monitor::~Monitor()
{
    delete m_pInstance;
}

FaultDb* FaultDb::getInstance()
{
    static Monitor const monitor;
    if (m_pInstance == nullptr)
    {
        m_pInstance = new FaultDb;
    }
    return m_pInstance;
}

FaultDb::FaultDb()
    : m_versionTbl(FdbSqlVersionTbl::kTableName), m_faultTbl(FdbSqlFaultTbl::kTableName),
      m_faultStatisticTbl(FdbSqlFaultStatisticTbl::kTableName)
{
    m_versionTbl.init("");
    m_faultTbl.init("");
    m_faultStatisticTbl.init("");
}

FaultDb::~FaultDb() = default;

void FaultDb::setDbgLevel(int level)
{
    m_dbgLevel = level;
    if (level >= 2)
    {
        // Only ever switched on here: the connection layer serves others, who may have asked for its lines.
        Sqlite3Db::getInstance(0)->m_debug = 1;
    }
}

int FaultDb::createDb(std::string const& path, bool overwrite)
{
    constexpr char kFunction[] = "createDb";
    bool const isDebug = m_dbgLevel > 0;
    bool const exists = fileExists(path);
    if (isDebug)
    {
        faultDbLog::debug(kFunction, exists ? "Rdb File already exists. file:" : "Rdb File doesn't exist. file:", path);
    }
    if (exists)
    {
        if (!overwrite)
        {
            return RESULT_FILE_EXISTS;
        }
        if (std::remove(path.c_str()) != 0)
        {
            return RESULT_FAILED;
        }
        // The old file's journal may be needed to read it for as long as it can come back after a power cut, and the
        // journal goes as soon as SQLite opens the new file. Without success the old file is no worse off than its
        // removal has left it.
        static_cast<void>(folder::synchroniseFolderOf(path));
    }
    if (isDebug)
    {
        faultDbLog::debug(kFunction, "Create RDB File: ", path);
    }
    if (!provideEmptyFile(path))
    {
        return RESULT_FAILED;
    }
    if (isDebug)
    {
        faultDbLog::debug(kFunction, "Open DataBase as Sqlite3: ", path);
    }
    m_dbHandle = Sqlite3Db::getInstance(0)->openDb(path);
    m_isOpen = m_dbHandle >= 0;
    if (!m_isOpen)
    {
        return RESULT_FAILED;
    }
    int result = RESULT_FAILED;
    try
    {
        result = createContent();
    }
    catch (...)
    {
        closeAgain();
        throw;
    }
    closeAgain();
    if (result < 0)
    {
        return result;
    }
    if (isDebug)
    {
        faultDbLog::debug(kFunction, "Create database successfully finished.");
    }
    return RESULT_OK;
}

/// Creates the tables and the row of the format version in the open, empty database.
int FaultDb::createContent()
{
    constexpr char kFunction[] = "createDb";
    constexpr char kCreateTable[] = "Create tbl:";
    bool const isDebug = m_dbgLevel > 0;
    Sqlite3Db* const sqlite = Sqlite3Db::getInstance(0);

    if (isDebug)
    {
        faultDbLog::debug(kFunction, kCreateTable, m_faultTbl.m_tblName);
    }
    int result = sqlite->createTbl<Fault>(m_dbHandle, m_faultTbl);
    if (result < 0)
    {
        return result;
    }
    // Deliberately without a line, unlike the other two tables.
    result = sqlite->createTbl<FaultStatistic>(m_dbHandle, m_faultStatisticTbl);
    if (result < 0)
    {
        return result;
    }
    if (isDebug)
    {
        faultDbLog::debug(kFunction, kCreateTable, m_versionTbl.m_tblName);
    }
    result = sqlite->createTbl<FdbVersion>(m_dbHandle, m_versionTbl);
    if (result < 0)
    {
        faultDbLog::error(kFunction, "Failed to create:", m_versionTbl.m_tblName);
        return result;
    }
    FdbVersion version;
    version.Component = FdbSqlVersionTbl::kFormatVersionComponent;
    version.Version = SUPPORTED_VERSION;
    return insert(version);
}

int FaultDb::openDb(std::string const& path, bool compatibleMode)
{
    if (m_isOpen)
    {
        return RESULT_INVALID_STATE;
    }
    m_dbHandle = Sqlite3Db::getInstance(0)->openDb(path);
    if (m_dbHandle < 0)
    {
        return RESULT_FAILED;
    }
    m_isOpen = true;
    try
    {
        return checkFormatVersion(compatibleMode);
    }
    catch (...)
    {
        closeAgain(); // A file whose version is not known is not worked on.
        throw;
    }
}

int FaultDb::checkFormatVersion(bool compatibleMode)
{
    constexpr char kFunction[] = "openDb";
    bool const isDebug = m_dbgLevel > 0;
    FdbVersion found;
    int const result = getFormatVersion(found);
    if (result < 0)
    {
        // The object deliberately stays open by name, with a closed connection.
        static_cast<void>(Sqlite3Db::getInstance(0)->closeDb(m_dbHandle));
        return result;
    }
    if (found.Version == SUPPORTED_VERSION)
    {
        if (isDebug)
        {
            faultDbLog::debug(kFunction, "Version check IO. FormatVersion: ", found.Version);
            faultDbLog::debug(kFunction, "done OK.");
        }
        return RESULT_OK;
    }
    faultDbLog::warning(kFunction, "Version check failed!Supported v", SUPPORTED_VERSION, " != v", found.Version);
    if (!compatibleMode)
    {
        if (isDebug)
        {
            faultDbLog::debug(kFunction, "Compatible mode not set. Close db and return.");
        }
        closeAgain();
        return RESULT_VERSION_MISMATCH;
    }
    if (isDebug)
    {
        faultDbLog::debug(kFunction, "Compatible mode aktiv!");
        faultDbLog::debug(kFunction,
                          "Setup the new table format versions"); // Says more than is done: nothing migrates.
    }
    m_compatibleMode = true;
    if (isDebug)
    {
        faultDbLog::debug(kFunction, "done OK.");
    }
    return RESULT_OK;
}

/// Closes the connection that this call opened; the handle stays as it is.
void FaultDb::closeAgain()
{
    // All writes are on the storage already, whatever closing says.
    static_cast<void>(Sqlite3Db::getInstance(0)->closeDb(m_dbHandle));
    m_isOpen = false;
}

int FaultDb::closeDb()
{
    if (!m_isOpen || Sqlite3Db::getInstance(0)->closeDb(m_dbHandle) != 0)
    {
        return RESULT_INVALID_STATE;
    }
    m_isOpen = false;
    m_dbHandle = -1;
    return RESULT_OK;
}

int FaultDb::getFormatVersion(FdbVersion& version)
{
    std::string const query = "SELECT * FROM " + m_versionTbl.m_tblName + " WHERE " +
                              m_versionTbl.getColumnNameById(FdbSqlVersionTbl::kComponentColumn) + " LIKE '" +
                              FdbSqlVersionTbl::kFormatVersionComponent + "'";
    FdbVersionTbl tbl;
    int const result = getVersionTbl(query, tbl);
    if (result < 0)
    {
        return result;
    }
    if (tbl.size() != 1)
    {
        return RESULT_FAILED;
    }
    version = tbl.front();
    return RESULT_OK;
}

int FaultDb::getVersionTbl(std::string query, FdbVersionTbl& tbl)
{
    return Sqlite3Db::getInstance(0)->getTbl<FdbVersion, FdbVersion>(m_dbHandle, std::move(query), tbl, &m_versionTbl);
}
