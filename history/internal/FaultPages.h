#pragma once

#include <db/internal/Sqlite.h>

#include <cstddef>
#include <cstdint>

namespace firaim
{

/// The raw bytes of an open database file, read without SQLite's checks.
class PageFile
{
public:
    /// `connection` must outlive this object. Throws sqlite::Error.
    explicit PageFile(sqlite::Connection const& connection);

    std::int64_t size() const { return m_size; }

    /// Reads up to `size` bytes; returns their number, 0 at the end. Throws sqlite::Error.
    std::size_t read(std::int64_t offset, char* bytes, std::size_t size) const;

private:
    sqlite3_file* m_file = nullptr;
    std::int64_t m_size = 0;
};

/// Whether the file begins with the header of a database. Throws sqlite::Error.
bool hasDatabaseHeader(PageFile const& file);

/// Whether the file has a page of fault rows: a leaf of a table tree whose records have the fault table's number of
/// cells, the first of them, the key, stored as NULL. Throws sqlite::Error.
bool holdsFaults(PageFile const& file);

} // namespace firaim
