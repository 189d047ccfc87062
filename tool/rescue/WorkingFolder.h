#pragma once

#include <string>

namespace tool
{

/// A private folder for the files of a rescue, beside the new file, so that this one can be moved out of it by a
/// rename. It is removed with its files, also on an error or after a signal.
class WorkingFolder
{
public:
    /// Creates it. Throws a Problem.
    explicit WorkingFolder(std::string const& target);
    ~WorkingFolder();
    WorkingFolder(WorkingFolder const&) = delete;
    WorkingFolder& operator=(WorkingFolder const&) = delete;

    std::string file(std::string const& name) const { return m_path + "/" + name; }

private:
    std::string m_path;
};

} // namespace tool
