#pragma once

#include <cstddef>
#include <string>
#include <string_view>

/// Escapes texts of unknown origin for a terminal.
namespace tool
{

/// `text` with every unprintable character replaced by an escape: control characters ("\n", "\x1b"), invisible ones
/// such as those that reverse the writing direction ("\u202e"), and bytes that are not UTF-8 ("\xff"). With
/// `isAsciiOnly`, all other characters outside of ASCII are replaced, too ("\u00e4").
std::string escape(std::string_view text, bool isAsciiOnly = false);

/// The same for JSON, which stays valid: the characters in its strings are replaced by escapes of JSON.
std::string escapeJson(std::string_view json);

/// The number of terminal columns of `text`, which must be escaped.
std::size_t displayWidth(std::string_view text);

/// `text`, which must be escaped, shortened to `width` columns with `ellipsis` in place of the rest. The result is
/// never shorter than the ellipsis.
std::string shortened(std::string_view text, std::size_t width, std::string_view ellipsis);

} // namespace tool
