#pragma once

#include <db/Export.h>
#include <db/FaultCode.h>
#include <db/ResultCode.h>
#include <db/Sqlite3DbCallback.h>
#include <fdb/records/Fault.h>
#include <fdb/records/FaultStatistic.h>
#include <fdb/records/FaultStatisticTbl.h>
#include <fdb/records/FaultTbl.h>
#include <fdb/records/FdbVersion.h>
#include <fdb/records/FdbVersionTbl.h>
#include <fdb/tables/FdbSqlFaultStatisticTbl.h>
#include <fdb/tables/FdbSqlFaultTbl.h>
#include <fdb/tables/FdbSqlVersionTbl.h>

#include <string>

/// The fault database of the process: creates and opens the file, records faults and their statistics, and reads them.
///
/// Ownership: the library owns the one object, from the first `getInstance` to the end of the process. Records and
/// containers belong to the caller; the library copies them. Nothing closes the database when the process ends, and
/// nothing is lost by that: an operation that returned RESULT_OK is on the storage.
///
/// Threads: nothing here locks. Several threads must serialise their calls, including the first `getInstance`. Several
/// processes may use one file; a writer waits up to 5 s for another.
///
/// Results: the codes of db/ResultCode.h, as a plain int; reads of whole tables return the number of records. Unless an
/// operation says otherwise, a failure changes neither the file nor the arguments, and the object stays usable. If the
/// storage fails during a commit, the write may be stored all the same, completely, never in part. Standard exceptions
/// (allocation) pass through; a result argument may then hold anything.
///
/// Log lines go to standard output through LogUtil: ERROR, WARNING and INFO always, DEBUG as set by `setDbgLevel`.
///
/// Texts are put into statements as they are, so the caller must double each single quote: `it''s` stores it's. A text
/// is valid if every run of single quotes has an even length and there is no zero byte; each pair is stored as one
/// quote. A record with any other text is refused with RESULT_FAILED and an ERROR line that names the column, before
/// anything is run.
class FIRAIM_EXPORT FaultDb : private Sqlite3DbCallback
{
public:
    /// The format version that this library writes and accepts: "1.0.0".
    static std::string const SUPPORTED_VERSION;

    /// The object of the process, created by the first call. An allocation failure passes through, and a later call
    /// tries again. Valid until static objects are destroyed at exit.
    static FaultDb* getInstance();

    FaultDb(FaultDb const&) = delete;
    FaultDb& operator=(FaultDb const&) = delete;

    /// Sets the debug level: 0 no DEBUG lines, 1 actions, 2 and above also the SQL text. From 2 on, the connection
    /// layer logs as well; a lower level later does not turn that off again.
    void setDbgLevel(int level);

    /// Creates a new database file at `path` with its three tables and its format version, and closes it again. A file
    /// exists if it may be read and written. With `overwrite`, an existing file is removed first; no file is ever
    /// emptied.
    /// - RESULT_OK
    /// - RESULT_FILE_EXISTS: the file exists and `overwrite` is false; the file is unchanged
    /// - RESULT_FAILED: the old file cannot be removed, or the new one cannot be created or opened; or the file has
    ///   content but may not be read or not be written, and is unchanged
    /// - otherwise the code of the table creation or insert that failed
    ///
    /// Without `overwrite`, no file with content is opened, so this process keeps its locks on it. After a failure in a
    /// later step the unfinished file stays; call again with `overwrite` to replace it.
    ///
    /// Close an open database first. If the call gets as far as the file, the object is closed afterwards in every
    /// case, and a database that was open before is lost to this object (its connection stays open). This also makes
    /// the object usable again after a failed `openDb`, see there.
    int createDb(std::string const& path, bool overwrite);

    /// Opens the database file at `path` and checks its format version.
    /// - RESULT_OK: open
    /// - RESULT_INVALID_STATE: a database is open already
    /// - RESULT_FAILED: the file cannot be opened
    /// - RESULT_VERSION_MISMATCH: another format version, and `compatibleMode` is false; closed again
    /// - if the version cannot be read (no database, no version row or several): the code of that read
    ///
    /// With `compatibleMode`, a file of another version is used as it is; nothing is migrated. A missing file is
    /// created empty and then has no version.
    ///
    /// After a failure to read the version, the object counts as open with a closed connection: `openDb` and `closeDb`
    /// return RESULT_INVALID_STATE. A `createDb` that gets as far as closing its file makes the object usable again.
    /// The file's bytes are unchanged, unless SQLite had to roll back the unfinished transaction of a crashed writer.
    int openDb(std::string const& path, bool compatibleMode);

    /// Closes the database. RESULT_OK; RESULT_INVALID_STATE if none is open or the connection layer refuses, which
    /// leaves the database open. Writes no log line of its own.
    int closeDb();

    /// Reads the format version row into `version`; its component is compared without regard to case. RESULT_OK;
    /// RESULT_FAILED unless there is exactly one such row; a negative code of `getVersionTbl`. `version` is written on
    /// success only.
    int getFormatVersion(FdbVersion& version);

    /// Runs `query`, a complete SELECT statement, and fills `tbl` with its rows, decoded by position as version rows.
    /// Returns the number of records; RESULT_INVALID_STATE if no database is open; RESULT_FAILED if the query fails.
    /// After a failure, `tbl` is unchanged.
    int getVersionTbl(std::string query, FdbVersionTbl& tbl);

