#include <history/internal/FileIdentity.h>

#include <sys/stat.h>

std::optional<firaim::FileIdentity> firaim::identityOf(std::string const& path)
{
    struct stat status = {};
    if (stat(path.c_str(), &status) != 0)
    {
        return std::nullopt;
    }
    return FileIdentity{static_cast<std::uint64_t>(status.st_dev), static_cast<std::uint64_t>(status.st_ino)};
}
