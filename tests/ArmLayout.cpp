// The layout of the public classes on ARMv7 with hardware floating point: widths, sizes and offsets of members.
// Programs and the library are built separately and must agree on the layout, so a change here changes the binary
// interface even if programs still compile.

#if defined(__arm__) && defined(__ARM_EABI__)

#include <db/Sqlite3Db.h>
#include <fdb/FaultDb.h>

#include <cstddef>
#include <string>
#include <type_traits>

#include <sys/types.h>
#include <time.h>

// offsetof on classes with virtual functions: GCC supports it, but warns that other compilers may not.
#pragma GCC diagnostic ignored "-Winvalid-offsetof"

namespace
{

// type, size, alignment
#define FIRAIM_SIZE(type, size, alignment)                                                                             \
    static_assert(sizeof(type) == (size));                                                                             \
    static_assert(alignof(type) == (alignment))

// type, member, offset, size
#define FIRAIM_MEMBER(type, member, offset, size)                                                                      \
    static_assert(offsetof(type, member) == (offset));                                                                 \
    static_assert(sizeof(type::member) == (size))

using column_t = SqlTbl<Fault>::column_t;

// Files beyond 2 GiB; times beyond 2038 if the C library supports them.
static_assert(sizeof(off_t) == 8);
#if __GLIBC__ == 2 && __GLIBC_MINOR__ >= 34
static_assert(sizeof(time_t) == 8);
#endif

FIRAIM_SIZE(FaultTbl, 16, 4);
FIRAIM_SIZE(FaultStatisticTbl, 12, 4);
FIRAIM_SIZE(FdbVersionTbl, 16, 4);
FIRAIM_SIZE(faultCode_t, 4, 4);
FIRAIM_SIZE(faultStatus_t, 4, 4);
FIRAIM_SIZE(std::string, 24, 4);
static_assert(std::is_unsigned_v<std::underlying_type_t<faultCode_t>>);
static_assert(std::is_unsigned_v<std::underlying_type_t<faultStatus_t>>);

FIRAIM_SIZE(Fault, 264, 8);
FIRAIM_MEMBER(Fault, EntryId, 8, 8);
FIRAIM_MEMBER(Fault, DateTimeString, 16, 24);
FIRAIM_MEMBER(Fault, FaultCode, 40, 4);
FIRAIM_MEMBER(Fault, FaultCodeName, 44, 24);
FIRAIM_MEMBER(Fault, Parameter, 68, 24);
FIRAIM_MEMBER(Fault, TimeStampUTC, 96, 8);
FIRAIM_MEMBER(Fault, Status, 104, 4);
FIRAIM_MEMBER(Fault, Description, 108, 24);
FIRAIM_MEMBER(Fault, DiagSignalsDumpFileName, 132, 24);
FIRAIM_MEMBER(Fault, ModuleName, 156, 24);
FIRAIM_MEMBER(Fault, TimeZone, 180, 24);
FIRAIM_MEMBER(Fault, LoggerUpTime, 204, 4);
FIRAIM_MEMBER(Fault, LoggerLifeTime, 208, 4);
FIRAIM_MEMBER(Fault, CfgBackupFile, 212, 24);
FIRAIM_MEMBER(Fault, RdbStartupId, 236, 4);
FIRAIM_MEMBER(Fault, SystemDateTimeString, 240, 24);

FIRAIM_SIZE(FaultStatistic, 136, 8);
FIRAIM_MEMBER(FaultStatistic, EntryId, 8, 8);
FIRAIM_MEMBER(FaultStatistic, FaultCode, 16, 4);
FIRAIM_MEMBER(FaultStatistic, FaultCodeName, 20, 24);
FIRAIM_MEMBER(FaultStatistic, OccurenceCnt, 44, 2);
FIRAIM_MEMBER(FaultStatistic, TimeFirstOccurredUTC, 48, 8);
FIRAIM_MEMBER(FaultStatistic, TimeLastOccurredUTC, 56, 8);
FIRAIM_MEMBER(FaultStatistic, FaultActive, 64, 4);
FIRAIM_MEMBER(FaultStatistic, TimeZoneFirstOccurred, 68, 24);
FIRAIM_MEMBER(FaultStatistic, TimeZoneLastOccurred, 92, 24);
FIRAIM_MEMBER(FaultStatistic, FaultActiveCycleCnt, 116, 2);
FIRAIM_MEMBER(FaultStatistic, FaultEntryId, 120, 8);
FIRAIM_MEMBER(FaultStatistic, RdbStartupId, 128, 4);

FIRAIM_SIZE(FdbVersion, 52, 4);
FIRAIM_MEMBER(FdbVersion, VersionEntryId, 0, 2);
FIRAIM_MEMBER(FdbVersion, Component, 4, 24);
FIRAIM_MEMBER(FdbVersion, Version, 28, 24);

// The same for every record type.
FIRAIM_SIZE(column_t, 60, 4);
FIRAIM_MEMBER(column_t, name, 0, 24);
FIRAIM_MEMBER(column_t, id, 24, 2);
FIRAIM_MEMBER(column_t, valid, 26, 1);
FIRAIM_MEMBER(column_t, type, 28, 4);
FIRAIM_MEMBER(column_t, value, 32, 4);
FIRAIM_MEMBER(column_t, sqlType, 36, 24);
static_assert(sizeof(SqlTbl<FaultStatistic>::column_t) == sizeof(column_t));
static_assert(sizeof(SqlTbl<FdbVersion>::column_t) == sizeof(column_t));

FIRAIM_SIZE(SqlTbl<Fault>, 392, 8);
FIRAIM_MEMBER(SqlTbl<Fault>, m_record, 8, 264);
FIRAIM_MEMBER(SqlTbl<Fault>, m_tblName, 272, 24);
FIRAIM_MEMBER(SqlTbl<Fault>, m_columns, 296, 24);
FIRAIM_MEMBER(SqlTbl<Fault>, m_sqlVarchar, 320, 24);
FIRAIM_MEMBER(SqlTbl<Fault>, m_sqlInteger, 344, 24);
FIRAIM_MEMBER(SqlTbl<Fault>, m_sqlPrimaryKey, 368, 24);

FIRAIM_SIZE(SqlTbl<FaultStatistic>, 264, 8);
FIRAIM_MEMBER(SqlTbl<FaultStatistic>, m_record, 8, 136);
FIRAIM_MEMBER(SqlTbl<FaultStatistic>, m_tblName, 144, 24);
FIRAIM_MEMBER(SqlTbl<FaultStatistic>, m_columns, 168, 24);
FIRAIM_MEMBER(SqlTbl<FaultStatistic>, m_sqlVarchar, 192, 24);
FIRAIM_MEMBER(SqlTbl<FaultStatistic>, m_sqlInteger, 216, 24);
FIRAIM_MEMBER(SqlTbl<FaultStatistic>, m_sqlPrimaryKey, 240, 24);

FIRAIM_SIZE(SqlTbl<FdbVersion>, 176, 4);
FIRAIM_MEMBER(SqlTbl<FdbVersion>, m_record, 4, 52);
FIRAIM_MEMBER(SqlTbl<FdbVersion>, m_tblName, 56, 24);
FIRAIM_MEMBER(SqlTbl<FdbVersion>, m_columns, 80, 24);
FIRAIM_MEMBER(SqlTbl<FdbVersion>, m_sqlVarchar, 104, 24);
FIRAIM_MEMBER(SqlTbl<FdbVersion>, m_sqlInteger, 128, 24);
FIRAIM_MEMBER(SqlTbl<FdbVersion>, m_sqlPrimaryKey, 152, 24);

FIRAIM_SIZE(Sqlite3Db::DbHandle, 40, 4);
FIRAIM_MEMBER(Sqlite3Db::DbHandle, dbId, 0, 4);
FIRAIM_MEMBER(Sqlite3Db::DbHandle, dbPath, 4, 24);
FIRAIM_MEMBER(Sqlite3Db::DbHandle, db, 28, 4);
FIRAIM_MEMBER(Sqlite3Db::DbHandle, state, 32, 4);
FIRAIM_MEMBER(Sqlite3Db::DbHandle, reserved, 36, 4);

FIRAIM_SIZE(Sqlite3DbCallback::sqlite3DbCbCgf_t, 8, 4);
FIRAIM_MEMBER(Sqlite3DbCallback::sqlite3DbCbCgf_t, callbackObj, 0, 4);
FIRAIM_MEMBER(Sqlite3DbCallback::sqlite3DbCbCgf_t, sqlCmdQueryCb, 4, 4);

FIRAIM_SIZE(Sqlite3Db, 32, 4);
FIRAIM_MEMBER(Sqlite3Db, m_nextHandle, 0, 2);
FIRAIM_MEMBER(Sqlite3Db, m_lastClosedHandle, 2, 2);
FIRAIM_MEMBER(Sqlite3Db, m_debug, 4, 4);
FIRAIM_MEMBER(Sqlite3Db, m_dbHandles, 8, 24);

FIRAIM_SIZE(FaultDb, 856, 8);
FIRAIM_MEMBER(FaultDb, m_dbgLevel, 4, 4);
FIRAIM_MEMBER(FaultDb, m_ErrorActiveNr, 8, 2);
FIRAIM_MEMBER(FaultDb, m_ErrorNr, 10, 2);
FIRAIM_MEMBER(FaultDb, m_isOpen, 12, 1);
FIRAIM_MEMBER(FaultDb, m_compatibleMode, 13, 1);
FIRAIM_MEMBER(FaultDb, m_versionTbl, 16, 176);
FIRAIM_MEMBER(FaultDb, m_faultTbl, 192, 392);
FIRAIM_MEMBER(FaultDb, m_faultStatisticTbl, 584, 264);
FIRAIM_MEMBER(FaultDb, m_dbHandle, 848, 2);

} // namespace

#endif
