#pragma once

#include <tool/pages/ByteSource.h>

#include <string>

namespace tool
{

/// The bytes of a file, through a descriptor that only reads. Closing the descriptor drops all POSIX locks that this
/// process holds on the file: do not use it on a file that this process has open through SQLite.
class FileBytes : public ByteSource
{
public:
    /// Opens the file. Throws std::system_error.
    explicit FileBytes(std::string const& path);
    ~FileBytes() override;
    FileBytes(FileBytes const&) = delete;
    FileBytes& operator=(FileBytes const&) = delete;

    int descriptor() const { return m_descriptor; }

    std::uint64_t size() const override { return m_size; }
    bool read(std::uint64_t offset, char* bytes, std::size_t count) const override;

private:
    int m_descriptor;
    std::uint64_t m_size = 0; ///< when it was opened
};

} // namespace tool
