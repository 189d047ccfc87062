#pragma once

#include <tool/pages/KeyRange.h>
#include <tool/pages/PageFile.h>
#include <tool/pages/TablePage.h>

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace tool
{

/// The b-tree of a table, read from its root page. It takes a page only where its keys lie between those that the
/// parent names, and where all leaves have the same depth. So a page that was overwritten by another page of the same
/// table is found, too. Reads each page once.
class TableTree
{
public:
    struct Leaf
    {
        PageNumber page;
        KeyRange keys; ///< from its first to its last row; empty in an empty table
    };
    /// A page of the tree that cannot be used.
    struct Lost
    {
        PageNumber page; ///< as the parent names it; it may lie outside of the file
        KeyRange range;  ///< the keys that its parents leave to it: rows with other keys were not on it
        bool isInterior; ///< the pages that it names are lost as well
        /// It is a leaf of this table, but not the one that belongs here.
        bool isMisplaced;
        char const* reason;
    };

    static constexpr std::size_t kAnyColumns = 0;

    /// Reads the tree. `file` need not outlive this object. `columns` is the number of cells of the table's rows: a
    /// leaf on which no row has as many is of another table. With kAnyColumns the number is not compared.
    TableTree(PageFile const& file, PageNumber root, std::size_t columns);

    /// Whether it is a tree of this table: it has leaves, or the root is an empty leaf.
    bool isAccepted() const { return !m_leaves.empty(); }
    /// The sound leaves, in the order of their keys.
    std::vector<Leaf> const& leaves() const { return m_leaves; }
    /// The sound interior pages, from the root downwards.
    std::vector<PageNumber> const& interiorPages() const { return m_interiorPages; }
    /// The pages that cannot be used, in no order.
    std::vector<Lost> const& lost() const { return m_lost; }

private:
    /// A page that a parent names.
    struct Node
    {
        PageNumber page;
        KeyRange bounds;
    };
    /// What was found there.
    struct Finding
    {
        Node node;
        enum
        {
            BAD,
            MISPLACED, ///< a leaf with keys that do not belong here
            LEAF,
            INTERIOR
        } kind;
        KeyRange keys;      ///< of a leaf
        char const* reason; ///< for a bad page
    };

    void readLevel(std::vector<Node> const& level);
    Finding examine(Node const& node);
    Finding examineLeaf(Node const& node) const;
    Finding examineInterior(Node const& node);
    void takeLeaves();
    void takeInteriorPages();
    void lose(Finding const& finding, bool isInterior, char const* reason);

    PageFile const* m_file; ///< while reading
    std::size_t m_columns;
    std::string m_bytes;
    TablePage m_page;
    std::vector<bool> m_isVisited;   ///< by page number
    std::vector<Finding> m_findings; ///< of the level that is being read
    std::vector<Node> m_children;    ///< of its interior pages
    std::vector<Leaf> m_leaves;
    std::vector<PageNumber> m_interiorPages;
    std::vector<Lost> m_lost;
};

/// Whether a row of the leaf has `columns` cells.
bool hasRowOf(TablePage const& leaf, std::size_t columns);

/// The keys from the first to the last row of a leaf.
KeyRange keysOf(TablePage const& leaf);

} // namespace tool
