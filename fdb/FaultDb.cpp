// The lifetime of the facade: the singleton, and creating, opening and closing a database file.

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

/// Whether system calls take `path` as a whole. They would stop at a zero byte and use another file.
bool isFileName(std::string const& path)
{
    return path.find('\0') == std::string::npos;
}

/// Whether the effective user has the access `mode` to the file at `path`. Opens nothing: closing a descriptor drops
/// every lock that this process has on the file through another one.
bool hasAccess(std::string const& path, int mode)
{
    return faccessat(AT_FDCWD, path.c_str(), mode, AT_EACCESS) == 0;
}

/// Whether `path` names something that cannot be opened for reading and writing, whatever its permissions are.
bool isDirectoryOrSocket(std::string const& path)
{
    struct stat status = {};
    return stat(path.c_str(), &status) == 0 && (S_ISDIR(status.st_mode) || S_ISSOCK(status.st_mode));
}

/// Whether there is a file at `path` that may be read and written.
bool fileExists(std::string const& path)
{
    return isFileName(path) && hasAccess(path, R_OK | W_OK) && !isDirectoryOrSocket(path);
}

/// The target of the symbolic link at `path`; empty if it is no link.
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

/// Creates an empty file if there is none. A file that another process creates meanwhile is neither opened nor emptied.
bool createNewFile(std::string path)
{
    constexpr int kMaxLinks = 40; // The limit of the system.
    constexpr mode_t kMode = S_IRUSR | S_IWUSR | S_IRGRP | S_IWGRP | S_IROTH | S_IWOTH;
    for (int links = 0; links <= kMaxLinks && !path.empty(); ++links)
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
        // O_EXCL does not follow links. Follow a link whose target is missing here, one step at a time.
        path = targetOfLink(path);
    }
    return false;
}

/// Provides an empty file at `path`, by creating it if necessary. A file with content is not touched.
bool provideEmptyFile(std::string const& path)
{
    struct stat status = {};
    if (!isFileName(path))
    {
        return false;
    }
    if (stat(path.c_str(), &status) == 0)
    {
        return S_ISREG(status.st_mode) && status.st_size == 0 && hasAccess(path, W_OK);
    }
    // Any other error does not say whether there is a file.
    return errno == ENOENT && createNewFile(path);
}

} // namespace

FaultDb* FaultDb::m_pInstance = nullptr;
std::string const FaultDb::SUPPORTED_VERSION = FdbSqlVersionTbl::kFormatVersion;

// The pointer is deliberately not reset: no code may ask for the object after this.
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
        // Only ever switched on: the connection layer has other users, who may have asked for its lines.
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
        // Until its removal is durable, the old file can come back after a power cut and then needs its journal, which
        // SQLite removes when it opens the new file. If synchronising fails, the old file is no worse off than after
        // its removal.
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

/// Creates the tables and the format version row in the open, empty database.
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
    // Deliberately without a log line, unlike the other two tables.
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
        closeAgain(); // Do not work on a file whose version is unknown.
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
        // The object deliberately stays open in name, with a closed connection.
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
                          "Setup the new table format versions"); // Claims more than is done: nothing is migrated.
    }
    m_compatibleMode = true;
    if (isDebug)
    {
        faultDbLog::debug(kFunction, "done OK.");
    }
    return RESULT_OK;
}

/// Closes the connection that this call opened; `m_dbHandle` keeps its value.
void FaultDb::closeAgain()
{
    // All writes are on the storage already, so the result of closing does not matter.
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
