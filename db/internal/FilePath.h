#pragma once

#include <db/internal/Folder.h>

#include <string>
#include <utility>

/// Where a file is, and what its messages call it. Made once, it names the same file after the process has changed its
/// current folder.
class FilePath
{
public:
    FilePath() = default;
    /// Every path is one.
    FilePath(std::string path) : m_given(std::move(path)), m_absolute(folder::absolutePath(m_given)) {}

    std::string const& given() const { return m_given; }       ///< as the caller spelled it, for texts
    std::string const& absolute() const { return m_absolute; } ///< for the system

private:
    std::string m_given;
    std::string m_absolute;
};
