#pragma once

#include <optional>
#include <string>
#include <vector>

/// The fault codes by name and number, as this program was built with them.
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

/// The number that `text` means: a number (decimal, or hexadecimal after "0x"), or a name of the table, the case of its
/// letters and a leading "FC_" apart. None when it is neither.
std::optional<unsigned int> codeOf(std::string const& text);

/// The same for a code that somebody asks for. Throws a Problem when `text` means none.
unsigned int requireCode(std::string const& text);

/// The number in `text`, if it is one of 32 bits.
std::optional<unsigned int> numberIn(std::string const& text);

/// The name of a code for people: the stored one, else the one of the table, else the number.
std::string codeText(unsigned int number, std::string const& storedName);

/// The message for a text that names no code, with the names that contain it, if there are any.
std::string unknownCodeText(std::string const& text);

} // namespace tool
