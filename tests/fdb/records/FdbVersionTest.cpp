#include <fdb/records/FdbVersion.h>

#include "TestSupport.h"

#include <cstring>
#include <new>
#include <type_traits>
#include <utility>

namespace
{

FdbVersion makeVersion()
{
    FdbVersion version;
    version.VersionEntryId = 65535;
    version.Component = "a component of some length";
    version.Version = "a version of some length";
    return version;
}

template <class T, class = void>
struct HasTextForm : std::false_type
{
};

template <class T>
struct HasTextForm<T, std::void_t<decltype(std::declval<std::ostream&>() << std::declval<T const&>())>> : std::true_type
{
};

} // namespace

static_assert(std::is_same_v<decltype(FdbVersion::VersionEntryId), unsigned short>);
static_assert(!std::is_polymorphic_v<FdbVersion>);
static_assert(!std::has_virtual_destructor_v<FdbVersion>);
static_assert(!std::is_nothrow_move_constructible_v<FdbVersion>, "a copy of the texts may throw, a move would not");
static_assert(!std::is_nothrow_move_assignable_v<FdbVersion>);
static_assert(!HasTextForm<FdbVersion>::value);

TEST(FdbVersionRecord, IsZeroAndEmptyByDefault)
{
    constexpr unsigned short kZero = 0;
    // Construct in dirty memory, to detect a member without a default.
    alignas(FdbVersion) unsigned char memory[sizeof(FdbVersion)];
    std::memset(memory, 0xA5, sizeof memory);
    auto* const version = new (memory) FdbVersion;
    EXPECT_EQ(members(*version), std::make_tuple(kZero, std::string(), std::string()));
    version->~FdbVersion();
}

TEST(FdbVersionRecord, BeginsWithItsKey)
{
    FdbVersion const version;
    EXPECT_EQ(static_cast<void const*>(&version.VersionEntryId), &version);
}

TEST(FdbVersionRecord, ComponentLiesBeforeVersion)
{
    FdbVersion const version;
    EXPECT_LT(static_cast<void const*>(&version.Component), static_cast<void const*>(&version.Version));
}

TEST(FdbVersionRecord, CopyEqualsItsSourceInAllMembers)
{
    FdbVersion const source = makeVersion();
    FdbVersion const copy(source);
    EXPECT_EQ(members(copy), members(source));
}

TEST(FdbVersionRecord, AssignmentReplacesAllMembers)
{
    FdbVersion target;
    target = makeVersion();
    EXPECT_EQ(members(target), members(makeVersion()));
}

TEST(FdbVersionRecord, ChangingTheTextsOfACopyLeavesItsSource)
{
    FdbVersion const source = makeVersion();
    FdbVersion copy(source);
    copy.Component.front() = '#';
    copy.Version.front() = '#';
    EXPECT_EQ(members(source), members(makeVersion()));
}

TEST(FdbVersionRecord, ConstructionFromATemporaryLeavesTheSourceIntact)
{
    FdbVersion source = makeVersion();
    FdbVersion const target(std::move(source));
    EXPECT_EQ(members(source), members(makeVersion()));
}

TEST(FdbVersionRecord, AssignmentFromATemporaryLeavesTheSourceIntact)
{
    FdbVersion source = makeVersion();
    FdbVersion target;
    target = std::move(source);
    EXPECT_EQ(members(source), members(makeVersion()));
}
