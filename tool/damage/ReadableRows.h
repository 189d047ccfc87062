#pragma once

#include <tool/damage/RowsAroundDamage.h>
#include <tool/files/ByteCopy.h>
#include <tool/files/TemporaryFile.h>

#include <history/FaultReader.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tool
{

/// The rows of a damaged fault database that can be read, in a temporary file that a reader opens like any other. Keys
/// and cells stay as they are.
class ReadableRows
{
public:
    /// Opens the file at `path`, which is only read; one that is cut off, as far as it goes. Throws a Problem that
    /// names 'firaim rescue' when its schema cannot be read, or when there is no room for the temporary file.
    explicit ReadableRows(std::string path);

    /// Copies the rows of a table, unless that was done before.
    void add(TableSchema const& schema);

    /// The temporary file. Its tables have the names and the largest keys of the library's.
    std::string const& path() const { return m_file->path(); }
    /// Reads the rows of the tables that were added.
    firaim::FaultReader& reader() { return m_reader; }
    /// The keys of a table that cannot be read, and end with its largest used key where that is known.
    std::vector<KeyGap> const& gapsOf(TableSchema const& schema) const { return m_gaps.at(&schema); }
    /// The number of rows of a table that were read.
    std::uint64_t countOf(TableSchema const& schema) const { return m_counts.at(&schema); }
    /// Whether the largest keys used so far cannot be read.
    bool isSequenceLost() const { return m_isSequenceLost; }
    bool has(TableSchema const& schema) const { return m_gaps.count(&schema) == 1; }
    /// The pages of a file that is cut off; none if SQLite opens it.
    std::optional<PageCounts> const& pages() const { return m_pages; }

    /// As the function of FaultFile.h, for the tables of which it is known.
    void readLastKeys(std::function<void(std::string const& table, std::int64_t key)> const& take) const;

    /// Says which rows of the tables that were added are missing.
    std::string damageText() const;

private:
    sqlite::Connection openSource();
    void createTables() const;
    void copyRows(TableSchema const& schema);
    void readSequence();
    std::string missingText() const;

    std::string const m_path;
    std::optional<PageCounts> m_pages;
    std::unique_ptr<TemporaryFile const> m_bytes; ///< of a file that SQLite does not open
    sqlite::Connection const m_source;
    std::unique_ptr<TemporaryFile const> const m_file;
    sqlite::Connection const m_target;
    firaim::FaultReader m_reader;
    std::map<std::string, std::int64_t> m_lastKeys;
    bool m_isSequenceLost = false;
    std::map<TableSchema const*, std::vector<KeyGap>> m_gaps;
    std::map<TableSchema const*, std::uint64_t> m_counts;
};

} // namespace tool
