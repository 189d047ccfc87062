#pragma once

#include <db/internal/Sqlite.h>

#include <cstddef>
#include <cstdint>

namespace firaim
{

/// The bytes of an open database as they are, read without its rules.
class PageFile
{
public:
    /// `connection` must outlive this object. Throws sqlite::Error.
    explicit PageFile(sqlite::Connection const& connection);

    std::int64_t size() const { return m_size; }

    /// Reads up to `size` bytes; returns how many there were, 0 at the end. Throws sqlite::Error.
    std::size_t read(std::int64_t offset, char* bytes, std::size_t size) const;

private:
    sqlite3_file* m_file = nullptr;
    std::int64_t m_size = 0;
};

/// Whether the file begins as a database does. Throws sqlite::Error.
bool hasDatabaseHeader(PageFile const& file);

/// Whether the file holds a page of a table with rows like those of the fault table. Such a page is a leaf of a tree of
/// rows whose records have the fault table's number of cells, the key first, which is stored as NULL. Throws
/// sqlite::Error.
bool holdsFaults(PageFile const& file);

} // namespace firaim
