#pragma once

#include <db/Export.h>
#include <db/Sqlite3Db.h>
#include <fdb/records/FdbVersion.h>
#include <fdb/tables/SqlTbl.h>

extern template class SqlTbl<FdbVersion>;
extern template int Sqlite3Db::createTbl<FdbVersion>(short handle, SqlTbl<FdbVersion> const& tbl);
extern template int Sqlite3Db::getTbl<FdbVersion, FdbVersion>(short handle, std::string query,
                                                              std::vector<FdbVersion>& out, SqlTbl<FdbVersion>* tbl);

/// The version table: one row for each versioned component. Its key is 16 bits wide, unlike those of the other tables;
/// a larger key is reported and read as 0.
class FIRAIM_EXPORT FdbSqlVersionTbl : public SqlTbl<FdbVersion>
{
public:
    /// Ids of the columns used in WHERE clauses.
    FIRAIM_HIDDEN static constexpr unsigned short kComponentColumn = 1;
    FIRAIM_HIDDEN static constexpr unsigned short kVersionColumn = 2; ///< see kComponentColumn

    /// The table's name in the file.
    FIRAIM_HIDDEN static constexpr char kTableName[] = "FdbVersionTbl";

    /// The component whose row holds the format of the file, and its one version that is written and accepted.
    FIRAIM_HIDDEN static constexpr char kFormatVersionComponent[] = "FormatVersion";
    FIRAIM_HIDDEN static constexpr char kFormatVersion[] = "1.0.0"; ///< see kFormatVersionComponent

    using SqlTbl<FdbVersion>::SqlTbl;
    ~FdbSqlVersionTbl() override;

    void init(std::string const& arg) override;
};
