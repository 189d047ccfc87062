#pragma once

#include <tool/pages/OverflowChain.h>
#include <tool/pages/RecordDecoder.h>
#include <tool/rescue/Survey.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace tool
{

/// A row of a leaf.
struct FoundRow
{
    std::int64_t key;
    PageNumber page;
    std::vector<RecordCell> const& cells; ///< as many as could be decoded
    char const* doubt;                    ///< why it may be wrong; null if nothing speaks against it
};

/// Reads the rows of leaves. Overflow pages have no checksum and do not say whose they are. So all rows are looked at
/// twice: first `prepare` notes the overflow pages of each row.
class RowReader
{
public:
    RowReader(PageFile const& file, PageUse& use) : m_file(file), m_chain(file, use) {}

    /// Notes the overflow pages of these leaves, or of others in a further call.
    void prepare(std::vector<SurveyedLeaf> const& leaves);
    /// To be called once, after all leaves were prepared.
    void comparePreparedRows();
    /// Calls `take` with each row of a leaf; returns false if the leaf cannot be read.
    bool read(SurveyedLeaf const& leaf, std::function<void(FoundRow const&)> const& take);

private:
    /// Of a row with overflow pages, as hashes.
    struct OverflowHash
    {
        std::uint64_t lastPage;
        std::uint64_t texts; ///< those of which overflow pages have at least a part

        bool operator<(OverflowHash const& other) const
        {
            return lastPage != other.lastPage ? lastPage < other.lastPage : texts < other.texts;
        }
    };

    bool readPage(PageNumber page);
    void readRow(SurveyedLeaf const& leaf, TablePage::Cell const& cell,
                 std::function<void(FoundRow const&)> const& take);
    char const* readLongRow(TablePage::Cell const& cell);
    std::uint64_t hashOfOverflowingTexts(std::size_t localSize) const;
    bool isLastPageEmpty() const;
    bool isLastPageShared() const;

    PageFile const& m_file;
    OverflowChain m_chain;
    TablePage m_page;
    std::string m_bytes;
    RecordDecoder m_record;
    std::vector<PageNumber> m_leavesWithOverflow;
    std::vector<std::uint64_t> m_sharedLastPages; ///< hashes, ascending
};

} // namespace tool
