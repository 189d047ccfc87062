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
/// a larger key is read as 0 after a report.
class FIRAIM_EXPORT FdbSqlVersionTbl : public SqlTbl<FdbVersion>
{
public:
    /// Id of the column that the facade selects by.
    static constexpr unsigned short kComponentColumn = 1;

    using SqlTbl<FdbVersion>::SqlTbl;
    ~FdbSqlVersionTbl() override;

    void init(std::string const& arg) override;
};
