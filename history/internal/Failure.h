#pragma once

#include <db/internal/Sqlite.h>
#include <history/HistoryResult.h>

#include <exception>
#include <string>
#include <string_view>
#include <utility>

namespace firaim
{

/// Ends a call with a result and the text for `lastProblem`.
class Failure : public std::exception
{
public:
    Failure(int result, std::string text) : m_result(result), m_text(std::move(text)) {}
    /// The result and text of SQLite's `error` with the file at `path`.
    Failure(std::string const& path, sqlite::Error const& error);

    int result() const { return m_result; }
    std::string const& text() const { return m_text; }
    char const* what() const noexcept override { return m_text.c_str(); }

private:
    int m_result;
    std::string m_text;
};

/// Short enough for a std::string without an allocation.
constexpr char kNoMemory[] = "out of memory";
constexpr char kNotOpen[] = "the recorder is not open";

/// Throws Failure after `action` on the file at `path` has set `errno`.
[[noreturn]] void failWithErrno(std::string const& path, char const* action);

/// Throws sqlite::Error unless `code` is SQLITE_OK.
void require(sqlite::Connection const& connection, int code);

/// Throws sqlite::Error unless the last statement changed exactly one row: a trigger of the file may skip the change.
void requireOneChange(sqlite::Connection const& connection);

/// Sets a text for `lastProblem`. Short of memory, the text becomes empty and the call goes on.
void setProblem(std::string& to, std::string_view text) noexcept;
/// As above, with the name of the file before the text.
void setProblem(std::string& to, std::string_view path, std::string_view text) noexcept;

/// Call it where an exception was caught: sets `problem` to its text, beginning with the file at `path`, and returns
/// its result. An exception that is no std::exception passes through.
int caughtResult(std::string const& path, std::string& problem);

/// Whether `error` means that the content of the file is damaged, not that it cannot be read at this time.
bool isDamage(sqlite::Error const& error);

} // namespace firaim
