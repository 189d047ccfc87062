#include <tool/rescue/WorkingFolder.h>

#include <tool/process/Problem.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace tool
{

WorkingFolder::WorkingFolder(std::string const& target) : m_path(target + ".rescue-XXXXXX")
{
    if (mkdtemp(m_path.data()) == nullptr)
    {
        throw Problem(STATUS_BAD_FILE, target + ": its folder cannot be written to: " +
                                           std::generic_category().message(errno) + "; choose another place");
    }
}

WorkingFolder::~WorkingFolder()
{
    std::error_code error; // Nothing depends on the files that are left then.
    std::filesystem::remove_all(m_path, error);
}

} // namespace tool
