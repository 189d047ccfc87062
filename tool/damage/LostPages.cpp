#include <tool/damage/LostPages.h>

#include <tool/files/LockedBytes.h>
#include <tool/pages/PageFile.h>
#include <tool/pages/SchemaRoots.h>
#include <tool/values/Text.h>

#include <db/internal/ReadOnlyOpening.h>

#include <algorithm>
#include <limits>

namespace tool
{

namespace
{

constexpr std::int64_t kLargest = std::numeric_limits<std::int64_t>::max();

/// The first bytes of a file.
class FirstBytes : public ByteSource
{
public:
    explicit FirstBytes(ByteSource const& whole) : m_whole(whole) {}

    std::uint64_t size() const override { return std::min(m_whole.size(), kMost); }
    bool read(std::uint64_t offset, char* bytes, std::size_t count) const override
    {
        return offset <= size() && count <= size() - offset && m_whole.read(offset, bytes, count);
    }

private:
    /// The size of the pages is found by trying; a file that is none of SQLite's may be large.
    static constexpr std::uint64_t kMost = 4 << 20;

    ByteSource const& m_whole;
};

/// Whether the storage fails to return a page that is there.
bool isUnreadable(PageFile const& pages, PageNumber page)
{
    std::string bytes;
    return page > 0 && page <= pages.pageCount() && !pages.read(page, bytes);
}

char const* rowsOf(TableSchema const& schema)
{
    return &schema == &faultSchema() ? "faults" : &schema == &statisticSchema() ? "statistics" : "versions";
}

} // namespace

std::vector<KeyGap> findGaps(ByteSource const& file, TableSchema const& schema)
{
    PageFile const pages(file);
    std::map<std::string, PageNumber> const roots = readSchemaRoots(pages);
    auto const root = roots.find(schema.name);
    if (root == roots.end())
    {
        return {};
    }
    std::vector<TableTree::Lost> lost = TableTree(pages, root->second, schema.columns.size()).lost();
    std::sort(lost.begin(), lost.end(),
              [](TableTree::Lost const& a, TableTree::Lost const& b) { return a.range.first < b.range.first; });
    std::vector<KeyGap> gaps;
    for (TableTree::Lost const& page : lost)
    {
        bool const isMedium = isUnreadable(pages, page.page);
        bool const isNeighbour =
            !gaps.empty() && (gaps.back().keys.last == kLargest || page.range.first <= gaps.back().keys.last + 1);
        if (!isNeighbour || gaps.back().isMedium != isMedium)
        {
            gaps.push_back({page.range, {}, isMedium});
        }
        gaps.back().keys.last = std::max(gaps.back().keys.last, page.range.last);
        gaps.back().pages.push_back(page);
    }
    return gaps;
}

std::vector<KeyGap> findGapsOf(std::string const& path, TableSchema const& schema)
{
    {
        sqlite::Connection const connection(path, sqlite::Connection::READ_ONLY);
        if (readOnlyOpening::isInWalMode(connection))
        {
            return {};
        }
        sqlite::Statement columns = connection.prepare("SELECT count(*) FROM pragma_table_xinfo(?1)");
        bool const isOfLibrary = columns.bind(1, schema.name).step() &&
                                 columns.integer(0) == static_cast<std::int64_t>(schema.columns.size());
        if (!isOfLibrary)
        {
            return {};
        }
    }
    return findGaps(LockedBytes(path), schema);
}

bool hasFaultPages(ByteSource const& file)
{
    FirstBytes const first(file);
    PageFile const pages(first);
    if (pages.isHeaderSound())
    {
        return false;
    }
    std::string bytes;
    TablePage page;
    for (PageNumber number = 1; number <= pages.pageCount(); ++number)
    {
        bool const isFault = pages.read(number, bytes) && page.parse(bytes, number, pages.header().reserved) &&
                             page.isLeaf() && hasRowOf(page, faultSchema().columns.size());
        if (isFault)
        {
            return true;
        }
    }
    return false;
}

std::string keysText(TableSchema const& schema, KeyRange const& keys)
{
    std::string const name = rowsOf(schema);
    std::string const first = std::to_string(keys.first);
    std::string const last = std::to_string(keys.last);
    if (keys.first <= 1) // The library's keys begin with 1.
    {
        return keys.last == kLargest ? "all " + name : name + " up to " + last;
    }
    if (keys.last == kLargest)
    {
        return name + " from " + first + " on";
    }
    return keys.first == keys.last ? name + " " + first : name + " " + first + " to " + last;
}

std::string gapText(TableSchema const& schema, KeyGap const& gap)
{
    std::string const text = keysText(schema, gap.keys) + " cannot be read";
    if (gap.pages.empty())
    {
        return text + (gap.isMedium ? ": the medium fails" : "");
    }
    std::string const page = "page " + std::to_string(gap.pages.front().page);
    bool const isOne = gap.pages.size() == 1;
    std::string const pages = isOne ? page : page + " and " + grouped(gap.pages.size() - 1) + " more";
    if (gap.isMedium)
    {
        return text + ": the medium failed to return " + pages;
    }
    return text + ": " + pages + (isOne ? " is damaged" : " are damaged or missing");
}

} // namespace tool
