#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace tool
{

/// The unsigned number in the `width` bytes from `offset` on, at most 8. They must lie inside of `bytes`.
inline std::uint64_t bigEndian(std::string_view bytes, std::size_t offset, std::size_t width)
{
    std::uint64_t value = 0;
    for (char const byte : bytes.substr(offset, width))
    {
        value = value << 8 | static_cast<unsigned char>(byte);
    }
    return value;
}

/// The unsigned number in the four bytes from `offset` on. They must lie inside of `bytes`.
inline std::uint32_t bigEndian32(std::string_view bytes, std::size_t offset)
{
    return static_cast<std::uint32_t>(bigEndian(bytes, offset, 4));
}

/// SQLite's integer of variable length: 7 bits in each byte, and 8 in the ninth.
struct Varint
{
    std::uint64_t value;
    std::size_t size; ///< in bytes
};

/// The varint at `offset`; none if `bytes` end inside of it.
inline std::optional<Varint> readVarint(std::string_view bytes, std::size_t offset)
{
    constexpr std::size_t kLongest = 9;
    std::uint64_t value = 0;
    for (std::size_t index = 0; offset + index < bytes.size(); ++index)
    {
        auto const byte = static_cast<unsigned char>(bytes[offset + index]);
        if (index == kLongest - 1)
        {
            return Varint{value << 8 | byte, kLongest};
        }
        value = value << 7 | (byte & 0x7fu);
        if (byte < 0x80)
        {
            return Varint{value, index + 1};
        }
    }
    return std::nullopt;
}

} // namespace tool
