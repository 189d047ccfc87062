#include <tool/pages/TableTree.h>

#include <tool/pages/RecordDecoder.h>

#include <algorithm>
#include <utility>

namespace tool
{

bool hasRowOf(TablePage const& leaf, std::size_t columns)
{
    return std::any_of(leaf.cells().begin(), leaf.cells().end(),
                       [&](TablePage::Cell const& cell) { return RecordDecoder::countCells(cell.local) == columns; });
}

KeyRange keysOf(TablePage const& leaf)
{
    return leaf.cells().empty() ? KeyRange{0, -1} : KeyRange{leaf.cells().front().key, leaf.cells().back().key};
}

TableTree::TableTree(PageFile const& file, PageNumber root, std::size_t columns)
    : m_file(&file), m_columns(columns), m_isVisited(std::size_t{file.pageCount()} + 1)
{
    // Level by level: the pages of one level, and with them the keys, stay in order, and no stack can overflow.
    std::vector<Node> level = {{root, {}}};
    while (!level.empty())
    {
        readLevel(level);
        level = std::exchange(m_children, {});
    }
    m_file = nullptr;
    m_findings = {};
    m_isVisited = {};
}

/// Reads pages of the same depth. All of them must be leaves, or none: the larger number decides. Where both are equal,
/// they are interior pages, as a stale leaf is more frequent than a stale interior page.
void TableTree::readLevel(std::vector<Node> const& level)
{
    m_findings.clear();
    std::size_t leaves = 0;
    std::size_t interiorPages = 0;
    for (Node const& node : level)
    {
        m_findings.push_back(examine(node));
        leaves += m_findings.back().kind == Finding::LEAF || m_findings.back().kind == Finding::MISPLACED ? 1 : 0;
        interiorPages += m_findings.back().kind == Finding::INTERIOR ? 1 : 0;
    }
    leaves > interiorPages ? takeLeaves() : takeInteriorPages();
}

TableTree::Finding TableTree::examine(Node const& node)
{
    if (node.page == 0 || node.page >= m_isVisited.size())
    {
        return {node, Finding::BAD, {}, "is missing in the file"};
    }
    if (m_isVisited[node.page])
    {
        return {node, Finding::BAD, {}, "has another place in the table already"};
    }
    m_isVisited[node.page] = true;
    if (!m_file->read(node.page, m_bytes))
    {
        return {node, Finding::BAD, {}, "cannot be read from the storage"};
    }
    if (!m_page.parse(m_bytes, node.page, m_file->header().reserved))
    {
        return {node, Finding::BAD, {}, m_page.problem()};
    }
    return m_page.isLeaf() ? examineLeaf(node) : examineInterior(node);
}

TableTree::Finding TableTree::examineLeaf(Node const& node) const
{
    if (m_page.cells().empty())
    {
        bool const isRoot = node.bounds.has(KeyRange());
        return isRoot ? Finding{node, Finding::LEAF, keysOf(m_page), ""} : Finding{node, Finding::BAD, {}, "is empty"};
    }
    if (m_columns != kAnyColumns && !hasRowOf(m_page, m_columns))
    {
        return {node, Finding::BAD, {}, "has rows of another table"};
    }
    KeyRange const keys = keysOf(m_page);
    return node.bounds.has(keys) ? Finding{node, Finding::LEAF, keys, ""}
                                 : Finding{node, Finding::MISPLACED, keys, "has keys of another page"};
}

/// Adds its children to those of the level.
TableTree::Finding TableTree::examineInterior(Node const& node)
{
    std::vector<TablePage::Child> const& children = m_page.children();
    // The last child has no key of its own. Nothing would be left to it if its predecessor could have all keys.
    if (children.size() > 1 &&
        (children.front().lastKey < node.bounds.first || children[children.size() - 2].lastKey >= node.bounds.last))
    {
        return {node, Finding::BAD, {}, "has keys of another page"};
    }
    std::int64_t first = node.bounds.first;
    for (TablePage::Child const& child : children)
    {
        KeyRange const bounds = {first, std::min(child.lastKey, node.bounds.last)};
        m_children.push_back({child.page, bounds});
        first = bounds.last + (bounds.last < node.bounds.last ? 1 : 0);
    }
    return {node, Finding::INTERIOR, {}, ""};
}

void TableTree::takeLeaves()
{
    m_children.clear();
    for (Finding const& finding : m_findings)
    {
        if (finding.kind == Finding::LEAF)
        {
            m_leaves.push_back({finding.node.page, finding.keys});
        }
        else
        {
            lose(finding, false,
                 finding.kind == Finding::INTERIOR ? "is no leaf, unlike its neighbours" : finding.reason);
        }
    }
}

void TableTree::takeInteriorPages()
{
    for (Finding const& finding : m_findings)
    {
        if (finding.kind == Finding::INTERIOR)
        {
            m_interiorPages.push_back(finding.node.page);
        }
        else
        {
            lose(finding, true, finding.kind == Finding::LEAF ? "is a leaf, unlike its neighbours" : finding.reason);
        }
    }
}

void TableTree::lose(Finding const& finding, bool isInterior, char const* reason)
{
    bool const isLeaf = finding.kind == Finding::LEAF || finding.kind == Finding::MISPLACED;
    m_lost.push_back({finding.node.page, finding.node.bounds, isInterior, isLeaf, reason});
}

} // namespace tool
