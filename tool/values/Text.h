#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace tool
{

/// Whether `text` contains `part`, ignoring the case of ASCII letters.
bool containsIgnoringCase(std::string_view text, std::string_view part);

/// Whether the two are equal, ignoring the case of ASCII letters.
bool equalIgnoringCase(std::string_view left, std::string_view right);

/// Two hexadecimal digits for each byte.
std::string hexadecimal(std::string_view bytes);

/// `number` in at least `digits` hexadecimal digits.
std::string hexadecimal(unsigned int number, std::size_t digits);

/// `count` with separators between thousands: "1,234,567".
std::string grouped(unsigned long long count);

/// `count` and the noun, in the plural unless it is one: "1 row", "2 rows".
std::string counted(unsigned long long count, std::string const& noun);

} // namespace tool
