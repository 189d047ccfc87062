#pragma once

#include <cstddef>
#include <cstdint>

namespace tool
{

/// The bytes of a file. Whoever reads pages does not open files: they may come from a descriptor, from SQLite's own
/// file object, or from memory.
class ByteSource
{
public:
    virtual ~ByteSource() = default;

    /// The number of bytes.
    virtual std::uint64_t size() const = 0;
    /// Reads `count` bytes from `offset` on into `bytes`. Returns false when they lie outside of the source or the
    /// storage cannot read them; `bytes` may then have any content.
    virtual bool read(std::uint64_t offset, char* bytes, std::size_t count) const = 0;
};

} // namespace tool
