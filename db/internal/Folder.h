#pragma once

#include <string>

namespace folder
{

/// The folder that `path` names a file of, with a slash at its end; empty for the current folder.
std::string folderOf(std::string const& path);

/// `path` from the root on, so that it still names the same file when the process changes its current folder. It is
/// `path` itself when that begins with a slash, when it is empty, and when the system cannot tell the current folder.
/// Links stay as they are, and nothing needs to be there.
std::string absolutePath(std::string const& path);

/// The name of the file behind the links that `path` may be: SQLite keeps the journal beside that one. `path` itself
/// where nothing is there.
std::string withoutLinks(std::string const& path);

/// Makes what was created, renamed or removed in the folder of the file at `path` last through a power cut. Returns
/// whether the file system has acknowledged it.
bool synchroniseFolderOf(std::string const& path);

} // namespace folder
