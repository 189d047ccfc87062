#pragma once

#include <tool/pages/PageFile.h>

#include <map>
#include <string>

namespace tool
{

/// The root pages of the tables of a file by name, as the table of contents that begins on page 1 names them. They are
/// unchecked. Empty when page 1 is lost.
std::map<std::string, PageNumber> readSchemaRoots(PageFile const& file);

} // namespace tool
