#pragma once

#include <tool/pages/RecordDecoder.h>
#include <tool/rescue/RowReader.h>
#include <tool/schema/TableSchema.h>

#include <db/internal/Sqlite.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace tool
{

/// The new file of a rescue, made by the library and filled in one transaction. Nobody else knows it yet, so that
/// nothing has to be durable before the end. Throws sqlite::Error, or a Problem.
class RescuedFile
{
public:
    /// Creates the file at `path`.
    explicit RescuedFile(std::string const& path);

    /// Adds a sound fault. One that is there already counts once; one with the key of another fault makes both
    /// doubtful.
    void addFault(FoundRow const& row);
    /// Adds a row that may be wrong, unless the same fault is there already.
    void addDoubtful(FoundRow const& row, std::string const& reason);
    /// Adds a sound row to another table; returns false if another row has its key.
    bool addRow(TableSchema const& schema, FoundRow const& row);
    /// Replaces the format version of the library by these rows.
    void clearVersions();
    /// Makes the next fault get a larger key.
    void raiseSequence(TableSchema const& schema, std::int64_t lastKey);

    /// The largest key that a row of the table ever had; 0 if it never had one.
    std::int64_t lastKey(TableSchema const& schema) const;

    std::uint64_t faults() const { return m_faults; }
    std::uint64_t doubtful() const { return m_doubtful; }
    sqlite::Connection const& connection() const { return m_connection; }

    /// Commits, checks and synchronises the file.
    void finish();

private:
    void createDoubtfulTable();
    bool hasFault(FoundRow const& row);
    void makeDoubtful(std::int64_t key);

    std::string const m_path;
    sqlite::Connection m_connection;
    std::optional<sqlite::Transaction> m_transaction;
    sqlite::Statement m_insertFault;
    sqlite::Statement m_matchFault;
    sqlite::Statement m_insertDoubtful; ///< empty until there is such a row
    std::set<std::int64_t> m_conflicts; ///< keys that several faults have
    std::uint64_t m_faults = 0;
    std::uint64_t m_doubtful = 0;
};

} // namespace tool
