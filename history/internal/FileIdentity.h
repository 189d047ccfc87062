#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace firaim
{

/// The system's own numbers for a file, whatever its name.
struct fileIdentity_t
{
    std::uint64_t device = 0;
    std::uint64_t inode = 0;

    bool operator==(fileIdentity_t const& other) const { return device == other.device && inode == other.inode; }
    bool operator!=(fileIdentity_t const& other) const { return !(*this == other); }
};

/// That of the file at `path`, where a link leads to; none without a file.
std::optional<fileIdentity_t> identityOf(std::string const& path);

} // namespace firaim
