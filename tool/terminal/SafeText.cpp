#include <tool/terminal/SafeText.h>

#include <tool/values/Text.h>

#include <utf8proc.h>

#include <algorithm>

namespace tool
{

namespace
{

/// The first character of a text.
struct Character
{
    utf8proc_int32_t codePoint; ///< negative when the bytes are not UTF-8
    std::size_t size;           ///< in bytes
};

Character firstCharacter(std::string_view text)
{
    utf8proc_int32_t codePoint = -1;
    utf8proc_ssize_t const size = utf8proc_iterate(reinterpret_cast<utf8proc_uint8_t const*>(text.data()),
                                                   static_cast<utf8proc_ssize_t>(text.size()), &codePoint);
    return size > 0 ? Character{codePoint, static_cast<std::size_t>(size)} : Character{-1, 1};
}

bool isPrintable(utf8proc_int32_t codePoint)
{
    switch (utf8proc_category(codePoint))
    {
    case UTF8PROC_CATEGORY_CC:
    case UTF8PROC_CATEGORY_CF:
    case UTF8PROC_CATEGORY_CS:
    case UTF8PROC_CATEGORY_CN:
    case UTF8PROC_CATEGORY_ZL:
    case UTF8PROC_CATEGORY_ZP:
        return false;
    default:
        return true;
    }
}

std::string escapeOf(unsigned int codePoint)
{
    switch (codePoint)
    {
    case '\n':
        return "\\n";
    case '\r':
        return "\\r";
    case '\t':
        return "\\t";
    default:
        break;
    }
    if (codePoint < 0x80)
    {
        return "\\x" + hexadecimal(codePoint, 2);
    }
    return codePoint < 0x10000 ? "\\u" + hexadecimal(codePoint, 4) : "\\U" + hexadecimal(codePoint, 8);
}

bool isPrintableAscii(char c)
{
    return c >= ' ' && c <= '~';
}

/// `text` with unprintable characters and invalid bytes replaced by the results of the two functions.
template <class ReplaceCharacter, class ReplaceByte>
std::string replaceUnprintable(std::string_view text, bool isAsciiOnly, ReplaceCharacter const& replaceCharacter,
                               ReplaceByte const& replaceByte)
{
    std::string result;
    result.reserve(text.size());
    while (!text.empty())
    {
        // Most texts are printable ASCII: copy these characters at once.
        auto const plain =
            static_cast<std::size_t>(std::find_if_not(text.begin(), text.end(), isPrintableAscii) - text.begin());
        result.append(text.substr(0, plain));
        text.remove_prefix(plain);
        if (text.empty())
        {
            break;
        }
        Character const character = firstCharacter(text);
        if (character.codePoint < 0)
        {
            result.append(replaceByte(text.front()));
        }
        else if (!isAsciiOnly && isPrintable(character.codePoint))
        {
            result.append(text.substr(0, character.size));
        }
        else
        {
            result.append(replaceCharacter(static_cast<unsigned int>(character.codePoint)));
        }
        text.remove_prefix(character.size);
    }
    return result;
}

} // namespace

std::string escape(std::string_view text, bool isAsciiOnly)
{
    return replaceUnprintable(
        text, isAsciiOnly, [](unsigned int codePoint) { return escapeOf(codePoint); },
        [](char byte) {
            return "\\x" + hexadecimal({&byte, 1});
        });
}

std::string escapeJson(std::string_view json)
{
    return replaceUnprintable(
        json, false,
        [](unsigned int codePoint)
        {
            constexpr unsigned int kFirstInPairs = 0x10000;
            if (codePoint < kFirstInPairs)
            {
                return "\\u" + hexadecimal(codePoint, 4);
            }
            unsigned int const pair = codePoint - kFirstInPairs;
            return "\\u" + hexadecimal(0xd800 + (pair >> 10), 4) + "\\u" + hexadecimal(0xdc00 + (pair & 0x3ff), 4);
        },
        [](char) { return "\\ufffd"; });
}

std::size_t displayWidth(std::string_view text)
{
    std::size_t width = 0;
    while (!text.empty())
    {
        auto const plain =
            static_cast<std::size_t>(std::find_if_not(text.begin(), text.end(), isPrintableAscii) - text.begin());
        width += plain;
        text.remove_prefix(plain);
        if (!text.empty())
        {
            Character const character = firstCharacter(text);
            width += static_cast<std::size_t>(std::max(0, utf8proc_charwidth(character.codePoint)));
            text.remove_prefix(character.size);
        }
    }
    return width;
}

std::string shortened(std::string_view text, std::size_t width, std::string_view ellipsis)
{
    if (displayWidth(text) <= width)
    {
        return std::string(text);
    }
    std::size_t const ellipsisWidth = displayWidth(ellipsis);
    std::size_t const room = width > ellipsisWidth ? width - ellipsisWidth : 0;
    std::size_t used = 0;
    std::size_t end = 0;
    while (end < text.size())
    {
        Character const character = firstCharacter(text.substr(end));
        auto const characterWidth = static_cast<std::size_t>(std::max(0, utf8proc_charwidth(character.codePoint)));
        if (used + characterWidth > room)
        {
            break;
        }
        used += characterWidth;
        end += character.size;
    }
    return std::string(text.substr(0, end)).append(ellipsis);
}

} // namespace tool
