#pragma once

#include <cstddef>
#include <string>
#include <string_view>

/// Escapes texts of unknown origin for a terminal.
namespace tool
{

/// `text` with everything that would act on a terminal instead of being seen replaced by an escape: control characters
/// ("\n", "\x1b"), invisible ones such as those that reverse the writing ("\u202e"), bytes that are no UTF-8 ("\xff").
/// For one that only takes ASCII, so is everything else ("\u00e4").
std::string escape(std::string_view text, bool isAsciiOnly = false);

/// The same for a text that is JSON, and stays it: what is in its texts is replaced by JSON's own escapes.
std::string escapeJson(std::string_view json);

/// The number of columns that `text`, which is escaped, takes in a terminal.
std::size_t displayWidth(std::string_view text);

/// As much of `text`, which is escaped, as fits into `width` columns, with `ellipsis` in place of the rest. It is not
/// made shorter than the ellipsis.
std::string shortened(std::string_view text, std::size_t width, std::string_view ellipsis);

} // namespace tool
