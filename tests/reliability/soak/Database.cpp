#include "Database.h"
#include "Violation.h"

#include <memory>

#include <sqlite3.h>

namespace soak
{

namespace
{

constexpr int kBusyTimeoutMs = 60000; ///< longer than any other process keeps a lock

} // namespace

Database::Database(std::string const& path) : m_path(path)
{
    if (sqlite3_open_v2(path.c_str(), &m_handle, SQLITE_OPEN_READWRITE, nullptr) != SQLITE_OK)
    {
        std::string const problem = sqlite3_errmsg(m_handle);
        sqlite3_close(m_handle);
        throw Violation(path + " cannot be opened: " + problem);
    }
    sqlite3_busy_timeout(m_handle, kBusyTimeoutMs);
}

Database::~Database()
{
    sqlite3_close(m_handle);
}

std::string Database::Row::text(int column) const
{
    // Read as a blob, so that a text with zero bytes is not cut.
    auto const* const bytes = static_cast<char const*>(sqlite3_column_blob(m_statement, column));
    return bytes != nullptr ? std::string(bytes, static_cast<std::size_t>(sqlite3_column_bytes(m_statement, column)))
                            : std::string();
}

unsigned long long Database::Row::number(int column) const
{
    return static_cast<unsigned long long>(sqlite3_column_int64(m_statement, column));
}

void Database::forEach(std::string const& sql, std::function<void(Row const&)> const& visit)
{
    sqlite3_stmt* prepared = nullptr;
    if (sqlite3_prepare_v2(m_handle, sql.c_str(), -1, &prepared, nullptr) != SQLITE_OK)
    {
        fail(sql);
    }
    std::unique_ptr<sqlite3_stmt, int (*)(sqlite3_stmt*)> const statement(prepared, sqlite3_finalize);
    int result = SQLITE_ROW;
    while ((result = sqlite3_step(prepared)) == SQLITE_ROW)
    {
        visit(Row(prepared));
    }
    if (result != SQLITE_DONE)
    {
        fail(sql);
    }
}

void Database::run(std::string const& sql)
{
    forEach(sql, [](Row const&) {});
}

std::string Database::value(std::string const& sql)
{
    std::string result;
    forEach(sql, [&](Row const& row) { result = row.text(0); });
    return result;
}

void Database::fail(std::string const& what) const
{
    throw Violation(m_path + ": " + sqlite3_errmsg(m_handle) + ": " + what);
}

} // namespace soak
