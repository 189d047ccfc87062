#include <tool/damage/ReadableRows.h>

#include <tool/files/Failures.h>
#include <tool/files/LockedBytes.h>
#include <tool/process/Interrupt.h>
#include <tool/process/Problem.h>
#include <tool/values/Text.h>

#include <db/internal/ReadOnlyOpening.h>

#include <limits>
#include <system_error>
#include <utility>

#include <sys/stat.h>

namespace tool
{

namespace
{

constexpr std::int64_t kLargest = std::numeric_limits<std::int64_t>::max();
/// Gaps that a message names.
constexpr std::size_t kMostNamed = 8;

sqlite::Waiting waiting()
{
    return {lockWait::kBusyTimeout, interrupt::isPending};
}

std::uint64_t sizeOf(std::string const& path)
{
    struct stat status = {};
    return stat(path.c_str(), &status) == 0 ? static_cast<std::uint64_t>(status.st_size) : 0;
}

[[noreturn]] void failWithoutRoom(std::string const& path, std::string const& reason)
{
    throw Problem(STATUS_BAD_FILE, path + ": is damaged, and there is no room for the rows that can be read: " +
                                       reason + "; set TMPDIR to another folder");
}

std::unique_ptr<TemporaryFile const> makeTemporaryFile(std::string const& path)
{
    try
    {
        return std::make_unique<TemporaryFile const>(sizeOf(path));
    }
    catch (std::system_error const& error)
    {
        failWithoutRoom(path, error.what());
    }
}

/// A table of the library's name whose columns keep any type of value. Only the key has a type.
std::string createStatementOf(TableSchema const& schema)
{
    std::string sql;
    for (Column const& column : schema.columns)
    {
        sql += sql.empty() ? "CREATE TABLE \"" + schema.name + "\" (" : ", ";
        sql += "\"" + column.name + "\"";
        sql += column.kind == ColumnKind::KEY ? " INTEGER PRIMARY KEY AUTOINCREMENT NOT NULL" : "";
    }
    return sql + ")";
}

std::string insertStatementOf(TableSchema const& schema)
{
    std::string sql = "INSERT INTO \"" + schema.name + "\" VALUES (?1";
    for (std::size_t column = 2; column <= schema.columns.size(); ++column)
    {
        sql += ", ?" + std::to_string(column);
    }
    return sql + ")";
}

} // namespace

ReadableRows::ReadableRows(std::string path)
    : m_path(std::move(path)), m_source(openSource()), m_file(makeTemporaryFile(m_path)),
      m_target(m_file->path(), sqlite::Connection::READ_WRITE)
{
    usingSqlite(m_path,
                [&]
                {
                    createTables();
                    readSequence();
                });
    firaim::ReaderOptions options;
    options.isCancelled = interrupt::isPending;
    options.isAnyVersionRead = true;
    int const result = m_reader.open(m_file->path(), options);
    if (result < 0)
    {
        throwFailure(result, m_reader.lastProblem());
    }
}

sqlite::Connection ReadableRows::openSource()
{
    try
    {
        // SQLite opens a file whose last page is cut off, and reads zeros as rows.
        sqlite::Connection connection = readOnlyOpening::open(m_path, waiting());
        if (!countPages(m_path).isCut())
        {
            return connection;
        }
    }
    catch (readOnlyOpening::Failure const& failure)
    {
        throw Problem(STATUS_BAD_FILE, failure.what());
    }
    catch (sqlite::Error const& error)
    {
        if (error.kind() != SQLITE_CORRUPT)
        {
            throwFailure(m_path, error);
        }
    }
    try
    {
        m_bytes = makeTemporaryFile(m_path);
        m_pages = copyBytes(m_path, *m_bytes, [](double) {}).pages;
        return readOnlyOpening::open(m_bytes->path(), waiting());
    }
    catch (std::system_error const& error)
    {
        failWithoutRoom(m_path, error.what());
    }
    catch (sqlite::Error const&)
    {
        throw Problem(STATUS_BAD_FILE, m_path + ": its first pages are damaged, so that its tables cannot be found; "
                                                "'firaim rescue FILE NEW' reads the other pages");
    }
}

void ReadableRows::createTables() const
{
    // The file is gone after the command: it needs neither a journal nor the storage.
    m_target.run("PRAGMA journal_mode=OFF");
    m_target.run("PRAGMA synchronous=OFF");
    for (TableSchema const* const schema : allSchemas())
    {
        m_target.run(createStatementOf(*schema));
    }
}

/// Reads the largest keys that SQLite has used; none if their page is damaged.
void ReadableRows::readSequence()
{
    try
    {
        sqlite::Statement sequence =
            m_source.prepare("SELECT name, seq FROM sqlite_sequence WHERE typeof(seq) = 'integer' ORDER BY rowid");
        while (sequence.step())
        {
            m_lastKeys[std::string(sequence.text(0))] = sequence.integer(1);
        }
    }
    catch (sqlite::Error const& error)
    {
        if (error.kind() == SQLITE_INTERRUPT)
        {
            throw;
        }
        m_isSequenceLost = true;
    }
}

void ReadableRows::add(TableSchema const& schema)
{
    if (has(schema))
    {
        return;
    }
    try
    {
        copyRows(schema);
    }
    catch (sqlite::Error const& error)
    {
        // Other errors of the source than those of writing come from locks or signals.
        if (error.kind() == SQLITE_FULL || error.kind() == SQLITE_IOERR)
        {
            failWithoutRoom(m_path, error.what());
        }
        throwFailure(m_path, error);
    }
}

void ReadableRows::copyRows(TableSchema const& schema)
{
    sqlite::Statement kind = m_source.prepare("SELECT 1 FROM sqlite_master WHERE name = ?1 AND type = 'table' AND "
                                              "rootpage > 0");
    if (!kind.bind(1, schema.name).step())
    {
        throw Problem(STATUS_BAD_FILE, m_path + ": no fault database: it has no table " + schema.name +
                                           "; 'firaim rescue FILE NEW' reads the pages of a damaged one");
    }
    kind.reset();
    RowsAroundDamage rows(m_source, schema, findGapsOf(m_bytes ? m_bytes->path() : m_path, schema));
    sqlite::Transaction transaction(m_target, "BEGIN");
    sqlite::Statement insert = m_target.prepare(insertStatementOf(schema));
    std::uint64_t count = 0;
    for (; rows.next(); ++count)
    {
        insert.bind(1, rows.key());
        for (std::size_t column = 1; column < schema.columns.size(); ++column)
        {
            auto const cell = static_cast<int>(column + 1);
            int const code = sqlite3_bind_value(insert.get(), cell, sqlite3_column_value(rows.row().get(), cell));
            if (code != SQLITE_OK)
            {
                throw sqlite::Error(m_target.get(), code);
            }
        }
        insert.run();
    }
    auto const last = m_lastKeys.find(schema.name);
    if (last != m_lastKeys.end())
    {
        m_target.prepare("DELETE FROM sqlite_sequence WHERE name = ?1").bind(1, schema.name).run();
        m_target.prepare("INSERT INTO sqlite_sequence VALUES (?1, ?2)")
            .bind(1, schema.name)
            .bind(2, last->second)
            .run();
    }
    transaction.commit();
    std::vector<KeyGap>& gaps = m_gaps[&schema];
    gaps = rows.gaps();
    m_counts[&schema] = count;
    if (!gaps.empty() && gaps.back().keys.last == kLargest && last != m_lastKeys.end() &&
        last->second >= gaps.back().keys.first)
    {
        gaps.back().keys.last = last->second;
    }
}

void ReadableRows::readLastKeys(std::function<void(std::string const& table, std::int64_t key)> const& take) const
{
    for (auto const& [table, key] : m_lastKeys)
    {
        take(table, key);
    }
}

std::string ReadableRows::damageText() const
{
    std::string const cut = m_pages && m_pages->isCut() ? "only " + grouped(m_pages->whole) + " of its " +
                                                              counted(m_pages->expected, "page") + " are there: "
                                                        : "";
    std::string const missing = missingText();
    return cut + (missing.empty() ? "it is damaged, but no row is known to be missing" : missing);
}

/// The gaps of the tables that were added, as a list; empty if there are none.
std::string ReadableRows::missingText() const
{
    std::string text;
    std::size_t count = 0;
    for (TableSchema const* const schema : allSchemas())
    {
        if (!has(*schema))
        {
            continue;
        }
        for (KeyGap const& gap : gapsOf(*schema))
        {
            if (++count <= kMostNamed)
            {
                text += (text.empty() ? "" : "; ") + gapText(*schema, gap);
            }
        }
    }
    return count <= kMostNamed ? text : text + "; and " + counted(count - kMostNamed, "range") + " more";
}

} // namespace tool
