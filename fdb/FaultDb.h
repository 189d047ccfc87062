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

/// The fault database of the process: creates and opens the file, records faults and their statistics, reads them back.
///
/// Ownership: the library owns the one object, from the first `getInstance` to the end of the process. Records and
/// containers are the caller's; the library copies. Nothing closes the database when the process ends, and nothing is
/// lost by that: an operation that returned RESULT_OK is on the storage.
///
/// Threads: nothing here locks. Callers that use the object from several threads serialise their calls, the first
/// `getInstance` included. Several processes may use one file; a writer waits up to 5 s for another.
///
/// Results: the codes of db/ResultCode.h, as a plain int; reads of whole tables return the number of records. Unless an
/// operation says otherwise, a failure has changed neither the file nor the arguments, and the object stays usable.
/// A write that failed while storage failed under its commit may be stored whole all the same, never in part.
/// Exceptions of the standard library (allocation) pass through to the caller; a result argument may then hold
/// anything.
///
/// Log lines go to standard output through LogUtil: ERROR, WARNING and INFO always, DEBUG as `setDbgLevel` says.
///
/// Texts are written into statements as they are. A text in which every run of single quotes has an even length stays
/// inside its literal and is stored with each pair as one quote: `it''s` stores it's, and that is the way to store a
/// quote. A record with any other text, or with a zero byte in one, is refused with RESULT_FAILED and an ERROR line
/// that names the column, before anything is run.
class FIRAIM_EXPORT FaultDb : private Sqlite3DbCallback
{
public:
    /// The format version that this library writes and accepts: "1.0.0".
    static std::string const SUPPORTED_VERSION;

    /// The object of the process, created by the first call. An allocation failure passes through; a later call then
    /// tries again. Valid until static objects are destroyed at exit.
    static FaultDb* getInstance();

    FaultDb(FaultDb const&) = delete;
    FaultDb& operator=(FaultDb const&) = delete;

    /// Sets how much is logged: 0 no DEBUG lines, 1 what is done, 2 and above the SQL text too. From 2 on the
    /// connection layer logs as well; a lower level later does not silence that layer again.
    void setDbgLevel(int level);

    /// Creates a new database file at `path` with its three tables and its format version, and closes it again.
    ///
    /// A file exists when it may be read and written. RESULT_OK; RESULT_FILE_EXISTS when the file exists and
    /// `overwrite` is false, the file untouched; RESULT_FAILED when the old file cannot be removed or the new one not
    /// be created or opened, and for a file that holds something but must not be read or not be written, which is left
    /// as it is; otherwise the code of the table creation or insert that failed. With `overwrite` an existing file is
    /// removed first; nothing is ever emptied. Without `overwrite` no file that holds something is opened either, so
    /// that locks which this process has on it stay. After a later failure the file stays as far as it got; calling
    /// again with `overwrite` makes it good. The database is closed afterwards in every case that got as far as the
    /// file; one that was open before is lost to this object (its connection stays open), so close first. Also the way
    /// back after a failed `openDb`, see there.
    int createDb(std::string const& path, bool overwrite);

    /// Opens the database file at `path` and checks its format version.
    ///
    /// RESULT_OK when it is open; RESULT_INVALID_STATE when a database is open already; RESULT_FAILED when the file
    /// cannot be opened; RESULT_VERSION_MISMATCH, closed again, when the version differs and `compatibleMode` is false.
    /// With `compatibleMode` a file of another version is used as it is; nothing is migrated.
    ///
    /// A missing file is created empty and then has no version. When the version cannot be read (no database, no or
    /// several version rows) the code of that read is returned and the object counts as open with a closed connection:
    /// `openDb` and `closeDb` then return RESULT_INVALID_STATE. A `createDb` that gets as far as closing its file makes
    /// the object usable again. The file's bytes stay as they were, unless
    /// SQLite had to roll back what a crashed writer left half done.
    int openDb(std::string const& path, bool compatibleMode);

    /// Closes the database. RESULT_OK; RESULT_INVALID_STATE when none is open or the connection layer refuses, which
    /// leaves the database open. Writes no log line of its own.
    int closeDb();

