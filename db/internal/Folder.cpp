#include <db/internal/Folder.h>

#include <cstdlib>
#include <memory>

#include <fcntl.h>
#include <unistd.h>

std::string folder::folderOf(std::string const& path)
{
    return path.substr(0, path.find_last_of('/') + 1);
}

std::string folder::absolutePath(std::string const& path)
{
    if (path.empty() || path.front() == '/')
    {
        return path;
    }
    std::unique_ptr<char, decltype(&std::free)> const current(getcwd(nullptr, 0), &std::free);
    if (!current || *current != '/')
    {
        return path; // The folder was removed, or cannot be reached from the root of this process.
    }
    std::string absolute = current.get();
    if (absolute.back() != '/')
    {
        absolute += '/';
    }
    return absolute + path;
}

std::string folder::withoutLinks(std::string const& path)
{
    std::unique_ptr<char, decltype(&std::free)> const name(realpath(path.c_str(), nullptr), &std::free);
    return name ? name.get() : path;
}

bool folder::synchroniseFolderOf(std::string const& path)
{
    int const descriptor = open((folderOf(path) + ".").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor < 0)
    {
        return false;
    }
    bool const isDone = fsync(descriptor) == 0;
    static_cast<void>(close(descriptor)); // Nothing was written through it.
    return isDone;
}
