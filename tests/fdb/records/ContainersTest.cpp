#include <fdb/records/FaultStatisticTbl.h>
#include <fdb/records/FaultTbl.h>
#include <fdb/records/FdbVersionTbl.h>

#include "AllocationSupport.h"
#include "TestSupport.h"

#include <memory>
#include <type_traits>

namespace
{

/// A container with three elements, each of which owns one block through its member `text`.
template <class Tbl>
std::unique_ptr<Tbl> makeTbl(std::string Tbl::value_type::*text)
{
    auto tbl = std::make_unique<Tbl>();
    tbl->resize(3);
    for (auto& element : *tbl)
    {
        (element.*text).assign(1000, 'x'); // Too long for std::string's internal buffer.
    }
    return tbl;
}

/// The blocks of the three elements from front to back, then the block of the container's elements.
template <class Tbl>
std::vector<void const*> blocksOf(Tbl const& tbl, std::string Tbl::value_type::*text)
{
    return {(tbl[0].*text).data(), (tbl[1].*text).data(), (tbl[2].*text).data(), tbl.data()};
}

template <class Tbl>
void expectReleaseFrontToBack(std::string Tbl::value_type::*text)
{
    auto tbl = makeTbl<Tbl>(text);
    std::vector<void const*> const blocks = blocksOf(*tbl, text);
    ReleaseLog releases;
    tbl.reset();
    EXPECT_EQ(releases.of(blocks), blocks);
}

void* addressAsVector(std::vector<FaultStatistic>& statistics)
{
    return &statistics;
}

} // namespace

static_assert(std::is_base_of_v<std::vector<Fault>, FaultTbl>);
static_assert(std::is_base_of_v<std::vector<FdbVersion>, FdbVersionTbl>);
static_assert(std::is_base_of_v<std::vector<FaultStatistic>, FaultStatisticTbl>);

static_assert(std::has_virtual_destructor_v<FaultTbl>);
static_assert(std::has_virtual_destructor_v<FdbVersionTbl>);
static_assert(!std::is_polymorphic_v<FaultStatisticTbl>);
static_assert(!std::has_virtual_destructor_v<FaultStatisticTbl>);

// No own data members: a vector and a pointer to the virtual table.
static_assert(sizeof(FaultTbl) == sizeof(std::vector<Fault>) + sizeof(void*));
static_assert(sizeof(FdbVersionTbl) == sizeof(std::vector<FdbVersion>) + sizeof(void*));
static_assert(sizeof(FaultStatisticTbl) == sizeof(std::vector<FaultStatistic>));

TEST(Containers, FaultsAreDestroyedFrontToBackBeforeTheirStorage)
{
    expectReleaseFrontToBack<FaultTbl>(&Fault::Description);
}

TEST(Containers, StatisticsAreDestroyedFrontToBackBeforeTheirStorage)
{
    expectReleaseFrontToBack<FaultStatisticTbl>(&FaultStatistic::FaultCodeName);
}

TEST(Containers, VersionsAreDestroyedFrontToBackBeforeTheirStorage)
{
    expectReleaseFrontToBack<FdbVersionTbl>(&FdbVersion::Component);
}

TEST(Containers, EmptyStatisticTblIsItsVector)
{
    FaultStatisticTbl tbl;
    EXPECT_EQ(addressAsVector(tbl), &tbl);
}

TEST(Containers, AreEmptyWhenConstructed)
{
    EXPECT_TRUE(FaultTbl().empty());
    EXPECT_TRUE(FaultStatisticTbl().empty());
    EXPECT_TRUE(FdbVersionTbl().empty());
}

TEST(Containers, ElementsKeepTheirOrderAndMembersWhileTheContainerGrows)
{
    FaultTbl tbl;
    std::vector<Fault>& rows = tbl;
    for (unsigned int seed = 0; seed < 20; ++seed)
    {
        rows.push_back(makeFault(seed));
    }
    ASSERT_EQ(tbl.size(), 20U);
    for (unsigned int seed = 0; seed < 20; ++seed)
    {
        EXPECT_EQ(members(tbl[seed]), members(makeFault(seed)));
    }
}
