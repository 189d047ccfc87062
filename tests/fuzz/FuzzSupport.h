#pragma once

#include <sqlite3.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// What the fuzz targets share. A finding is a process that aborts, so `require` is their only expectation.
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

using cells_t = std::vector<std::optional<std::string>>;

/// The rows of `sql` as SQLite gives them; a statement that fails is a finding.
std::vector<cells_t> rawRows(sqlite3* db, std::string const& sql);

/// The pieces of `text` between the separators; always at least one.
std::vector<std::string_view> split(std::string_view text, char separator);

} // namespace fuzz
