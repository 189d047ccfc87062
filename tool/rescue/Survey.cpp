#include <tool/rescue/Survey.h>

#include <tool/pages/SchemaRoots.h>
#include <tool/rescue/LostRanges.h>
#include <tool/schema/TableSchema.h>

#include <algorithm>
#include <optional>

namespace tool
{

namespace
{

using Overlap = LostRanges::Overlap;

constexpr char kSequenceTable[] = "sqlite_sequence";
constexpr std::size_t kSequenceColumns = 2;
constexpr PageNumber kContentsRoot = 1;
constexpr std::size_t kContentsColumns = 5;
constexpr char kPerhapsFree[] = "no page names this one, and it may be a free page, as page 1 is lost";

SurveyedTable tableOf(TableSchema const& schema)
{
    SurveyedTable table;
    table.name = schema.name;
    table.columns = schema.columns.size();
    return table;
}

SurveyedTable sequenceTable()
{
    SurveyedTable table;
    table.name = kSequenceTable;
    table.columns = kSequenceColumns;
    return table;
}

/// The number of pages that were read for a tree.
std::size_t pagesOf(TableTree const& tree)
{
    return tree.leaves().size() + tree.interiorPages().size() + tree.lost().size();
}

} // namespace

Survey::Survey(PageFile const& file, bool areFreePagesTaken)
    : m_file(file), m_use(file.pageCount()), m_freelist(file),
      m_tables({tableOf(faultSchema()), tableOf(statisticSchema()), tableOf(versionSchema()), sequenceTable()}),
      m_isChild(std::size_t{file.pageCount()} + 1)
{
    for (PageNumber const page : m_freelist.pages())
    {
        m_use.set(page, PageUse::FREE);
    }
    readNamedTrees();
    exchangeRoots();
    findOrphans();
    findRoots();
    for (std::size_t table = 0; table < TABLES; ++table)
    {
        checkRoot(table);
        adopt(table);
        addMisplacedLeaves(m_tables[table]);
    }
    if (areFreePagesTaken)
    {
        addFreeLeaves();
    }
}

void Survey::readNamedTrees()
{
    std::map<std::string, PageNumber> roots = readSchemaRoots(m_file);
    m_use.set(kContentsRoot, PageUse::TREE);
    if (m_file.isHeaderSound())
    {
        SurveyedTable contents;
        take(contents, TableTree(m_file, kContentsRoot, kContentsColumns));
    }
    for (std::size_t index = 0; index < TABLES; ++index)
    {
        auto const root = roots.find(m_tables[index].name);
        m_roots[index] = root == roots.end() ? 0 : root->second;
        if (!readNamedTree(m_tables[index], m_roots[index]))
        {
            m_rejected.push_back(index);
        }
        roots.erase(m_tables[index].name);
    }
    for (auto const& [name, root] : roots)
    {
        SurveyedTable other; // Its pages are no orphans.
        take(other, TableTree(m_file, root, TableTree::kAnyColumns));
    }
}

/// Takes the tree if it is of the table: page 1 may be wrong, and the root may have been overwritten.
bool Survey::readNamedTree(SurveyedTable& table, PageNumber root)
{
    if (root == 0)
    {
        table.lost.push_back({0, {}, true, false, "is not known, as page 1 does not name it"});
        return false;
    }
    TableTree const tree(m_file, root, table.columns);
    m_use.set(root, PageUse::TREE);
    if (tree.isAccepted())
    {
        take(table, tree);
        return true;
    }
    bool const isRootBad = !tree.lost().empty() && tree.lost().front().page == root;
    table.lost.push_back(
        {root, {}, true, false, isRootBad ? tree.lost().front().reason : "leads to no page of the table"});
    return false;
}

/// Looks for tables whose own roots are wrong at those of each other, which page 1 may have exchanged.
void Survey::exchangeRoots()
{
    std::array<PageNumber, TABLES> const named = m_roots;
    for (std::size_t const table : m_rejected)
    {
        m_areRootsExchanged = takeRootOfAnother(table, m_rejected, named) || m_areRootsExchanged;
    }
}

bool Survey::takeRootOfAnother(std::size_t table, std::vector<std::size_t> const& others,
                               std::array<PageNumber, TABLES> const& named)
{
    for (std::size_t const other : others)
    {
        TableTree const tree(m_file, named[other], m_tables[table].columns);
        if (named[other] != named[table] && tree.isAccepted())
        {
            m_tables[table].lost.clear(); // The tree says what is lost.
            take(m_tables[table], tree);
            m_roots[table] = named[other];
            return true;
        }
    }
    return false;
}

void Survey::take(SurveyedTable& table, TableTree const& tree)
{
    for (TableTree::Leaf const& leaf : tree.leaves())
    {
        m_use.set(leaf.page, PageUse::TREE);
        table.leaves.push_back({leaf.page, leaf.keys, nullptr});
    }
    for (PageNumber const page : tree.interiorPages())
    {
        m_use.set(page, PageUse::TREE);
    }
    for (TableTree::Lost const& lost : tree.lost())
    {
        // Something else may lie there, such as a leaf of another table, but it has no right to be there.
        m_use.set(lost.page, PageUse::TREE);
        table.lost.push_back(lost);
    }
}

void Survey::findOrphans()
{
    std::string bytes;
    TablePage page;
    for (PageNumber number = kContentsRoot + 1; number <= m_file.pageCount(); ++number)
    {
        bool const isOrphan = m_use.of(number) == PageUse::UNUSED && m_file.read(number, bytes) &&
                              page.parse(bytes, number, m_file.header().reserved);
        if (isOrphan)
        {
            noteOrphan(page, number);
        }
    }
}

void Survey::noteOrphan(TablePage const& page, PageNumber number)
{
    if (!page.isLeaf())
    {
        m_orphanInteriors.push_back(number);
        for (TablePage::Child const& child : page.children())
        {
            if (child.page < m_isChild.size())
            {
                m_isChild[child.page] = true;
            }
        }
        return;
    }
    for (std::size_t table = 0; table < TABLES; ++table)
    {
        if (hasRowOf(page, m_tables[table].columns))
        {
            m_orphans.push_back({number, keysOf(page), table});
            return;
        }
    }
}

/// Without page 1 the roots are not known, and neither are the free pages. A root is a page that no other page names.
void Survey::findRoots()
{
    if (m_file.isHeaderSound())
    {
        return;
    }
    for (SurveyedTable& table : m_tables)
    {
        findRoot(table);
    }
}

/// Takes the only tree of the table. Of several, one may be old, or their common root is lost: all leaves count then.
void Survey::findRoot(SurveyedTable& table)
{
    std::optional<TableTree> found;
    // Crafted pages may all name the same large tree: stop when reading takes as long as reading the file a few times.
    std::size_t pagesLeft = 4 * std::size_t{m_file.pageCount()};
    for (PageNumber const page : m_orphanInteriors)
    {
        if (m_isChild[page] || m_use.of(page) != PageUse::UNUSED || pagesLeft == 0)
        {
            continue;
        }
        TableTree tree(m_file, page, table.columns);
        pagesLeft -= std::min(pagesLeft, pagesOf(tree));
        if (tree.isAccepted() && found)
        {
            return;
        }
        if (tree.isAccepted())
        {
            found.emplace(std::move(tree));
        }
    }
    if (found)
    {
        table.lost.clear(); // The tree says what is lost.
        take(table, *found);
    }
}

/// The listed pages that are free indeed: a damaged list may have pages of trees.
std::size_t Survey::listedFreePages() const
{
    std::vector<PageNumber> const& pages = m_freelist.pages();
    return static_cast<std::size_t>(
        std::count_if(pages.begin(), pages.end(), [this](PageNumber page) { return m_use.of(page) == PageUse::FREE; }));
}

bool Survey::isFreelistSound() const
{
    return m_freelist.isWhole() && listedFreePages() == m_freelist.pages().size();
}

/// How many free pages the damaged part of their list may have named.
std::size_t Survey::unlistedFreePages() const
{
    std::size_t const listed = listedFreePages();
    return m_file.header().freePages > listed ? m_file.header().freePages - listed : 0;
}

/// A root that was overwritten by a page of its own table is a sound tree of too few pages. The others are orphans
/// then: in a sound file every page has a use. Pages that the damaged part of the list of free pages named are orphans,
/// too.
void Survey::checkRoot(std::size_t table)
{
    bool const mayAllBeFree = m_orphans.size() + m_orphanInteriors.size() <= unlistedFreePages();
    if (mayAllBeFree || m_roots[table] == 0)
    {
        return;
    }
    LostRanges const ranges(m_tables[table].lost);
    bool const isTooSmall = std::any_of(
        m_orphans.begin(), m_orphans.end(),
        [&](Orphan const& orphan) { return orphan.table == table && ranges.overlapOf(orphan.keys) != Overlap::ALL; });
    if (isTooSmall)
    {
        m_tables[table].lost.push_back({m_roots[table], {}, true, false, "names only a part of the table"});
    }
}

/// Why leaves that nothing names may be free pages, although all of their keys are lost; null if they are not.
char const* Survey::doubtOfLostKeys(std::size_t table) const
{
    if (m_file.isHeaderSound())
    {
        return isFreelistSound() ? nullptr
                                 : "no page names this one, and it may be a free page, as the list of these is damaged";
    }
    return mayHaveFreeLeaves(table) ? kPerhapsFree : nullptr;
}

/// Without page 1, removed faults of a free page cannot be told from others, unless the only leaf is the root. The
/// other tables hardly ever have free pages, and their rows are compared with the faults.
bool Survey::mayHaveFreeLeaves(std::size_t table) const
{
    auto const leaves = std::count_if(m_orphans.begin(), m_orphans.end(),
                                      [table](Orphan const& orphan) { return orphan.table == table; });
    return table == FAULTS && leaves > 1;
}

/// Takes the orphans with lost keys. Without page 1, the others may be free pages, or pages of a root that is lost,
/// too.
void Survey::adopt(std::size_t index)
{
    SurveyedTable& table = m_tables[index];
    LostRanges const ranges(table.lost);
    std::map<Overlap, char const*> const doubts = {
        {Overlap::NONE, kPerhapsFree},
        {Overlap::PART, "no page names this one, and only some of its keys are missing"},
        {Overlap::ALL, doubtOfLostKeys(index)}};
    for (Orphan const& orphan : m_orphans)
    {
        Overlap const overlap = ranges.overlapOf(orphan.keys);
        bool const isCandidate = overlap != Overlap::NONE || !m_file.isHeaderSound();
        if (orphan.table != index || !isCandidate || m_use.of(orphan.page) != PageUse::UNUSED)
        {
            continue;
        }
        m_use.set(orphan.page, PageUse::TREE);
        if (char const* const doubt = doubts.at(overlap))
        {
            table.doubtfulLeaves.push_back({orphan.page, orphan.keys, doubt});
        }
        else
        {
            table.leaves.push_back({orphan.page, orphan.keys, nullptr});
            ++table.adopted;
        }
    }
    std::sort(table.leaves.begin(), table.leaves.end(),
              [](SurveyedLeaf const& left, SurveyedLeaf const& right) { return left.keys.first < right.keys.first; });
}

void Survey::addMisplacedLeaves(SurveyedTable& table)
{
    std::string bytes;
    TablePage page;
    for (TableTree::Lost const& lost : table.lost)
    {
        if (lost.isMisplaced && m_file.read(lost.page, bytes) && page.parse(bytes, lost.page, m_file.header().reserved))
        {
            table.doubtfulLeaves.push_back({lost.page, keysOf(page), "its page does not belong where it is"});
        }
    }
}

void Survey::addFreeLeaves()
{
    std::string bytes;
    TablePage page;
    SurveyedTable& faults = m_tables[FAULTS];
    for (PageNumber const number : m_freelist.pages())
    {
        bool const isLeaf = m_use.of(number) == PageUse::FREE && m_file.read(number, bytes) &&
                            page.parse(bytes, number, m_file.header().reserved) && page.isLeaf();
        if (isLeaf && hasRowOf(page, faults.columns))
        {
            faults.doubtfulLeaves.push_back({number, keysOf(page), "its page is a free one"});
        }
    }
}

} // namespace tool
