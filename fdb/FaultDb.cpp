// The life of the facade: the singleton, creating, opening and closing a database file.

#include <fdb/FaultDb.h>

#include <db/Sqlite3Db.h>
#include <fdb/FaultDbLog.h>

#include <cstdio>
#include <fstream>
#include <iostream> // Constructs std::cout before the object below, and so before anything here can log.
#include <utility>

#include <fcntl.h>
#include <unistd.h>

namespace
{

constexpr char kFormatVersionComponent[] = "FormatVersion";

/// Whether `path` is a name that the system takes whole; it would cut one with a zero byte and mean another file.
bool isFileName(std::string const& path)
{
    return path.find('\0') == std::string::npos;
}

/// Whether there is a file at `path` that can be opened for reading and writing.
bool fileExists(std::string const& path)
{
    return isFileName(path) && std::fstream(path, std::ios::in | std::ios::out).is_open();
}

bool createEmptyFile(std::string const& path)
{
    return isFileName(path) && std::fstream(path, std::ios::out | std::ios::trunc).is_open();
}

/// Makes the removal of the file at `path` last. Its journal may be needed to read it for as long as it can come back
/// after a power cut, and the journal goes as soon as SQLite opens the new file.
void syncFolderOf(std::string const& path)
{
    std::string const folder = path.substr(0, path.find_last_of('/') + 1) + ".";
    int const descriptor = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor >= 0)
    {
        // Without success the old file is no worse off than its removal has left it.
        static_cast<void>(fsync(descriptor));
        static_cast<void>(close(descriptor));
    }
}

} // namespace

FaultDb* FaultDb::m_pInstance = nullptr;
std::string const FaultDb::SUPPORTED_VERSION = "1.0.0";

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
    : m_versionTbl("FdbVersionTbl"), m_faultTbl("FdbFaultTbl"), m_faultStatisticTbl("FdbFaultStatisticTbl")
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
        syncFolderOf(path);
    }
    if (isDebug)
    {
        faultDbLog::debug(kFunction, "Create RDB File: ", path);
    }
    if (!createEmptyFile(path))
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
    version.Component = kFormatVersionComponent;
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
    // What was written is on the storage already, whatever closing says.
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
                              kFormatVersionComponent + "'";
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
