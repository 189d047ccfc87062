#include <tool/values/Text.h>

#include <algorithm>

namespace tool
{

namespace
{

constexpr char kDigits[] = "0123456789abcdef";

char lowered(char c)
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool equalLowered(char left, char right)
{
    return lowered(left) == lowered(right);
}

} // namespace

bool containsIgnoringCase(std::string_view text, std::string_view part)
{
    return std::search(text.begin(), text.end(), part.begin(), part.end(), equalLowered) != text.end() || part.empty();
}

bool equalIgnoringCase(std::string_view left, std::string_view right)
{
    return std::equal(left.begin(), left.end(), right.begin(), right.end(), equalLowered);
}

std::string hexadecimal(std::string_view bytes)
{
    std::string text;
    text.reserve(2 * bytes.size());
    for (char const c : bytes)
    {
        auto const byte = static_cast<unsigned char>(c);
        text += {kDigits[byte / 16], kDigits[byte % 16]};
    }
    return text;
}

std::string hexadecimal(unsigned int number, std::size_t digits)
{
    std::string text;
    for (; number > 0 || text.size() < digits; number /= 16)
    {
        text.insert(text.begin(), kDigits[number % 16]);
    }
    return text;
}

std::string grouped(unsigned long long count)
{
    std::string text = std::to_string(count);
    for (std::size_t place = text.size(); place > 3;)
    {
        place -= 3;
        text.insert(place, 1, ',');
    }
    return text;
}

std::string counted(unsigned long long count, std::string const& noun)
{
    return grouped(count) + " " + noun + (count == 1 ? "" : "s");
}

} // namespace tool
