#include "ReadingWorkloads.h"

#include "WorkloadSupport.h"

#include <array>
#include <optional>

#include <malloc.h>

namespace
{

class ReadFaults : public OneFileWorkload
{
public:
    using OneFileWorkload::OneFileWorkload;

    void runLibrary() override { require(db.getFaultTbl(m_faults.emplace()) > 0, "getFaultTbl"); }
    void runBaseline() override { connection.getTable("SELECT * FROM \"FdbFaultTbl\""); }
    void clean() override
    {
        m_faults.reset();
        malloc_trim(0); // Every call starts with a trimmed heap, as the first call of a process does.
    }

private:
    std::optional<FaultTbl> m_faults;
};

class ReadFaultById : public OneFileWorkload
{
public:
    ReadFaultById(std::string const& path, unsigned int rows) : OneFileWorkload(path), m_rows(rows)
    {
        for (unsigned int i = 0; i < kRecords; ++i)
        {
            m_statements[i] = "SELECT * FROM \"FdbFaultTbl\" WHERE EntryId=" + std::to_string(id(i));
        }
    }

    void runLibrary() override { require(db.getFaultById(m_fault, id(m_rotation.next())) == 0, "getFaultById"); }
    void runBaseline() override { connection.getTable(m_statements[m_rotation.next()]); }

private:
    unsigned long long id(unsigned int turn) const { return 1 + 7919ULL * turn % m_rows; }

    unsigned int m_rows;
    std::array<std::string, kRecords> m_statements;
    Fault m_fault;
    Rotation m_rotation;
};

class ReadStatisticByCode : public OneFileWorkload
{
public:
    explicit ReadStatisticByCode(std::string const& path) : OneFileWorkload(path)
    {
        for (unsigned int i = 0; i < kRecords; ++i)
        {
            m_statements[i] = "SELECT * FROM \"FdbFaultStatisticTbl\" WHERE FaultCode=" + std::to_string(i + 1);
        }
    }

    void runLibrary() override
    {
        require(db.getFaultStatisticForFC(m_statistic, m_rotation.next() + 1) == 0, "getFaultStatisticForFC");
    }
    void runBaseline() override { connection.getTable(m_statements[m_rotation.next()]); }

private:
    std::array<std::string, kRecords> m_statements;
    FaultStatistic m_statistic;
    Rotation m_rotation;
};

class CountStatistics : public OneFileWorkload
{
public:
    using OneFileWorkload::OneFileWorkload;

    void runLibrary() override { require(db.getFaultStatisticTblErrorNr(m_count) == 0, "getFaultStatisticTblErrorNr"); }
    void runBaseline() override { connection.exec("SELECT COUNT(*) FROM FdbFaultStatisticTbl"); }

private:
    unsigned short m_count = 0;
};

class CountActiveStatistics : public OneFileWorkload
{
public:
    using OneFileWorkload::OneFileWorkload;

    void runLibrary() override
    {
        require(db.getFaultStatisticTblErrorActiveNr(m_count) == 0, "getFaultStatisticTblErrorActiveNr");
    }
    void runBaseline() override
    {
        connection.exec("SELECT COUNT() FROM FdbFaultStatisticTbl WHERE FaultActive LIKE 'active'");
    }

private:
    unsigned short m_count = 0;
};

} // namespace

std::unique_ptr<Workload> readFaults(std::string const& path)
{
    return std::make_unique<ReadFaults>(path);
}

std::unique_ptr<Workload> readFaultById(std::string const& path, unsigned int rows)
{
    return std::make_unique<ReadFaultById>(path, rows);
}

std::unique_ptr<Workload> readStatisticByCode(std::string const& path)
{
    return std::make_unique<ReadStatisticByCode>(path);
}

std::unique_ptr<Workload> countStatistics(std::string const& path)
{
    return std::make_unique<CountStatistics>(path);
}

std::unique_ptr<Workload> countActiveStatistics(std::string const& path)
{
    return std::make_unique<CountActiveStatistics>(path);
}
