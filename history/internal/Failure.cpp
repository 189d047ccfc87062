#include <history/internal/Failure.h>

#include <db/internal/Join.h>
#include <db/internal/ReadOnlyOpening.h>

#include <cerrno>
#include <cstring>
#include <new>

namespace firaim
{

namespace
{

int resultOf(sqlite::Error const& error)
{
    switch (error.kind())
    {
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
        return HISTORY_BUSY;
    case SQLITE_CORRUPT:
    case SQLITE_NOTADB:
        return HISTORY_DAMAGED;
    case SQLITE_INTERRUPT:
        return HISTORY_CANCELLED;
    default:
        return HISTORY_FAILED;
    }
}

char const* adviceFor(sqlite::Error const& error)
{
    if (error.isFailedRead())
    {
        return readOnlyOpening::kFailedReadAdvice;
    }
    switch (error.kind())
    {
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
        return "; another process keeps it locked, try again";
    case SQLITE_CORRUPT:
        return "; 'firaim check' tells what is damaged";
    case SQLITE_NOTADB:
        return "; it is no SQLite database";
    case SQLITE_FULL:
        return "; make room on its storage and try again";
    case SQLITE_READONLY:
        return error.code() == SQLITE_READONLY_DBMOVED ? "; its file was removed or renamed while it was open" : "";
    default:
        return "";
    }
}

} // namespace

Failure::Failure(std::string const& path, sqlite::Error const& error)
    : m_result(resultOf(error)), m_text(join({path, ": ", error.what(), adviceFor(error)}))
{
}

void failWithErrno(std::string const& path, char const* action)
{
    throw Failure(HISTORY_FAILED, join({path, ": ", action, ": ", std::strerror(errno)}));
}

void require(sqlite::Connection const& connection, int code)
{
    if (code != SQLITE_OK)
    {
        throw sqlite::Error(connection.get(), code);
    }
}

void requireOneChange(sqlite::Connection const& connection)
{
    if (sqlite3_changes(connection.get()) != 1)
    {
        throw sqlite::Error(nullptr, SQLITE_CONSTRAINT);
    }
}

void setProblem(std::string& to, std::string_view text) noexcept
{
    try
    {
        to = text;
    }
    catch (std::bad_alloc const&)
    {
        to.clear();
    }
}

void setProblem(std::string& to, std::string_view path, std::string_view text) noexcept
{
    try
    {
        std::string whole(path);
        whole.append(": ").append(text);
        to.swap(whole);
    }
    catch (std::bad_alloc const&)
    {
        to.clear();
    }
}

int caughtResult(std::string const& path, std::string& problem)
{
    try
    {
        throw;
    }
    catch (Failure const& failure)
    {
        setProblem(problem, failure.text());
        return failure.result();
    }
    catch (std::bad_alloc const&)
    {
        setProblem(problem, path, kNoMemory);
    }
    catch (std::exception const& exception)
    {
        setProblem(problem, path, exception.what());
    }
    return HISTORY_FAILED;
}

bool isDamage(sqlite::Error const& error)
{
    return error.kind() == SQLITE_CORRUPT || error.kind() == SQLITE_NOTADB;
}

} // namespace firaim
