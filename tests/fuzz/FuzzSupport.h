#pragma once

#include <sqlite3.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// Functions that the fuzz targets share. libFuzzer reports an aborted process as a finding, so the targets check with
/// `require` only.
namespace fuzz
{

/// Unless `holds`, prints `what` to standard error and aborts the process.
void require(bool holds, char const* what);

/// Drops the library's log lines, which would take more time than the tested code.
void silenceLog();

/// A fresh directory, in memory if possible. Removed when the process exits normally.
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

/// Removes the database file, its journal and its write-ahead log.
void removeDatabase(std::string const& path);

using Cells = std::vector<std::optional<std::string>>;

/// The rows that SQLite itself returns for `sql`. A failing statement is a finding.
std::vector<Cells> rawRows(sqlite3* db, std::string const& sql);

/// The input of a target, read from the beginning. Zeros follow its end.
class Input
{
public:
    Input(std::uint8_t const* data, std::size_t size) : m_rest(reinterpret_cast<char const*>(data), size) {}

    bool isAtEnd() const { return m_rest.empty(); }
    /// The next byte.
    std::size_t byte();
    /// The next eight bytes.
    std::uint64_t number();
    /// The next `size` bytes, or the rest if it is shorter.
    std::string bytes(std::size_t size);
    /// Reads a length and as many bytes. Most texts are short, so that equal ones occur; some need several pages.
    std::string text();

private:
    std::string_view m_rest;
};

/// Splits `text` at the separators into at least one piece.
std::vector<std::string_view> split(std::string_view text, char separator);

} // namespace fuzz
