#include <tool/pages/RecordDecoder.h>

#include <tool/pages/BigEndian.h>

#include <array>
#include <cstring>

namespace tool
{

namespace
{

/// Serial types, and the first of those that say a length.
constexpr std::uint64_t kNull = 0;
constexpr std::uint64_t kReal = 7;
constexpr std::uint64_t kZero = 8;
constexpr std::uint64_t kOne = 9;
constexpr std::uint64_t kFirstBlob = 12;

/// The sizes of the types below kFirstBlob; 10 and 11 are never stored.
constexpr std::array<std::size_t, 10> kSizes = {0, 1, 2, 3, 4, 6, 8, 8, 0, 0};

bool isSerialType(std::uint64_t type)
{
    return type < kSizes.size() || type >= kFirstBlob;
}

std::uint64_t sizeOf(std::uint64_t type)
{
    return type < kSizes.size() ? kSizes[static_cast<std::size_t>(type)] : (type - kFirstBlob) / 2;
}

/// The signed number in these bytes.
std::int64_t signedNumber(std::string_view bytes)
{
    std::uint64_t value = bigEndian(bytes, 0, bytes.size());
    std::size_t const bits = 8 * bytes.size();
    if (bits < 64 && (value >> (bits - 1) & 1) != 0)
    {
        value |= ~std::uint64_t{0} << bits;
    }
    return static_cast<std::int64_t>(value);
}

double realNumber(std::string_view bytes)
{
    std::uint64_t const bits = bigEndian(bytes, 0, bytes.size());
    double value = 0;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

/// The cell of that type, whose bytes begin those of `body`.
RecordCell cellOf(std::uint64_t type, std::string_view body)
{
    RecordCell cell;
    std::uint64_t const size = sizeOf(type);
    bool const isWhole = size <= body.size();
    if (type >= kFirstBlob)
    {
        cell.type = type % 2 == 0 ? RecordCell::BLOB : RecordCell::TEXT;
        cell.bytes = isWhole ? body.substr(0, static_cast<std::size_t>(size)) : body;
        cell.isCut = !isWhole;
    }
    else if (!isWhole)
    {
        cell.type = RecordCell::MISSING;
    }
    else if (type == kReal)
    {
        cell.type = RecordCell::REAL;
        cell.real = realNumber(body.substr(0, kSizes[kReal]));
    }
    else if (type != kNull)
    {
        cell.type = RecordCell::INTEGER;
        bool const isInHeader = type == kZero || type == kOne;
        cell.integer = isInHeader ? static_cast<std::int64_t>(type - kZero)
                                  : signedNumber(body.substr(0, static_cast<std::size_t>(size)));
    }
    return cell;
}

/// Calls `take` with the serial type of each cell of the record that begins with `payload`, until it returns false.
/// Returns the size of the header, or none if the header is not there, is wrong or was not read to its end.
template <class Take>
std::optional<std::size_t> readHeader(std::string_view payload, Take const& take)
{
    auto const size = readVarint(payload, 0);
    if (!size || size->value > payload.size() || size->value < size->size)
    {
        return std::nullopt;
    }
    std::string_view const header = payload.substr(0, static_cast<std::size_t>(size->value));
    for (std::size_t offset = size->size; offset < header.size();)
    {
        auto const type = readVarint(header, offset);
        if (!type || !isSerialType(type->value) || !take(type->value))
        {
            return std::nullopt;
        }
        offset += type->size;
    }
    return header.size();
}

} // namespace

std::optional<std::size_t> RecordDecoder::countCells(std::string_view payload)
{
    std::size_t count = 0;
    auto const countCell = [&](std::uint64_t)
    {
        ++count;
        return true;
    };
    return readHeader(payload, countCell) ? std::optional(count) : std::nullopt;
}

bool RecordDecoder::decode(std::string_view payload)
{
    return decodeCells(payload, payload.size());
}

bool RecordDecoder::decodeBeginning(std::string_view payload, std::uint64_t size)
{
    return decodeCells(payload, size);
}

bool RecordDecoder::decodeCells(std::string_view payload, std::uint64_t size)
{
    m_cells.clear();
    auto const header = readHeader(payload, [](std::uint64_t) { return true; });
    if (!header)
    {
        return false;
    }
    std::uint64_t left = size - *header; // Of the record, for cells.
    std::string_view body = payload.substr(*header);
    auto const takeCell = [&](std::uint64_t type)
    {
        std::uint64_t const cellSize = sizeOf(type);
        if (cellSize > left)
        {
            return false;
        }
        left -= cellSize;
        m_cells.push_back(cellOf(type, body));
        body = cellSize < body.size() ? body.substr(static_cast<std::size_t>(cellSize)) : std::string_view();
        return true;
    };
    return readHeader(payload, takeCell) && left == 0;
}

} // namespace tool
