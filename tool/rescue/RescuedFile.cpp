#include <tool/rescue/RescuedFile.h>

#include <tool/process/Interrupt.h>
#include <tool/process/Problem.h>
#include <tool/schema/SchemaCheck.h>

#include <db/internal/BlockSignals.h>
#include <fdb/FaultDb.h>

#include <cerrno>
#include <system_error>

#include <fcntl.h>
#include <unistd.h>

namespace tool
{

namespace
{

constexpr char kConflict[] = "another row has the same key";

sqlite::Connection createFile(std::string const& path)
{
    {
        // As `create`: the library makes the file in several steps.
        BlockSignals const whole;
        int const result = FaultDb::getInstance()->createDb(path, false);
        if (result != RESULT_OK)
        {
            throw Problem(STATUS_BAD_FILE, path + ": cannot be created (" + std::to_string(result) +
                                               "); check that its folder has room and can be written to");
        }
    }
    sqlite::Connection connection(path, sqlite::Connection::READ_WRITE, {lockWait::kBusyTimeout, interrupt::isPending});
    connection.run("PRAGMA synchronous=OFF");
    connection.run("PRAGMA journal_mode=OFF");
    return connection;
}

/// "?1,?2" and so on.
std::string parameters(std::size_t count)
{
    std::string text;
    for (std::size_t number = 1; number <= count; ++number)
    {
        text += (number == 1 ? "?" : ",?") + std::to_string(number);
    }
    return text;
}

std::string insertText(TableSchema const& schema)
{
    return "INSERT OR IGNORE INTO " + schema.name + " VALUES(" + parameters(schema.columns.size()) + ")";
}

std::string matchText(TableSchema const& schema)
{
    std::string text = "SELECT 1 FROM " + schema.name + " WHERE ";
    for (std::size_t column = 0; column < schema.columns.size(); ++column)
    {
        text += (column == 0 ? "" : " AND ") + schema.columns[column].name + " = ?" + std::to_string(column + 1);
    }
    return text;
}

void bindCell(sqlite::Statement& statement, int parameter, RecordCell const& cell)
{
    switch (cell.type)
    {
    case RecordCell::INTEGER:
        statement.bind(parameter, cell.integer);
        break;
    case RecordCell::REAL:
        statement.bindReal(parameter, cell.real);
        break;
    case RecordCell::TEXT:
        statement.bind(parameter, cell.bytes);
        break;
    case RecordCell::BLOB:
        statement.bindBlob(parameter, cell.bytes);
        break;
    default:
        statement.bindNull(parameter);
    }
}

/// Binds the key and the cells behind it; those that the row lacks are NULL.
void bindRow(sqlite::Statement& statement, FoundRow const& row, std::size_t columns)
{
    statement.bind(1, row.key);
    for (std::size_t column = 1; column < columns; ++column)
    {
        bindCell(statement, static_cast<int>(column + 1), column < row.cells.size() ? row.cells[column] : RecordCell());
    }
}

void synchronise(std::string const& path)
{
    int const descriptor = open(path.c_str(), O_RDWR | O_CLOEXEC);
    bool const isDone = descriptor >= 0 && fsync(descriptor) == 0;
    int const error = errno;
    if (descriptor >= 0)
    {
        static_cast<void>(close(descriptor)); // Nothing was written through it.
    }
    if (!isDone)
    {
        throw Problem(STATUS_BAD_FILE, path + ": " + std::generic_category().message(error));
    }
}

} // namespace

RescuedFile::RescuedFile(std::string const& path)
    : m_path(path), m_connection(createFile(path)), m_transaction(std::in_place, m_connection, "BEGIN EXCLUSIVE"),
      m_insertFault(m_connection.prepare(insertText(faultSchema()))),
      m_matchFault(m_connection.prepare(matchText(faultSchema())))
{
}

void RescuedFile::addFault(FoundRow const& row)
{
    if (m_conflicts.count(row.key) != 0)
    {
        addDoubtful(row, kConflict);
        return;
    }
    bindRow(m_insertFault, row, faultSchema().columns.size());
    m_insertFault.run();
    if (sqlite3_changes(m_connection.get()) == 1)
    {
        ++m_faults;
    }
    else if (!hasFault(row))
    {
        makeDoubtful(row.key);
        addDoubtful(row, kConflict);
    }
}

bool RescuedFile::hasFault(FoundRow const& row)
{
    bindRow(m_matchFault, row, faultSchema().columns.size());
    bool const isThere = m_matchFault.step();
    m_matchFault.reset();
    return isThere;
}

/// Moves the fault with this key to the doubtful rows.
void RescuedFile::makeDoubtful(std::int64_t key)
{
    createDoubtfulTable();
    sqlite::Statement copy =
        m_connection.prepare(std::string("INSERT INTO ") + kDoubtfulTable + " SELECT *, NULL, ?2 FROM " +
                             faultSchema().name + " WHERE EntryId = ?1");
    copy.bind(1, key).bind(2, kConflict);
    copy.run();
    sqlite::Statement remove = m_connection.prepare("DELETE FROM " + faultSchema().name + " WHERE EntryId = ?1");
    remove.bind(1, key);
    remove.run();
    m_conflicts.insert(key);
    --m_faults;
    ++m_doubtful;
}

void RescuedFile::createDoubtfulTable()
{
    if (m_insertDoubtful)
    {
        return;
    }
    std::string columns;
    for (Column const& column : faultSchema().columns)
    {
        columns += "\"" + column.name + "\" " + column.sqlType + ",";
    }
    m_connection.run(std::string("CREATE TABLE \"") + kDoubtfulTable + "\" (" + columns +
                     "\"PageNumber\" INTEGER,\"Reason\" VARCHAR)");
    m_insertDoubtful = m_connection.prepare(std::string("INSERT INTO ") + kDoubtfulTable + " VALUES(" +
                                            parameters(faultSchema().columns.size() + 2) + ")");
}

void RescuedFile::addDoubtful(FoundRow const& row, std::string const& reason)
{
    if (hasFault(row))
    {
        return;
    }
    createDoubtfulTable();
    std::size_t const columns = faultSchema().columns.size();
    bindRow(m_insertDoubtful, row, columns);
    m_insertDoubtful.bind(static_cast<int>(columns + 1), static_cast<std::int64_t>(row.page));
    m_insertDoubtful.bind(static_cast<int>(columns + 2), reason);
    m_insertDoubtful.run();
    ++m_doubtful;
}

bool RescuedFile::addRow(TableSchema const& schema, FoundRow const& row)
{
    sqlite::Statement insert = m_connection.prepare(insertText(schema));
    bindRow(insert, row, schema.columns.size());
    insert.run();
    return sqlite3_changes(m_connection.get()) == 1;
}

void RescuedFile::clearVersions()
{
    m_connection.run("DELETE FROM " + versionSchema().name);
}

void RescuedFile::raiseSequence(TableSchema const& schema, std::int64_t lastKey)
{
    sqlite::Statement update = m_connection.prepare("UPDATE sqlite_sequence SET seq = max(seq, ?2) WHERE name = ?1");
    update.bind(1, schema.name).bind(2, lastKey);
    update.run();
    if (sqlite3_changes(m_connection.get()) == 0)
    {
        sqlite::Statement insert = m_connection.prepare("INSERT INTO sqlite_sequence(name, seq) VALUES(?1, ?2)");
        insert.bind(1, schema.name).bind(2, lastKey);
        insert.run();
    }
}

std::int64_t RescuedFile::lastKey(TableSchema const& schema) const
{
    return m_connection.number("SELECT max(seq) FROM sqlite_sequence WHERE name = '" + schema.name + "'");
}

void RescuedFile::finish()
{
    m_transaction->commit();
    sqlite::Statement check = m_connection.prepare("PRAGMA quick_check(1)");
    if (!check.step() || check.text(0) != "ok")
    {
        throw Problem(STATUS_BAD_FILE, m_path + ": is damaged after it was written: " + std::string(check.text(0)) +
                                           "; choose another medium for the new file");
    }
    check.reset();
    interrupt::throwIfPending();
    synchronise(m_path);
}

} // namespace tool
