#pragma once

#include <string>

namespace tool
{

/// Gives the finished file at `path` the name `target` in the same file system, and syncs the folder. Replaces an
/// existing file only if `isReplacing`. Otherwise the caller checks that the name is free: a file system without
/// RENAME_NOREPLACE would replace a file that another process has created since. Throws a Problem that names `target`;
/// then nothing is changed.
void giveName(std::string const& path, std::string const& target, bool isReplacing);

} // namespace tool