    /// Adds a version row. The database assigns its key, which is not read back.
    /// RESULT_OK; RESULT_INVALID_STATE if no database is open; RESULT_FAILED if the row cannot be stored.
    int insert(FdbVersion& version);

    /// Records a fault: adds a row and writes its key to `fault.EntryId`, whose earlier value is ignored. Each call
    /// adds a row.
    /// - RESULT_OK: the row is on the storage
    /// - RESULT_INVALID_STATE: no database is open
    /// - RESULT_FAILED: the row cannot be stored; or its key cannot be read back: the row then stays, and `fault` is
    ///   unchanged
    ///
    /// The key is the largest in the table at the time of reading; with several writing processes it may be that of
    /// another process's row.
    int insert(Fault& fault);

    /// Rewrites all other columns of the row with the key `fault.EntryId`. A record that was read holds each quote
    /// once: double the quotes before writing it back. RESULT_OK, also if there is no such row; RESULT_INVALID_STATE if
    /// no database is open; RESULT_FAILED if the statement fails.
    int update(Fault const& fault);

    /// Adds a statistic row. The database assigns its key, which is not read back. The call does not look for a row of
    /// the same fault code: to keep one row for each code, read it first. Codes as for `update`.
    int insert(FaultStatistic const& statistic);

    /// Rewrites all columns but the key of every row with the fault code `statistic.FaultCode`; `EntryId` is ignored.
    /// RESULT_OK, also if there is no such row; RESULT_INVALID_STATE if no database is open; RESULT_FAILED if the
    /// statement fails.
    int update(FaultStatistic const& statistic);

    /// Reads the whole fault table, in SQLite's order, into `faults`, which is emptied first. Returns the number of
    /// records; RESULT_INVALID_STATE if no database is open; RESULT_FAILED if the query fails. After a failure,
    /// `faults` is unchanged.
    int getFaultTbl(FaultTbl& faults);

    /// As above for `query`, a complete SELECT statement that is run as it is. Cells are decoded by position as the
    /// columns of the fault table, whatever table they come from, and missing cells as NULL.
    int getFaultTbl(std::string const& query, FaultTbl& faults);

    /// As `getFaultTbl`, for the statistic table.
    int getFaultStatisticTbl(FaultStatisticTbl& statistics);
    /// As `getFaultTbl` with a query, for the statistic table.
    int getFaultStatisticTbl(std::string const& query, FaultStatisticTbl& statistics);

    /// As `getFaultStatisticTbl`, for the statistics of active faults.
    int getFaultStatisticTblErrorActive(FaultStatisticTbl& statistics);

    /// Reads the fault with the key `id` into `fault`. RESULT_OK; RESULT_FAILED if there is none, the query fails or no
    /// database is open: `fault` is then unchanged.
    int getFaultById(Fault& fault, unsigned long long id);

    /// Reads the statistic of `faultCode`, the first one if there are several. Codes as for `getFaultById`.
    int getFaultStatisticForFC(FaultStatistic& statistic, unsigned int faultCode);

    /// Counts the rows of the statistic table, in 16 bits. RESULT_OK; RESULT_INVALID_STATE if no database is open;
    /// RESULT_FAILED after an ERROR line if the statement fails. After a failure, `count` is unchanged.
    int getFaultStatisticTblErrorNr(unsigned short& count);

    /// As above, for the statistics of active faults.
    int getFaultStatisticTblErrorActiveNr(unsigned short& count);

    /// Moves every fault and statistic from the start-up id `oldId` to `newId`, row by row with `update`, in no common
    /// transaction. RESULT_OK, whatever happened to single rows; RESULT_INVALID_STATE if no database is open.
    ///
    /// A row with a single quote in a stored text cannot be written back and keeps its id. While another process keeps
    /// the file locked, one row waits for it, and the rows after it are tried once. Statistics are written back by
    /// fault code, so rows that share a code all get the values of one.
    int updateRdbStartup(unsigned int newId, unsigned int oldId);

    /// Receives the rows of the counting statements from the connection layer; not for applications. Returns 0.
    int dataBaseQueryCb(Sqlite3DbCallback::sqlite3DbCbCgf_t* cfg, int argc, char** argv, char** colNames) override;

private:
    /// Deletes the object at exit.
    class Monitor
    {
    public:
        ~Monitor();
    };

    FaultDb();
    ~FaultDb() override;

    FIRAIM_HIDDEN int createContent();
    FIRAIM_HIDDEN int checkFormatVersion(bool compatibleMode);
    FIRAIM_HIDDEN void closeAgain();
    FIRAIM_HIDDEN void moveFaults(unsigned int newId, unsigned int oldId);
    FIRAIM_HIDDEN void moveStatistics(unsigned int newId, unsigned int oldId);
    FIRAIM_HIDDEN int runCount(char const* function, std::string const& sql, int kind);
    FIRAIM_HIDDEN void storeCount(int kind, char** argv);

    static FaultDb* m_pInstance;

    int m_dbgLevel = 0;
    unsigned short m_ErrorActiveNr = 0; ///< last count of active faults
    unsigned short m_ErrorNr;           ///< last count of statistics; deliberately not set before the first count
    bool m_isOpen = false;
    bool m_compatibleMode = false; ///< a file of another version was accepted once; never reset
    FdbSqlVersionTbl m_versionTbl;
    FdbSqlFaultTbl m_faultTbl;
    FdbSqlFaultStatisticTbl m_faultStatisticTbl;
    short m_dbHandle = -1;
};
