#pragma once

#include <tool/process/Problem.h>
#include <tool/schema/TableSchema.h>

#include <db/internal/Sqlite.h>
#include <history/FaultReader.h>
#include <history/FaultRecorder.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <memory>
#include <optional>
#include <set>
#include <string>

namespace tool
{

class ReadableRows;

/// A fault database that is only read: no byte of it changes, and it may be on a read-only medium.
class FaultFile
{
public:
    /// Opens the file at `path`. Throws a Problem when it cannot be read or is not a fault database. Accepts another
    /// format version, with a warning on standard error. `busyTimeout` applies here and to all later reading.
    explicit FaultFile(std::string const& path, std::chrono::milliseconds busyTimeout = lockWait::kBusyTimeout);
    /// The same for a command that prints as much of a damaged file as can be read.
    struct AroundDamage
    {
    };
    FaultFile(std::string const& path, AroundDamage);
    ~FaultFile();
    FaultFile(FaultFile const&) = delete;
    FaultFile& operator=(FaultFile const&) = delete;

    std::string const& path() const { return m_path; }
    firaim::FaultReader& reader() { return m_reader; }
    /// Reads a table of the file; once damage was met in it, the rows of it that can be read.
    firaim::FaultReader& readerOf(TableSchema const& schema);

    /// After `result` of a reader or a cursor of the table: makes `readerOf` read on behind the damage, or the pages
    /// that the medium does not return, if that is the problem. Returns whether it does so from now on; then the caller
    /// makes a new cursor.
    bool readsOnAfter(int result, TableSchema const& schema);
    /// At the end of a command that reads around damage: prints which rows are missing. Returns the exit status.
    ExitStatus reportDamage() const;
    /// Calls `take` for each AUTOINCREMENT table, with the largest key used so far.
    void readLastKeys(std::function<void(std::string const& table, std::int64_t key)> const& take);

    /// The text of the format version; none unless there is exactly one.
    std::optional<std::string> const& formatVersion() const { return m_formatVersion; }

    /// Whether `result`, of the reader or one of its cursors, means that something was found. Throws a Problem, or
    /// interrupt::Interrupted, when reading failed.
    bool isFound(int result) const;

private:
    void requireFirstPage(int result) const;
    void findMisplacedPages(TableSchema const& schema);
    bool isMediumFailing(TableSchema const& schema) const;
    void readFormatVersion();

    FaultFile(std::string const& path, std::chrono::milliseconds busyTimeout, bool isReadAroundDamage);
    std::string const m_path;
    bool const m_isReadAroundDamage;
    firaim::FaultReader m_reader;
    bool m_isOpen = false; ///< whether SQLite opens the file
    std::set<TableSchema const*> m_isLookedThrough;
    std::unique_ptr<ReadableRows> m_rows; ///< once damage was met
    std::optional<std::string> m_formatVersion;
};

/// Opens `reader` as all commands do: it reads any format version and ends after a signal. Returns its result.
int openReader(firaim::FaultReader& reader, std::string const& path, std::chrono::milliseconds busyTimeout);

/// Opens a file for reading. It need not be a fault database, but must be an SQLite database.
sqlite::Connection openForReading(std::string const& path);

/// Opens an SQLite database for writing durable transactions, and rolls back a transaction that a writer left
/// unfinished. It need not be a fault database. Throws sqlite::Error, or a Problem when nothing can be written.
sqlite::Connection openForRecovery(std::string const& path);

/// Opens the fault database at `path` for writing durable transactions. Its format version must be the one that the
/// library writes. Rolls back a transaction that a writer left unfinished. Throws a Problem that says what is wrong
/// with the file.
sqlite::Connection openForChanging(std::string const& path);

/// Changes or reads a file; `changeFile` says what it returns. Throws sqlite::Error or a Problem.
using FileAction = std::function<bool(sqlite::Connection const&)>;

/// Changes a fault database, opened by `openForChanging`, in one transaction: all of it is stored, or nothing. `change`
/// returns whether there was anything to do. `isStored` returns whether the file holds the change. It must work in
/// another connection and after writes of other processes; it throws if it cannot tell.
///
/// Throws a Problem. Its text says that nothing was stored, or that this is not known: when the commit has failed in
/// its last steps and the file does not show the outcome.
void changeFile(std::string const& path, FileAction const& change, FileAction const& isStored);

/// Runs the statement `sql` in the transaction of `changeFile`, with these parameters, and returns how many rows it has
/// changed. Throws a Problem when a statement that runs triggers of the file takes more than 5 s of processor time.
std::uint64_t runWithTriggers(std::string const& path, sqlite::Connection const& connection, std::string const& sql,
                              std::initializer_list<std::int64_t> parameters);

/// Opens the existing fault database at `path` for recording, with `busyTimeout`. Throws a Problem.
void openRecorder(firaim::FaultRecorder& recorder, std::string const& path, firaim::RecorderOptions options,
                  std::chrono::milliseconds busyTimeout = lockWait::kBusyTimeout);

} // namespace tool
