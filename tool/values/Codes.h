#pragma once

#include <optional>
#include <string>
#include <vector>

/// The fault codes that this program was built with, by name and number.
namespace tool
{

/// One code.
struct Code
{
    char const* name;
    unsigned int number;
};

/// All codes, in the order of their numbers.
std::vector<Code> const& knownCodes();

/// The number of the code in `text`: a number (decimal, or hexadecimal after "0x"), or a name of the table, ignoring
/// the case of its letters and a leading "FC_". None when it is neither.
std::optional<unsigned int> codeOf(std::string const& text);

/// The same, but throws a Problem when there is none.
unsigned int requireCode(std::string const& text);

/// The number in `text`, if it fits into 32 bits.
std::optional<unsigned int> numberIn(std::string const& text);

/// The text to print for a code: the stored name, else the name in the table, else the number.
std::string codeText(unsigned int number, std::string const& storedName);

/// The message for a text that is not a code; it suggests the names that contain the text.
std::string unknownCodeText(std::string const& text);

} // namespace tool
