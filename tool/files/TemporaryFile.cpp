#include <tool/files/TemporaryFile.h>

#include <cerrno>
#include <cstdlib>
#include <system_error>
#include <vector>

#include <fcntl.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace tool
{

namespace
{

[[noreturn]] void fail(int error, std::string const& path)
{
    throw std::system_error(error, std::generic_category(), path);
}

std::vector<std::string> folders()
{
    char const* const given = std::getenv("TMPDIR");
    if (given != nullptr && *given != '\0')
    {
        return {given};
    }
    return {"/var/tmp", "/tmp"};
}

bool hasRoom(std::string const& folder, std::uint64_t size)
{
    struct statvfs status = {};
    return statvfs(folder.c_str(), &status) != 0 ||
           static_cast<std::uint64_t>(status.f_bavail) * status.f_frsize >= size;
}

/// Creates a file of a new name in `folder`, whose name `path` gets. Returns 0 or the error number.
int createIn(std::string const& folder, std::uint64_t size, std::string& path)
{
    if (!hasRoom(folder, size))
    {
        return ENOSPC;
    }
    std::string name = folder + "/firaim-XXXXXX";
    int const descriptor = mkostemp(name.data(), O_CLOEXEC);
    if (descriptor < 0)
    {
        return errno;
    }
    static_cast<void>(close(descriptor)); // Nothing was written.
    path = name;
    return 0;
}

} // namespace

TemporaryFile::TemporaryFile(std::uint64_t size)
{
    std::vector<std::string> const all = folders();
    int error = 0;
    for (auto folder = all.begin(); folder != all.end() && m_path.empty(); ++folder)
    {
        error = createIn(*folder, size, m_path);
    }
    if (m_path.empty())
    {
        fail(error, all.back());
    }
}

TemporaryFile::~TemporaryFile()
{
    static_cast<void>(unlink(m_path.c_str())); // A remaining file does no harm.
}

void TemporaryFile::write(std::uint64_t offset, char const* bytes, std::size_t count) const
{
    int const descriptor = open(m_path.c_str(), O_WRONLY | O_CLOEXEC);
    std::size_t done = 0;
    while (descriptor >= 0 && done < count)
    {
        ssize_t const written = pwrite(descriptor, bytes + done, count - done, static_cast<off_t>(offset + done));
        if (written < 0)
        {
            break;
        }
        done += static_cast<std::size_t>(written);
    }
    int const error = errno;
    if (descriptor >= 0)
    {
        static_cast<void>(close(descriptor)); // The file need not be on the storage.
    }
    if (done < count)
    {
        fail(error, m_path);
    }
}

} // namespace tool
