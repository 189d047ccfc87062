// Compiled with access control, unlike the other tests: this is the interface that an application sees.

#include <fdb/FaultDb.h>

#ifdef SQLITE_VERSION
#error "a public header brings in sqlite3.h"
#endif

#include "TestSupport.h"

#include <gmock/gmock.h>

#include <type_traits>

static_assert(!std::is_convertible_v<FaultDb*, Sqlite3DbCallback*>, "the base is private");
static_assert(!std::is_default_constructible_v<FaultDb>);
static_assert(!std::is_destructible_v<FaultDb>, "only the library destroys the instance");
static_assert(!std::is_copy_constructible_v<FaultDb>);

namespace
{

template <class T, class = void>
constexpr bool kHandleIsAccessible = false;
template <class T>
constexpr bool kHandleIsAccessible<T, std::void_t<decltype(&T::m_dbHandle)>> = true;

} // namespace

static_assert(!kHandleIsAccessible<FaultDb>, "data members are private");

TEST(PublicInterface, OneHeaderIsAllThatAnApplicationNeeds)
{
    TempDir const dir;
    std::string const path = dir.file("faults.db");
    FaultDb* const db = FaultDb::getInstance();
    ASSERT_EQ(db->createDb(path, false), RESULT_OK);
    ASSERT_EQ(db->openDb(path, false), RESULT_OK);
    Fault fault;
    fault.FaultCode = FC_SUPPLY_UNDERVOLTAGE;
    EXPECT_EQ(db->insert(fault), RESULT_OK);
    FaultTbl faults;
    EXPECT_EQ(db->getFaultTbl(faults), 1);
    EXPECT_EQ(faults.front().FaultCode, FC_SUPPLY_UNDERVOLTAGE);
    EXPECT_EQ(db->closeDb(), RESULT_OK);
}

TEST(PublicInterface, RowCallbackMayBeCalledFromOutside)
{
    EXPECT_EQ(FaultDb::getInstance()->dataBaseQueryCb(nullptr, 0, nullptr, nullptr), 0);
}
