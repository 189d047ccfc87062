#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace firaim
{

/// Device and inode of a file, independent of its name.
struct FileIdentity
{
    std::uint64_t device = 0;
    std::uint64_t inode = 0;

    bool operator==(FileIdentity const& other) const { return device == other.device && inode == other.inode; }
    bool operator!=(FileIdentity const& other) const { return !(*this == other); }
};

/// The identity of the file at `path`, following links; none if there is no file.
std::optional<FileIdentity> identityOf(std::string const& path);

} // namespace firaim
