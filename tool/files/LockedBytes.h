#pragma once

#include <tool/pages/ByteSource.h>

#include <db/internal/Sqlite.h>

#include <cstddef>
#include <cstdint>
#include <string>

namespace tool
{

/// The bytes of a file that SQLite may refuse to open, under a shared lock: no writer changes the file while this
/// object lives. Reads through SQLite's own file object, since closing another descriptor would drop the locks that
/// this process holds on the file.
class LockedBytes : public ByteSource
{
public:
    /// Throws sqlite::Error, for example when a writer keeps the file locked for longer than the busy timeout.
    explicit LockedBytes(std::string const& path);
    ~LockedBytes() override;
    LockedBytes(LockedBytes const&) = delete;
    LockedBytes& operator=(LockedBytes const&) = delete;

    std::uint64_t size() const override { return m_size; }
    /// Reads `count` bytes from `offset` on; zeros behind the end of the file. Returns a code of SQLite, which is not
    /// SQLITE_OK when the medium fails.
    int tryRead(std::uint64_t offset, char* bytes, std::size_t count) const;
    bool read(std::uint64_t offset, char* bytes, std::size_t count) const override;

private:
    sqlite::Connection const m_connection;
    sqlite3_file* m_file = nullptr;
    std::uint64_t m_size = 0;
};

} // namespace tool
