#pragma once

#include <db/Export.h>
#include <db/Sqlite3Db.h>
#include <fdb/records/FaultStatistic.h>
#include <fdb/tables/SqlTbl.h>

extern template class SqlTbl<FaultStatistic>;
extern template int Sqlite3Db::createTbl<FaultStatistic>(short handle, SqlTbl<FaultStatistic> const& tbl);
extern template int Sqlite3Db::getTbl<FaultStatistic, FaultStatistic>(short handle, std::string query,
                                                                      std::vector<FaultStatistic>& out,
                                                                      SqlTbl<FaultStatistic>* tbl);

/// The statistic table: one row for each fault code. The column ids are the file format; their order differs from that
/// of FaultStatistic's members.
class FIRAIM_EXPORT FdbSqlFaultStatisticTbl : public SqlTbl<FaultStatistic>
{
public:
    /// Ids of the columns used in WHERE clauses.
    FIRAIM_HIDDEN static constexpr unsigned short kFaultCodeColumn = 1;
    FIRAIM_HIDDEN static constexpr unsigned short kFaultActiveColumn = 8;   ///< see kFaultCodeColumn
    FIRAIM_HIDDEN static constexpr unsigned short kRdbStartupIdColumn = 11; ///< see kFaultCodeColumn

    /// The table's name in the file.
    FIRAIM_HIDDEN static constexpr char kTableName[] = "FdbFaultStatisticTbl";

    /// The text of an active fault in the file; FaultDb selects by it.
    FIRAIM_HIDDEN static constexpr char kActiveText[] = "active";

    using SqlTbl<FaultStatistic>::SqlTbl;
    ~FdbSqlFaultStatisticTbl() override;

    void init(std::string const& arg) override;

    /// "inactive" for FAULT_INACTIVE, "active" for FAULT_ACTIVE, an empty text for any other number (deliberately not
    /// as in the fault table); "null" for a type that is not custom.
    std::string convertValueToStr(columnValueType_t type, void* value) const override;

    /// Exactly "active" gives FAULT_ACTIVE, any other text FAULT_INACTIVE. A type that is not custom changes nothing.
    void convertValueFromStr(columnValueType_t type, std::string const& text, void* value) const override;
};
