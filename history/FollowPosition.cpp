#include <history/FollowPosition.h>

#include <array>
#include <charconv>
#include <string_view>

namespace firaim
{

namespace
{

constexpr std::string_view kForm = "firaim1"; ///< version of this text form
constexpr std::string_view kNone = "-";
constexpr char kSeparator = ':';
constexpr std::size_t kNumbers = 4;

template <class Number>
std::string_view written(std::optional<Number> number, std::array<char, 24>& room)
{
    if (!number)
    {
        return kNone;
    }
    char const* const end = std::to_chars(room.data(), room.data() + room.size(), *number).ptr;
    return {room.data(), static_cast<std::size_t>(end - room.data())};
}

template <class Number>
bool read(std::string_view text, Number& number)
{
    char const* const end = text.data() + text.size();
    auto const [stop, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && stop == end;
}

template <class Number>
bool read(std::string_view text, std::optional<Number>& number)
{
    if (text == kNone)
    {
        number.reset();
        return true;
    }
    return read(text, number.emplace());
}

} // namespace

std::string FollowPosition::toText() const
{
    std::array<char, 24> room = {};
    std::string text(kForm);
    for (std::uint64_t const number : {device, inode})
    {
        (text += kSeparator).append(written(std::optional(number), room));
    }
    (text += kSeparator).append(written(key, room));
    (text += kSeparator).append(written(rowHash, room));
    return text;
}

bool FollowPosition::fromText(std::string const& text, FollowPosition& position)
{
    std::array<std::string_view, kNumbers + 1> pieces;
    std::string_view rest = text;
    for (std::size_t i = 0; i < pieces.size(); ++i)
    {
        std::size_t const end = i + 1 < pieces.size() ? rest.find(kSeparator) : rest.size();
        if (end == std::string_view::npos)
        {
            return false;
        }
        pieces[i] = rest.substr(0, end);
        rest.remove_prefix(i + 1 < pieces.size() ? end + 1 : end);
    }
    FollowPosition found;
    if (pieces[0] != kForm || !read(pieces[1], found.device) || !read(pieces[2], found.inode) ||
        !read(pieces[3], found.key) || !read(pieces[4], found.rowHash) || (found.rowHash && !found.key) ||
        found.toText() != text)
    {
        return false;
    }
    position = found;
    return true;
}

} // namespace firaim
