#pragma once

#include <db/internal/Sqlite.h>

#include <string>

/// Turns failures of the library and of SQLite into problems.
namespace tool
{

/// Throws a Problem for a `result` below 0, with the library's text `problem`; after a signal, interrupt::Interrupted
/// if the result comes from it.
[[noreturn]] void throwFailure(int result, std::string const& problem);
/// The same for an error of SQLite with the file at `path`.
[[noreturn]] void throwFailure(std::string const& path, sqlite::Error const& error);

/// Runs `work`, which calls SQLite for the file at `path`, and passes its errors to `throwFailure`.
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
