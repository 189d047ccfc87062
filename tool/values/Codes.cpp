#include <tool/values/Codes.h>

#include <tool/process/Problem.h>
#include <tool/values/Text.h>

#include <algorithm>
#include <charconv>

namespace tool
{

namespace
{

constexpr char kPrefix[] = "FC_";
constexpr std::size_t kMostSuggestions = 5;

std::vector<Code> readTable()
{
    std::vector<Code> codes = {
#define FIRAIM_FAULT_CODE(name, number) {#name, number},
#include <db/FaultCodes.def>
#undef FIRAIM_FAULT_CODE
    };
    std::sort(codes.begin(), codes.end(), [](Code const& a, Code const& b) { return a.number < b.number; });
    return codes;
}

} // namespace

std::vector<Code> const& knownCodes()
{
    static std::vector<Code> const codes = readTable();
    return codes;
}

std::optional<unsigned int> numberIn(std::string const& text)
{
    bool const isHexadecimal = equalIgnoringCase(text.substr(0, 2), "0x");
    char const* const begin = text.data() + (isHexadecimal ? 2 : 0);
    char const* const end = text.data() + text.size();
    unsigned int number = 0;
    auto const [stop, error] = std::from_chars(begin, end, number, isHexadecimal ? 16 : 10);
    return error == std::errc() && stop == end ? std::optional(number) : std::nullopt;
}

std::optional<unsigned int> codeOf(std::string const& text)
{
    for (Code const& code : knownCodes())
    {
        if (equalIgnoringCase(text, code.name) || equalIgnoringCase(kPrefix + text, code.name))
        {
            return code.number;
        }
    }
    return numberIn(text);
}

unsigned int requireCode(std::string const& text)
{
    std::optional<unsigned int> const code = codeOf(text);
    if (!code)
    {
        throw Problem(STATUS_BAD_USAGE, unknownCodeText(text));
    }
    return *code;
}

std::string codeText(unsigned int number, std::string const& storedName)
{
    if (!storedName.empty() && storedName != "n/a")
    {
        return storedName;
    }
    for (Code const& code : knownCodes())
    {
        if (code.number == number)
        {
            return code.name;
        }
    }
    return std::to_string(number);
}

std::string unknownCodeText(std::string const& text)
{
    std::string suggestions;
    std::size_t found = 0;
    for (Code const& code : knownCodes())
    {
        if (found < kMostSuggestions && !text.empty() && containsIgnoringCase(code.name, text))
        {
            suggestions += (found++ == 0 ? "; did you mean " : ", ") + std::string(code.name);
        }
    }
    return "unknown fault code '" + text + "'" +
           (suggestions.empty() ? "; 'firaim codes' lists the known codes" : suggestions + "?");
}

} // namespace tool
