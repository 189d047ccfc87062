#include "MappingWorkloads.h"

#include "WorkloadSupport.h"

#include <fdb/tables/FdbSqlFaultTbl.h>

#include <array>
#include <vector>

namespace
{

/// Generates the text of a statement. It has no baseline.
class WriteStatement : public Workload
{
public:
    using Generator = std::string (SqlTbl<Fault>::*)(Fault const&);

    explicit WriteStatement(Generator generator) : m_generator(generator)
    {
        for (unsigned int i = 0; i < kRecords; ++i)
        {
            m_faults[i] = deviceFault(i);
        }
    }

    void runLibrary() override
    {
        m_length += (static_cast<SqlTbl<Fault>&>(*m_tbl).*m_generator)(m_faults[m_rotation.next()]).size();
    }
    void runBaseline() override {}

private:
    Generator m_generator;
    std::unique_ptr<FdbSqlFaultTbl> m_tbl = makeTbl<FdbSqlFaultTbl>(kFaultTbl);
    std::array<Fault, kRecords> m_faults;
    Rotation m_rotation;
    std::size_t volatile m_length = 0;
};

/// The library decodes a row into the working record; the baseline copies each cell into a string.
class DecodeFault : public Workload
{
public:
    explicit DecodeFault(std::string const& path)
    {
        BareConnection const connection(path, BareConnection::SQLITE_DEFAULTS);
        std::string const sql = "SELECT * FROM FdbFaultTbl LIMIT " + std::to_string(kRecords);
        require(sqlite3_get_table(connection.get(), sql.c_str(), &m_cells, &m_rows, &m_columns, nullptr) == SQLITE_OK,
                "sqlite3_get_table");
        m_copies.resize(static_cast<std::size_t>(m_columns));
        for (int i = 0; i < m_rows; ++i)
        {
            runLibrary();
            runBaseline();
        }
    }
    ~DecodeFault() override { sqlite3_free_table(m_cells); }

    void runLibrary() override { require(m_tbl->setDatafromSqlResult(nextRow()) == m_columns, "setDatafromSqlResult"); }

    void runBaseline() override
    {
        char** const row = nextRow();
        for (std::size_t i = 0; i < m_copies.size(); ++i)
        {
            m_copies[i] = row[i];
        }
    }

private:
    char** nextRow()
    {
        m_row = m_row % m_rows + 1;
        return m_cells + m_row * m_columns;
    }

    std::unique_ptr<FdbSqlFaultTbl> m_tbl = makeTbl<FdbSqlFaultTbl>(kFaultTbl);
    std::vector<std::string> m_copies;
    char** m_cells = nullptr;
    int m_rows = 0;
    int m_columns = 0;
    int m_row = 0;
};

} // namespace

std::unique_ptr<Workload> writeInsertText()
{
    return std::make_unique<WriteStatement>(&SqlTbl<Fault>::getSqlInsertValuesQuery);
}

std::unique_ptr<Workload> writeUpdateText()
{
    return std::make_unique<WriteStatement>(&SqlTbl<Fault>::getSqlUpdateValuesQuery);
}

std::unique_ptr<Workload> decodeFault(std::string const& path)
{
    return std::make_unique<DecodeFault>(path);
}
