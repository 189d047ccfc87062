#pragma once

#include "Fixtures.h"

#include <sqlite3.h>

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

/// A callback object that records its arguments and runs an action of the test.
class RowCollector : public Sqlite3DbCallback
{
public:
    int dataBaseQueryCb(sqlite3DbCbCgf_t* cfg, int argc, char** argv, char** colNames) override
    {
        lastCfg = *cfg;
        RawDb::Row row;
        names.clear();
        for (int i = 0; i < argc; ++i)
        {
            row.push_back(argv[i] != nullptr ? std::optional<std::string>(argv[i]) : std::nullopt);
            names.emplace_back(colNames[i]);
        }
        rows.push_back(row);
        if (throws)
        {
            throw std::runtime_error("from the callback");
        }
        return result;
    }

    sqlite3DbCbCgf_t lastCfg{};
    std::vector<RawDb::Row> rows;
    std::vector<std::string> names;
    bool throws = false;
    int result = 0;
};

/// A connection to a file with one table.
class OpenedDb : public Sqlite3DbTest
{
protected:
    OpenedDb() : handle(sqlite->openDb(path))
    {
        EXPECT_EQ(sqlite->execute(handle, "CREATE TABLE t(a,b)"), 0);
        console.take();
    }

    sqlite3* connection() const { return sqlite->m_dbHandles.at(handle).db; }

    std::string pragma(std::string const& name) const
    {
        sqlite3_stmt* statement = nullptr;
        sqlite3_prepare_v2(connection(), ("PRAGMA " + name).c_str(), -1, &statement, nullptr);
        EXPECT_EQ(sqlite3_step(statement), SQLITE_ROW);
        std::string value = reinterpret_cast<char const*>(sqlite3_column_text(statement, 0));
        sqlite3_finalize(statement);
        return value;
    }

    int dbConfig(int option) const
    {
        int value = -1;
        sqlite3_db_config(connection(), option, -1, &value);
        return value;
    }

    std::string const path = dir.file("a.db");
    short const handle;
    RowCollector rows;
    int kind = 7;
};
