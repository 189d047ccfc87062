#include <history/internal/ReaderCore.h>

#include <db/internal/Join.h>
#include <db/internal/ReadOnlyOpening.h>
#include <history/internal/Deadline.h>
#include <history/internal/RowBatch.h>

#include <algorithm>

namespace firaim
{

namespace
{

int resultOf(readOnlyOpening::FailureKind failure)
{
    switch (failure)
    {
    case readOnlyOpening::NO_FILE:
        return HISTORY_NO_FILE;
    case readOnlyOpening::BAD_PATH:
        return HISTORY_BAD_PATH;
    case readOnlyOpening::LOG_UNREADABLE:
        return HISTORY_LOG_UNREADABLE;
    case readOnlyOpening::EMPTIED:
        return HISTORY_DAMAGED;
    case readOnlyOpening::UNREADABLE:
        break;
    }
    return HISTORY_FAILED;
}

int resultOf(sqlite::Error const& error, bool isCancelled)
{
    if (error.code() == SQLITE_READONLY_ROLLBACK)
    {
        return HISTORY_HOT_JOURNAL;
    }
    switch (error.kind())
    {
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
        return isCancelled ? HISTORY_CANCELLED : HISTORY_BUSY;
    case SQLITE_INTERRUPT:
        return HISTORY_CANCELLED;
    case SQLITE_CORRUPT:
        return HISTORY_DAMAGED;
    case SQLITE_NOTADB:
        return HISTORY_FOREIGN_FILE;
    default:
        return HISTORY_FAILED;
    }
}

} // namespace

int ReaderCore::open()
{
    try
    {
        openFile();
        int const result = check();
        if (result != HISTORY_OK)
        {
            m_connection.reset();
            return result;
        }
        m_texts = {describe(m_faults.bound()), describe(m_statistics.bound()), describe(m_versions.bound())};
        m_hasSequence = m_connection->number(
                            "SELECT count(*) FROM sqlite_master WHERE name = 'sqlite_sequence' AND rootpage > 0") > 0;
        return HISTORY_OK;
    }
    catch (...)
    {
        m_connection.reset();
        return fail();
    }
}

/// Opens the file and gets the identity of the file that was opened.
void ReaderCore::openFile()
{
    auto const busyTimeout = deadline::bounded(m_options.busyTimeout);
    std::optional<FileIdentity> after;
    do
    {
        // Another file may get the name in between.
        m_identity = identityOf(m_path.absolute()).value_or(FileIdentity());
        m_connection.reset();
        m_connection = readOnlyOpening::open(m_path, {busyTimeout, m_options.isCancelled});
        after = identityOf(m_path.absolute());
    } while (after && *after != m_identity);
    // Most rows are read once: a larger cache would hold pages that are not needed again.
    m_connection->run("PRAGMA cache_size=-256");
}

/// Checks that the file can be read as a fault database.
int ReaderCore::check()
{
    for (std::string const* const name :
         {&m_faults.bound().name(), &m_statistics.bound().name(), &m_versions.bound().name()})
    {
        if (!hasTable(*name))
        {
            return HISTORY_FOREIGN_FILE;
        }
    }
    if (m_options.isAnyVersionRead)
    {
        return HISTORY_OK;
    }
    std::optional<std::string> const version = formatVersion();
    if (!version)
    {
        return fail(HISTORY_VERSION_MISMATCH,
                    "the format version is missing or not the only one; 'firaim check' tells more");
    }
    if (*version != FdbSqlVersionTbl::kFormatVersion)
    {
        return fail(HISTORY_VERSION_MISMATCH,
                    join({"format version ", *version, " is not ", FdbSqlVersionTbl::kFormatVersion}));
    }
    return HISTORY_OK;
}

bool ReaderCore::hasTable(std::string const& name)
{
    sqlite::Statement statement = m_connection->prepare("SELECT type, rootpage FROM sqlite_master WHERE name = ?1");
    statement.bind(1, name);
    if (!statement.step())
    {
        static_cast<void>(fail(HISTORY_FOREIGN_FILE, "no fault database: it has no table " + name));
        return false;
    }
    // The schema decides where the rows of a view come from, and they may never end.
    std::string const type(statement.text(0));
    if (type == "table" && statement.integer(1) != 0)
    {
        return true;
    }
    static_cast<void>(fail(HISTORY_FOREIGN_FILE,
                           join({"no fault database: ", name, " is a ", type == "table" ? "virtual table" : type})));
    return false;
}

ReaderCore::QueryText ReaderCore::describe(BoundTable const& table) const
{
    QueryText text;
    text.name = table.name();
    sqlite::Statement info = m_connection->prepare(
        "SELECT pk = 1 AND type = 'INTEGER' COLLATE NOCASE FROM pragma_table_xinfo(?1) WHERE name "
        "= ?2 COLLATE NOCASE");
    auto const hasColumn = [&](std::string const& name)
    {
        info.reset();
        return info.bind(1, text.name).bind(2, name).step();
    };
    for (std::size_t id = 0; id < table.columnCount(); ++id)
    {
        bool const isThere = hasColumn(table.column(id));
        text.columns.append(id == 0 ? "" : ", ").append(isThere ? text.name + '.' + table.column(id) : "NULL");
    }
    if (hasColumn(table.key()) && info.integer(0) != 0)
    {
        text.key = text.name + '.' + table.key();
        return text;
    }
    // SQLite's own names of the key; a column of the same name hides one.
    for (std::string const name : {"rowid", "_rowid_", "oid"})
    {
        text.key = text.name + '.' + name;
        if (!hasColumn(name))
        {
            break;
        }
    }
    return text;
}

RowCursor ReaderCore::rows(HistoryTable table, FaultQuery::Order order, RowCursor::KeyRange range)
{
    return RowCursor(shared_from_this(), table, order, range);
}

RowView ReaderCore::rowOf(RowCursor const& cursor)
{
    return cursor.row();
}

sqlite::Statement ReaderCore::prepareRows(HistoryTable table, FaultQuery::Order order) const
{
    QueryText const& text = this->text(table);
    return m_connection->prepare(
        join({"SELECT ", text.columns, ", ", text.key, " FROM ", text.name, " WHERE ", text.key, " >= ?1 AND ",
              text.key, " <= ?2 ORDER BY ", text.key, order == FaultQuery::NEWEST_FIRST ? " DESC" : "", " LIMIT ?3"}));
}

sqlite::Statement ReaderCore::prepareBounds(HistoryTable table) const
{
    QueryText const& text = this->text(table);
    return m_connection->prepare(join({"SELECT (SELECT min(", text.key, ") FROM ", text.name, "), (SELECT max(",
                                       text.key, ") FROM ", text.name, ")"}));
}

sqlite::Statement ReaderCore::prepareCount(HistoryTable table) const
{
    QueryText const& text = this->text(table);
    return m_connection->prepare(join({"SELECT count(*), max(k) FROM (SELECT ", text.key, " AS k FROM ", text.name,
                                       " WHERE ", text.key, " >= ?1 ORDER BY ", text.key, " LIMIT ?2)"}));
}

std::int64_t ReaderCore::largestFaultKey() const
{
    std::int64_t const sequence =
        m_hasSequence ? m_connection->number("SELECT seq FROM sqlite_sequence WHERE name = 'FdbFaultTbl'") : 0;
    sqlite::Statement bounds = prepareBounds(HistoryTable::FAULTS);
    // Another program may have chosen a key itself, or created the table without AUTOINCREMENT.
    return bounds.step() && !bounds.isNull(1) ? std::max(sequence, bounds.integer(1)) : sequence;
}

std::optional<std::string> ReaderCore::formatVersion() const
{
    sqlite::Statement statement =
        m_connection->prepare("SELECT Version FROM FdbVersionTbl WHERE Component LIKE 'FormatVersion' LIMIT 2");
    if (!statement.step())
    {
        return std::nullopt;
    }
    std::string const version(statement.text(0));
    return statement.step() ? std::nullopt : std::optional(version);
}

int ReaderCore::fail(int result, std::string const& text)
{
    m_problem = m_path.given().empty() ? text : m_path.given() + ": " + text;
    return result;
}

int ReaderCore::fail()
{
    try
    {
        throw;
    }
    catch (readOnlyOpening::Failure const& failure)
    {
        m_problem = failure.what();
        return resultOf(failure.failure());
    }
    catch (sqlite::Error const& error)
    {
        m_problem = readOnlyOpening::problemText(m_path, error);
        return resultOf(error, isCancelled());
    }
}

} // namespace firaim
