#pragma once

#include <string>

namespace tool
{

/// A private folder for files that a command works on before one of them becomes its result. Lies beside the result, so
/// that a rename can move it. The destructor removes the folder with its content.
class WorkingFolder
{
public:
    /// Creates the folder beside `target`. Throws a Problem that names `target`.
    explicit WorkingFolder(std::string const& target);
    ~WorkingFolder();
    WorkingFolder(WorkingFolder const&) = delete;
    WorkingFolder& operator=(WorkingFolder const&) = delete;

    /// The path of the file `name` in the folder.
    std::string file(std::string const& name) const { return m_path + '/' + name; }

    /// Synchronises the file `name`, renames it to `target` and synchronises the folder of `target`. The caller has
    /// closed the file. Throws a Problem if that fails or if `target` exists.
    void moveToTarget(std::string const& name) const;

private:
    std::string const m_target;
    std::string m_path;
};

} // namespace tool
