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

/// Shared by a reader and its cursors: the connection and the last failure.
class ReaderCore : public std::enable_shared_from_this<ReaderCore>
{
public:
    /// A reader that is not open.
    ReaderCore() = default;
    ReaderCore(FilePath path, ReaderOptions const& options) : m_path(std::move(path)), m_options(options) {}
    ReaderCore(ReaderCore const&) = delete;
    ReaderCore& operator=(ReaderCore const&) = delete;

    /// Opens the file; results as of FaultReader::open. To be called once.
    int open();

    bool isOpen() const { return m_connection.has_value(); }
    sqlite::Connection const& connection() const { return *m_connection; }
    FilePath const& path() const { return m_path; }
    /// The identity of the file that was opened.
    FileIdentity const& identity() const { return m_identity; }
    ReaderOptions const& options() const { return m_options; }

    RowCursor rows(HistoryTable table, FaultQuery::Order order, RowCursor::KeyRange range = {});
    /// The present row of `cursor`, for code that decodes it.
    static RowView rowOf(RowCursor const& cursor);

    /// The rows of a table from the key ?1 to the key ?2, ?3 at most, in the order of their keys: the cells of the file
    /// format, then the key.
    sqlite::Statement prepareRows(HistoryTable table, FaultQuery::Order order) const;
    /// The smallest and the largest key of a table; two NULLs without a row.
    sqlite::Statement prepareBounds(HistoryTable table) const;
    /// Counts the keys from ?1 on, ?2 at most; also gives the largest of these.
    sqlite::Statement prepareCount(HistoryTable table) const;
    /// The largest key that the fault table ever had, as far as the file tells.
    std::int64_t largestFaultKey() const;

    /// The only format version; none unless there is exactly one. Throws sqlite::Error.
    std::optional<std::string> formatVersion() const;

    bool isCancelled() const { return m_options.isCancelled != nullptr && m_options.isCancelled(); }
    /// Keeps the text of a failure, which gets the name of the file, and returns `result`.
    int fail(int result, std::string const& text);
    /// To be called where an exception has been caught: keeps its text and returns the result that it stands for. What
    /// is none of the file passes through.
    int fail();
    std::string const& problem() const { return m_problem; }

    FaultTable& faults() { return m_faults; }
    StatisticTable& statistics() { return m_statistics; }
    VersionTable& versions() { return m_versions; }

private:
    struct QueryText
    {
        std::string name;
        std::string key;     ///< what the key is called in statements
        std::string columns; ///< all columns, NULL for one that the file lacks
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
