#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace firaim
{

/// The system's own numbers for a file, whatever its name.
struct FileIdentity
{
    std::uint64_t device = 0;
    std::uint64_t inode = 0;

    bool operator==(FileIdentity const& other) const { return device == other.device && inode == other.inode; }
    bool operator!=(FileIdentity const& other) const { return !(*this == other); }
};

/// That of the file at `path`, where a link leads to; none without a file.
std::optional<FileIdentity> identityOf(std::string const& path);

} // namespace firaim
