#pragma once

#include <db/Export.h>
#include <db/Sqlite3Db.h>
#include <fdb/records/Fault.h>
#include <fdb/tables/SqlTbl.h>

extern template class SqlTbl<Fault>;
extern template int Sqlite3Db::createTbl<Fault>(short handle, SqlTbl<Fault> const& tbl);
extern template int Sqlite3Db::getTbl<Fault, Fault>(short handle, std::string query, std::vector<Fault>& out,
                                                    SqlTbl<Fault>* tbl);

/// The fault table: one row for each recorded fault. The column ids are the file format; their order differs from that
/// of Fault's members.
class FIRAIM_EXPORT FdbSqlFaultTbl : public SqlTbl<Fault>
{
public:
    /// Ids of the columns that code uses by name.
    FIRAIM_HIDDEN static constexpr unsigned short kEntryIdColumn = 0;
    FIRAIM_HIDDEN static constexpr unsigned short kFaultCodeColumn = 2;       ///< see kEntryIdColumn
    FIRAIM_HIDDEN static constexpr unsigned short kFaultCodeNameColumn = 3;   ///< see kEntryIdColumn
    FIRAIM_HIDDEN static constexpr unsigned short kModuleNameColumn = 4;      ///< see kEntryIdColumn
    FIRAIM_HIDDEN static constexpr unsigned short kParameterColumn = 5;       ///< see kEntryIdColumn
    FIRAIM_HIDDEN static constexpr unsigned short kTimeStampUtcColumn = 6;    ///< see kEntryIdColumn
    FIRAIM_HIDDEN static constexpr unsigned short kStatusColumn = 8;          ///< see kEntryIdColumn
    FIRAIM_HIDDEN static constexpr unsigned short kRdbStartupIdColumn = 14;   ///< see kEntryIdColumn
    FIRAIM_HIDDEN static constexpr unsigned short kSystemDateTimeColumn = 15; ///< see kEntryIdColumn

    /// The table's name in the file.
    FIRAIM_HIDDEN static constexpr char kTableName[] = "FdbFaultTbl";

    using SqlTbl<Fault>::SqlTbl;
    ~FdbSqlFaultTbl() override;

    void init(std::string const& arg) override;

    /// "ErrorActive" for FAULT_ACTIVE, "ErrorInactive" for any other number; "null" for a type that is not custom.
    std::string convertValueToStr(columnValueType_t type, void* value) const override;

    /// Exactly "ErrorActive" gives FAULT_ACTIVE, any other text FAULT_INACTIVE. A type that is not custom changes
    /// nothing.
    void convertValueFromStr(columnValueType_t type, std::string const& text, void* value) const override;
};
