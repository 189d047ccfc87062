#pragma once

#include <db/internal/FilePath.h>
#include <db/internal/Sqlite.h>
#include <history/ReaderOptions.h>
#include <history/RowCursor.h>
#include <history/internal/FileIdentity.h>
#include <history/internal/Tables.h>

#include <array>
#include <memory>
#include <optional>
#include <string>

namespace firaim
{

/// The connection and the last problem, shared by a reader and its cursors.
class ReaderCore : public std::enable_shared_from_this<ReaderCore>
{
public:
    /// A reader that is not open.
    ReaderCore() = default;
    ReaderCore(FilePath path, ReaderOptions const& options) : m_path(std::move(path)), m_options(options) {}
    ReaderCore(ReaderCore const&) = delete;
    ReaderCore& operator=(ReaderCore const&) = delete;

    /// Opens the file; results as of FaultReader::open. Call it once.
    int open();

    bool isOpen() const { return m_connection.has_value(); }
    sqlite::Connection const& connection() const { return *m_connection; }
    FilePath const& path() const { return m_path; }
    /// The identity of the open file.
    FileIdentity const& identity() const { return m_identity; }
    ReaderOptions const& options() const { return m_options; }

    RowCursor rows(HistoryTable table, FaultQuery::Order order, RowCursor::KeyRange range = {});
    /// The present row of `cursor`, for code that decodes it.
    static RowView rowOf(RowCursor const& cursor);

    /// Selects at most ?3 rows of a table with keys from ?1 to ?2, in the order of their keys: the cells of the file
    /// format, then the key.
    sqlite::Statement prepareRows(HistoryTable table, FaultQuery::Order order) const;
    /// Selects the smallest and the largest key of a table; two NULLs without a row.
    sqlite::Statement prepareBounds(HistoryTable table) const;
    /// Counts at most ?2 keys from ?1 on; also selects the largest of them.
    sqlite::Statement prepareCount(HistoryTable table) const;
    /// The largest key that the fault table ever had, as far as the file shows.
    std::int64_t largestFaultKey() const;

    /// The format version; none unless there is exactly one. Throws sqlite::Error.
    std::optional<std::string> formatVersion() const;

    bool isCancelled() const { return m_options.isCancelled != nullptr && m_options.isCancelled(); }
    /// Sets `problem` to `text`, preceded by the name of the file; returns `result`.
    int fail(int result, std::string const& text);
    /// Call it in a handler: sets `problem` and returns the result for the caught exception. Rethrows exceptions other
    /// than readOnlyOpening::Failure and sqlite::Error.
    int fail();
    std::string const& problem() const { return m_problem; }

    FaultTable& faults() { return m_faults; }
    StatisticTable& statistics() { return m_statistics; }
    VersionTable& versions() { return m_versions; }

private:
    struct QueryText
    {
        std::string name;
        std::string key;     ///< name of the key in statements
        std::string columns; ///< all columns, with NULL for a column that the file lacks
    };

    QueryText describe(BoundTable const& table) const;
    void openFile();
    int check();
    bool hasTable(std::string const& name);
    QueryText const& text(HistoryTable table) const { return m_texts[static_cast<std::size_t>(table)]; }

    FilePath m_path;
    ReaderOptions m_options;
    std::string m_problem;
    FaultTable m_faults;
    StatisticTable m_statistics;
    VersionTable m_versions;
    std::array<QueryText, 3> m_texts;
    FileIdentity m_identity;
    bool m_hasSequence = false; ///< whether SQLite keeps the largest keys
    std::optional<sqlite::Connection> m_connection;
};

} // namespace firaim
