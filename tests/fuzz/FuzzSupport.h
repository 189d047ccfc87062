#pragma once

#include <sqlite3.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// Shared by the fuzz targets. A finding is a process that aborts, so `require` is their only expectation.
namespace fuzz
{

/// Ends the process with `what` on standard error unless `holds`.
void require(bool holds, char const* what);

/// Takes the library's log lines away: they would cost more than what is tested.
void silenceLog();

/// A fresh directory in memory where there is one, removed when the process ends in the ordinary way.
class MemoryDir
{
public:
    MemoryDir();
    ~MemoryDir();
    MemoryDir(MemoryDir const&) = delete;
    MemoryDir& operator=(MemoryDir const&) = delete;

    std::string file(std::string const& name) const { return m_path + "/" + name; }

private:
    std::string m_path;
};

std::string readFile(std::string const& path);
void writeFile(std::string const& path, std::string_view bytes);

/// Removes the database file and what SQLite keeps beside it.
void removeDatabase(std::string const& path);

using Cells = std::vector<std::optional<std::string>>;

/// The rows of `sql` as SQLite gives them; a statement that fails is a finding.
std::vector<Cells> rawRows(sqlite3* db, std::string const& sql);

/// The input of a target that is read from its beginning, number by number; behind its end there are zeros.
class Input
{
public:
    Input(std::uint8_t const* data, std::size_t size) : m_rest(reinterpret_cast<char const*>(data), size) {}

    bool isAtEnd() const { return m_rest.empty(); }
    /// The next byte.
    std::size_t byte();
    /// The next eight bytes.
    std::uint64_t number();
    /// The next bytes, as many as there are up to `size`.
    std::string bytes(std::size_t size);
    /// A length and so many bytes. Most texts are short, so that the same ones come again; some need several pages.
    std::string text();

private:
    std::string_view m_rest;
};

/// The pieces of `text` between the separators; always at least one.
std::vector<std::string_view> split(std::string_view text, char separator);

} // namespace fuzz
