#pragma once

#include <db/internal/Folder.h>

#include <string>
#include <utility>

/// The path of a file, and its name for messages. Resolved once: it names the same file after the process has changed
/// its current folder.
class FilePath
{
public:
    FilePath() = default;
    /// Implicit: every path is a FilePath.
    FilePath(std::string path) : m_given(std::move(path)), m_absolute(folder::absolutePath(m_given)) {}

    std::string const& given() const { return m_given; }       ///< as the caller spelled it, for messages
    std::string const& absolute() const { return m_absolute; } ///< for system calls

private:
    std::string m_given;
    std::string m_absolute;
};
