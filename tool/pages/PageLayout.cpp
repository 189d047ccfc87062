#include <tool/pages/PageLayout.h>

#include <tool/pages/FileHeader.h>
#include <tool/pages/RecordDecoder.h>
#include <tool/pages/TablePage.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

namespace tool
{

namespace
{

/// Bytes that are examined together; each size of pages divides them.
constexpr std::uint64_t kChunk = FileHeader::kLargestPage;
/// So many chunks suffice if they have any rows.
constexpr std::uint64_t kChunksToTry = 256;

/// A layout and the rows that were found under it.
struct Candidate
{
    PageLayout layout;
    std::uint64_t rows = 0;
};

/// All layouts that the file may have, the stated one first.
std::vector<Candidate> candidatesFor(PageLayout const& stated)
{
    std::vector<Candidate> candidates;
    auto const add = [&](PageLayout const& layout)
    {
        bool const isPossible = layout.pageSize >= FileHeader::kSmallestUsable + layout.reserved;
        bool const isThere = std::any_of(candidates.begin(), candidates.end(),
                                         [&](Candidate const& candidate) { return candidate.layout == layout; });
        if (isPossible && !isThere)
        {
            candidates.push_back({layout});
        }
    };
    add(stated);
    for (std::uint32_t size = FileHeader::kSmallestPage; size <= FileHeader::kLargestPage; size *= 2)
    {
        add({size, stated.reserved});
        add({size, 0});
    }
    return candidates;
}

/// The rows of a leaf whose records have the sizes that their cells say. An overflow page hardly ever has any.
std::uint64_t soundRowsOf(TablePage const& page, RecordDecoder& record)
{
    auto const isSound = [&](TablePage::Cell const& cell)
    { return record.decodeBeginning(cell.local, cell.payloadSize) && !record.cells().empty(); };
    return static_cast<std::uint64_t>(std::count_if(page.cells().begin(), page.cells().end(), isSound));
}

/// Counts the rows of one chunk. Page 1, which may have lost its header only, says nothing.
void countRows(std::string_view chunk, bool isFirst, Candidate& candidate)
{
    TablePage page;
    RecordDecoder record;
    std::size_t const size = candidate.layout.pageSize;
    for (std::size_t offset = isFirst ? size : 0; offset + size <= chunk.size(); offset += size)
    {
        if (page.parse(chunk.substr(offset, size), 2, candidate.layout.reserved)) // Any number but that of page 1.
        {
            candidate.rows += soundRowsOf(page, record);
        }
    }
}

/// Counts the rows from `offset` on, of at most so many bytes as are to be tried.
void countRows(ByteSource const& file, std::uint64_t offset, std::vector<Candidate>& candidates)
{
    std::string chunk;
    std::uint64_t const end = std::min(file.size(), offset + kChunksToTry * kChunk);
    for (; offset < end; offset += kChunk)
    {
        chunk.resize(static_cast<std::size_t>(std::min(kChunk, file.size() - offset)));
        if (!file.read(offset, chunk.data(), chunk.size()))
        {
            continue;
        }
        for (Candidate& candidate : candidates)
        {
            countRows(chunk, offset == 0, candidate);
        }
    }
}

} // namespace

PageLayout findPageLayout(ByteSource const& file, PageLayout const& stated)
{
    std::vector<Candidate> candidates = candidatesFor(stated);
    for (std::uint64_t offset = 0; offset < file.size(); offset += kChunksToTry * kChunk)
    {
        countRows(file, offset, candidates);
        // The first of several with the same rows.
        auto const best =
            std::max_element(candidates.begin(), candidates.end(),
                             [](Candidate const& left, Candidate const& right) { return left.rows < right.rows; });
        if (best->rows > 0)
        {
            return best->layout;
        }
    }
    return stated;
}

} // namespace tool
