#include <tool/pages/SchemaRoots.h>

#include <tool/pages/RecordDecoder.h>
#include <tool/pages/TableTree.h>

#include <limits>

namespace tool
{

namespace
{

/// Columns of the table of contents.
constexpr std::size_t kType = 0;
constexpr std::size_t kName = 1;
constexpr std::size_t kRoot = 3;
constexpr std::size_t kColumns = 5;

bool isText(RecordCell const& cell)
{
    return cell.type == RecordCell::TEXT && !cell.isCut;
}

void takeRoots(TablePage const& leaf, std::map<std::string, PageNumber>& roots)
{
    RecordDecoder record;
    for (TablePage::Cell const& row : leaf.cells())
    {
        // The statement, which may overflow, is the last cell.
        if (!record.decodeBeginning(row.local, row.payloadSize) || record.cells().size() != kColumns)
        {
            continue;
        }
        RecordCell const& root = record.cells()[kRoot];
        bool const isTable = isText(record.cells()[kType]) && record.cells()[kType].bytes == "table";
        bool const isPage = root.type == RecordCell::INTEGER && root.integer > 1 &&
                            root.integer <= std::numeric_limits<PageNumber>::max();
        if (isTable && isPage && isText(record.cells()[kName]))
        {
            roots.emplace(record.cells()[kName].bytes, static_cast<PageNumber>(root.integer));
        }
    }
}

} // namespace

std::map<std::string, PageNumber> readSchemaRoots(PageFile const& file)
{
    std::map<std::string, PageNumber> roots;
    if (!file.isHeaderSound())
    {
        return roots;
    }
    std::string bytes;
    TablePage page;
    TableTree const contents(file, 1, kColumns);
    for (TableTree::Leaf const& leaf : contents.leaves())
    {
        if (file.read(leaf.page, bytes) && page.parse(bytes, leaf.page, file.header().reserved))
        {
            takeRoots(page, roots);
        }
    }
    return roots;
}

} // namespace tool
