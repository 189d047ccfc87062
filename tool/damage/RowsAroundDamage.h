#pragma once

#include <tool/damage/LostPages.h>
#include <tool/schema/TableSchema.h>

#include <db/internal/Sqlite.h>

#include <cstdint>
#include <optional>
#include <vector>

namespace tool
{

/// Reads the rows of a table in the order of their keys, and goes on behind pages that cannot be read.
///
/// It leaves out the keys of pages that are known to be lost. Where SQLite meets other damage, it asks for one larger
/// key after the other until SQLite finds a row. The distance between these keys grows with the distance from the
/// damage, so that the number of the tries is limited however far the next row is: rows of less than a 64th of the
/// unreadable keys, between damaged pages, may be missed.
class RowsAroundDamage
{
public:
    /// Columns that the table lacks are NULL. `known` are gaps in the order of their keys. `source` must outlive this
    /// object.
    RowsAroundDamage(sqlite::Connection const& source, TableSchema const& schema, std::vector<KeyGap> known);

    /// Moves to the next row; returns false at the end. Throws sqlite::Error for other failures than damage.
    bool next();

    /// The present row: its key, then the columns of the schema.
    sqlite::Statement const& row() const { return m_statement; }
    std::int64_t key() const { return m_statement.integer(0); }
    /// The keys that could not be read so far, in their order, the known ones included.
    std::vector<KeyGap> const& gaps() const { return m_gaps; }

private:
    /// The result of a try to read a row.
    enum Outcome
    {
        ROW,
        NO_ROW,
        UNREADABLE
    };

    bool nextInRange();
    bool passKnownGap();
    Outcome tryNext();
    Outcome tryStep();
    Outcome tryFrom(std::int64_t key, std::int64_t rows);
    bool skipDamage();
    std::optional<std::int64_t> findReadable();
    std::int64_t firstReadable(std::int64_t unreadable, std::int64_t readable);

    sqlite::Statement m_statement;
    std::vector<KeyGap> const m_known;
    std::size_t m_knownPassed = 0;
    std::int64_t m_last;         ///< largest key before the next known gap
    std::int64_t m_from;         ///< smallest key that the next row may have
    std::int64_t m_rowsLeft = 0; ///< of the present batch
    bool m_isRunning = false;    ///< the statement has a batch
    bool m_isMedium = false;     ///< reason of the last failure
    bool m_isAtEnd = false;
    std::uint64_t m_triesLeft;
    std::vector<KeyGap> m_gaps;
};

} // namespace tool
