#include <tool/pages/FileBytes.h>

#include <cerrno>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tool
{

FileBytes::FileBytes(std::string const& path)
    // Without O_NONBLOCK, opening a FIFO would wait for its writer.
    : m_descriptor(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK))
{
    struct stat status = {};
    if (m_descriptor < 0 || fstat(m_descriptor, &status) != 0)
    {
        int const error = errno;
        if (m_descriptor >= 0)
        {
            static_cast<void>(close(m_descriptor)); // Nothing was written through it.
        }
        throw std::system_error(error, std::generic_category(), path);
    }
    m_size = static_cast<std::uint64_t>(status.st_size);
}

FileBytes::~FileBytes()
{
    static_cast<void>(close(m_descriptor)); // Nothing was written through it.
}

bool FileBytes::read(std::uint64_t offset, char* bytes, std::size_t count) const
{
    std::size_t done = 0;
    while (done < count)
    {
        ssize_t const result = pread(m_descriptor, bytes + done, count - done, static_cast<off_t>(offset + done));
        if (result < 0 && errno == EINTR)
        {
            continue;
        }
        if (result <= 0)
        {
            return false;
        }
        done += static_cast<std::size_t>(result);
    }
    return true;
}

} // namespace tool
