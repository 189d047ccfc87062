#pragma once

#include <tool/pages/Freelist.h>
#include <tool/pages/KeyRange.h>
#include <tool/pages/PageFile.h>
#include <tool/pages/PageUse.h>
#include <tool/pages/TableTree.h>

#include <array>
#include <cstddef>
#include <map>
#include <string>
#include <vector>

namespace tool
{

/// A leaf whose rows are to be read.
struct SurveyedLeaf
{
    PageNumber page;
    KeyRange keys;     ///< from its first to its last row
    char const* doubt; ///< why its rows are doubtful; null if they are not
};

/// The pages of a table.
struct SurveyedTable
{
    std::string name;
    std::size_t columns = 0;
    /// The leaves of the table, in the order of their first keys.
    std::vector<SurveyedLeaf> leaves;
    /// Leaves whose rows may belong to the table or not: all of them have a doubt.
    std::vector<SurveyedLeaf> doubtfulLeaves;
    std::vector<TableTree::Lost> lost;
    std::size_t adopted = 0; ///< of the leaves: those that no parent names
};

/// Finds the pages of the known tables in a file of which any page may be damaged: through their parents, and where a
/// parent is lost by looking at each page that nothing names.
class Survey
{
public:
    enum Table
    {
        FAULTS,
        STATISTICS,
        VERSIONS,
        SEQUENCES,
        TABLES
    };

    /// `file` must outlive this object. Free pages count as doubtful leaves if `areFreePagesTaken`.
    Survey(PageFile const& file, bool areFreePagesTaken);

    SurveyedTable const& table(Table table) const { return m_tables[table]; }
    /// The uses of the pages; those of overflow pages are still to be noted.
    PageUse& use() { return m_use; }
    std::size_t freePages() const { return m_freelist.pages().size(); }
    /// Whether page 1 names the root page of one table as that of another.
    bool areRootsExchanged() const { return m_areRootsExchanged; }

private:
    /// A page of a table that nothing names.
    struct Orphan
    {
        PageNumber page;
        KeyRange keys;
        std::size_t table;
    };

    void readNamedTrees();
    bool readNamedTree(SurveyedTable& table, PageNumber root);
    void exchangeRoots();
    bool takeRootOfAnother(std::size_t table, std::vector<std::size_t> const& others,
                           std::array<PageNumber, TABLES> const& named);
    void take(SurveyedTable& table, TableTree const& tree);
    void findOrphans();
    void noteOrphan(TablePage const& page, PageNumber number);
    void findRoots();
    void findRoot(SurveyedTable& table);
    void checkRoot(std::size_t table);
    void adopt(std::size_t index);
    void addMisplacedLeaves(SurveyedTable& table);
    void addFreeLeaves();
    char const* doubtOfLostKeys(std::size_t table) const;
    bool mayHaveFreeLeaves(std::size_t table) const;
    std::size_t listedFreePages() const;
    std::size_t unlistedFreePages() const;
    bool isFreelistSound() const;

    PageFile const& m_file;
    PageUse m_use;
    Freelist m_freelist;
    std::array<SurveyedTable, TABLES> m_tables;
    std::array<PageNumber, TABLES> m_roots = {};
    std::vector<std::size_t> m_rejected; ///< tables whose named root is none of theirs
    bool m_areRootsExchanged = false;
    std::vector<Orphan> m_orphans;             ///< leaves
    std::vector<PageNumber> m_orphanInteriors; ///< interior pages
    std::vector<bool> m_isChild;               ///< by page number: an orphan names it
};

} // namespace tool
