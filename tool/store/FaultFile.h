#pragma once

#include <db/internal/Sqlite.h>
#include <history/FaultReader.h>
#include <history/FaultRecorder.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <optional>
#include <string>

namespace tool
{

/// A fault database that is only read: no byte of it changes, and it may lie on a read-only medium.
class FaultFile
{
public:
    /// Opens the file at `path` and makes sure that it is a fault database. Throws a Problem when it cannot be read or
    /// is none. One of another format version is accepted, and that is said on standard error.
    /// It waits for other processes for as long as `busyTimeout` says, here and whenever it is read.
    explicit FaultFile(std::string const& path, std::chrono::milliseconds busyTimeout = lockWait::kBusyTimeout);

    std::string const& path() const { return m_path; }
    firaim::FaultReader& reader() { return m_reader; }
    /// The text of the format version; none unless there is exactly one.
    std::optional<std::string> const& formatVersion() const { return m_formatVersion; }

    /// Whether `result`, of the reader or one of its cursors, says that what was asked for is there. Throws a Problem,
    /// or interrupt::Interrupted, when it could not be read.
    bool isFound(int result) const;

private:
    std::string const m_path;
    firaim::FaultReader m_reader;
    std::optional<std::string> m_formatVersion;
};

/// Opens a file for reading. It need not be a fault database, but must be an SQLite database.
sqlite::Connection openForReading(std::string const& path);

/// Calls `take` for each table of the file at `path` that never uses a key again, with the largest key used so far.
void readLastKeys(std::string const& path, std::function<void(std::string const& table, std::int64_t key)> const& take);

/// Opens the fault database at `path`, of the one format version that the library writes, for changing it so that a
/// finished transaction lasts. Throws a Problem that says what is wrong with it. A transaction that a writer left
/// unfinished is rolled back.
sqlite::Connection openForChanging(std::string const& path);

/// Changes or reads a file and returns an answer. Throws sqlite::Error or a Problem.
using FileAction = std::function<bool(sqlite::Connection const&)>;

/// Changes a fault database, opened by `openForChanging`, in one transaction: all of it is stored, or nothing. `change`
/// returns whether there was anything to do. `isStored` looks for what `change` has done, also in another connection
/// and when other processes have written since; it throws where nobody can tell.
///
/// Throws a Problem, whose text says that nothing was stored, or, when a commit has failed in its last steps and the
/// file does not tell what became of it, that this is not known.
void changeFile(std::string const& path, FileAction const& change, FileAction const& isStored);

/// Runs the statement `sql` in the transaction of `changeFile`, with these parameters, and returns how many rows it has
/// changed. A statement that runs triggers of the file gets 5 s of the processor's time; a Problem says that it has
/// taken longer.
std::uint64_t runWithTriggers(std::string const& path, sqlite::Connection const& connection, std::string const& sql,
                              std::initializer_list<std::int64_t> parameters);

/// Opens the fault database at `path`, which must be there, for recording, and waits for other processes for as long as
/// `busyTimeout` says. Throws a Problem.
void openRecorder(firaim::FaultRecorder& recorder, std::string const& path, firaim::RecorderOptions options,
                  std::chrono::milliseconds busyTimeout = lockWait::kBusyTimeout);

/// Rolls back what a crashed writer left half done in the file at `path`, and moves what is in its write-ahead log into
/// the file, which can then be read alone. Throws a Problem when that cannot be done.
void recoverFile(std::string const& path);

/// Ends the command because of a `result` below 0; `problem` is what the library says of it.
[[noreturn]] void throwFailure(int result, std::string const& problem);
/// Ends the command because a call of SQLite has failed at the file at `path`.
[[noreturn]] void throwFailure(std::string const& path, sqlite::Error const& error);

/// Runs what uses the file at `path` through SQLite itself, whose failures end the command.
template <class Work>
auto usingSqlite(std::string const& path, Work const& work)
{
    try
    {
        return work();
    }
    catch (sqlite::Error const& error)
    {
        throwFailure(path, error);
    }
}

} // namespace tool
