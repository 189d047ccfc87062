#pragma once

#include <cstdint>
#include <string>

namespace tool
{

/// An empty file in the folder for temporary files: TMPDIR if it is set, otherwise /var/tmp or /tmp. Only its owner may
/// read and write it. The destructor removes it, also while a signal ends the command.
class TemporaryFile
{
public:
    /// Creates the file if the folder has room for `size` bytes. Throws std::system_error, which names the folder.
    explicit TemporaryFile(std::uint64_t size);
    ~TemporaryFile();
    TemporaryFile(TemporaryFile const&) = delete;
    TemporaryFile& operator=(TemporaryFile const&) = delete;

    std::string const& path() const { return m_path; }
    /// Writes `count` bytes at `offset`. Throws std::system_error. Not while SQLite has the file open: it closes a
    /// descriptor, which drops the locks of this process.
    void write(std::uint64_t offset, char const* bytes, std::size_t count) const;

private:
    std::string m_path;
};

} // namespace tool