    /// Reads the row of the format version into `version`. RESULT_FAILED unless there is exactly one, its component
    /// compared without regard to case; a negative code of `getVersionTbl`. `version` is written on success only.
    int getFormatVersion(FdbVersion& version);

    /// Runs `query`, a whole SELECT statement, and fills `tbl` with its rows, decoded as version rows by position.
    /// Returns the number of records; RESULT_INVALID_STATE when no database is open, RESULT_FAILED when the query
    /// fails; `tbl` is then untouched.
    int getVersionTbl(std::string query, FdbVersionTbl& tbl);

    /// Adds a version row; its key is assigned by the database and not read back.
    /// RESULT_OK, RESULT_INVALID_STATE when no database is open, RESULT_FAILED when the row cannot be stored.
    int insert(FdbVersion& version);

    /// Records a fault: adds a row and writes its key to `fault.EntryId`, which plays no part before. Each call adds a
    /// row. RESULT_OK once the row is on the storage; RESULT_INVALID_STATE when no database is open; RESULT_FAILED when
    /// it cannot be stored, or when the key cannot be read back: the row then stays, and `fault` is unchanged.
    /// The key is the largest in the table at the time of reading: with several writing processes it may be another's.
    int insert(Fault& fault);

    /// Rewrites the row with the key `fault.EntryId`, every other column. A record that was read holds each quote once:
    /// double the quotes before writing it back. RESULT_OK also when there is no such row;
    /// RESULT_INVALID_STATE when no database is open; RESULT_FAILED when the statement fails.
    int update(Fault const& fault);

    /// Adds a statistic row; its key is assigned by the database and not read back. A row for the same fault code is
    /// not looked for: keep one row for each code by reading it first. Codes as for `update`.
    int insert(FaultStatistic const& statistic);

    /// Rewrites every row with the fault code `statistic.FaultCode`, all columns but the key; `EntryId` plays no part.
    /// RESULT_OK also when there is no such row; RESULT_INVALID_STATE when no database is open; RESULT_FAILED when the
    /// statement fails.
    int update(FaultStatistic const& statistic);

    /// Reads the whole fault table, in SQLite's order, into `faults`, which is emptied first.
    /// Returns the number of records; RESULT_INVALID_STATE when no database is open, RESULT_FAILED when the query
    /// fails; `faults` is then untouched.
    int getFaultTbl(FaultTbl& faults);

    /// As above for `query`, a whole SELECT statement that is run as it is. Cells are decoded by position as the
    /// columns of the fault table, whatever table they come from; missing ones as NULL.
    int getFaultTbl(std::string const& query, FaultTbl& faults);

    /// As `getFaultTbl`, for the statistic table.
    int getFaultStatisticTbl(FaultStatisticTbl& statistics);
    /// As `getFaultTbl` with a query, for the statistic table.
    int getFaultStatisticTbl(std::string const& query, FaultStatisticTbl& statistics);

    /// As `getFaultStatisticTbl`, for the statistics of active faults.
    int getFaultStatisticTblErrorActive(FaultStatisticTbl& statistics);

    /// Reads the fault with the key `id` into `fault`. RESULT_OK; RESULT_FAILED when there is none, when the query
    /// fails or when no database is open; `fault` is then untouched.
    int getFaultById(Fault& fault, unsigned long long id);

    /// Reads the statistic of `faultCode`, the first one should there be several. Codes as for `getFaultById`.
    int getFaultStatisticForFC(FaultStatistic& statistic, unsigned int faultCode);

    /// Counts the rows of the statistic table, into 16 bits. RESULT_OK; RESULT_INVALID_STATE when no database is open;
    /// RESULT_FAILED after an ERROR line when the statement fails; `count` is then untouched.
    int getFaultStatisticTblErrorNr(unsigned short& count);

    /// As above, for the statistics of active faults.
    int getFaultStatisticTblErrorActiveNr(unsigned short& count);

    /// Moves every fault and statistic from the start-up id `oldId` to `newId`, row by row with `update`; nothing
    /// groups the rows. RESULT_INVALID_STATE when no database is open, otherwise RESULT_OK whatever happened to single
    /// rows. A row whose stored text holds a single quote cannot be written back and stays. While another process keeps
    /// the file locked, one row waits for it, and those that follow are tried at once. A statistic is written back by
    /// fault code, so rows that share its code all get its values.
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
