#pragma once

#include <string>

namespace folder
{

/// The folder part of the file name `path`, with a slash at its end; empty for the current folder.
std::string folderOf(std::string const& path);

/// `path` as an absolute path, so that it names the same file after the process changes its current folder. Unchanged
/// if it begins with a slash, if it is empty, or if the system cannot report the current folder. Links stay as they
/// are, and the file need not exist.
std::string absolutePath(std::string const& path);

/// The file that `path` leads to through links: SQLite keeps the journal beside that one. `path` itself if there is no
/// file.
std::string withoutLinks(std::string const& path);

/// Makes files that were created, renamed or removed in the folder of `path` survive a power cut. Returns whether the
/// file system has confirmed it.
bool synchroniseFolderOf(std::string const& path);

} // namespace folder
