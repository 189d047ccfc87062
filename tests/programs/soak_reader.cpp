// Reads a fault database in turn from both ends, with its counts, statistics and active faults, until it is killed.
// Prints a line for each reading: `read BEGIN END ROWS`, `failed BEGIN END RESULT` with the problem, or `wrong` and the
// row when a row is not as a process has recorded it.
//
//   soak_reader FILE SEED

#include "soak/StoredRow.h"

#include <history/FaultReader.h>

#include <chrono>
#include <string>
#include <thread>

#include <unistd.h>

namespace
{

using namespace firaim;

constexpr std::chrono::milliseconds kPause(50);

long long now()
{
    return std::chrono::nanoseconds(std::chrono::steady_clock::now().time_since_epoch()).count();
}

void print(std::string const& line)
{
    std::string const whole = line + '\n';
    if (write(STDOUT_FILENO, whole.data(), whole.size()) != static_cast<ssize_t>(whole.size()))
    {
        _exit(1);
    }
}

soak::StoredRow rowOf(Fault const& fault)
{
    soak::StoredRow row;
    row.key = fault.EntryId;
    row.code = fault.FaultCode;
    row.module = fault.ModuleName;
    row.parameter = fault.Parameter;
    row.isActive = fault.Status == FAULT_ACTIVE;
    row.description = fault.Description;
    row.signalsFile = fault.DiagSignalsDumpFileName;
    row.configBackup = fault.CfgBackupFile;
    row.lifeTime = fault.LoggerLifeTime;
    row.startup = fault.RdbStartupId;
    row.timeZone = fault.TimeZone;
    return row;
}

class Reading
{
public:
    Reading(std::string path, std::uint64_t seed) : m_path(std::move(path)), m_seed(seed) {}

    /// Reads everything once; returns the first result that is not HISTORY_OK.
    int readAll(FaultQuery::Order order)
    {
        FaultReader reader;
        int result = reader.open(m_path);
        if (result == HISTORY_OK)
        {
            result = readRows(reader, order);
        }
        if (result == HISTORY_OK)
        {
            result = readRest(reader);
        }
        m_problem = reader.lastProblem();
        return result;
    }

    std::size_t rows() const { return m_rows; }
    std::string const& problem() const { return m_problem; }

private:
    int readRows(FaultReader& reader, FaultQuery::Order order)
    {
        FaultQuery query;
        query.order = order;
        FaultCursor cursor = reader.faults(query);
        Fault fault;
        unsigned long long last = 0;
        m_rows = 0;
        int result = HISTORY_OK;
        while ((result = cursor.next(fault)) == HISTORY_OK)
        {
            expectSound(fault);
            bool const isInOrder = order == FaultQuery::OLDEST_FIRST ? fault.EntryId > last : fault.EntryId < last;
            if (m_rows++ > 0 && !isInOrder)
            {
                print("wrong the order of the keys: " + std::to_string(fault.EntryId) + " after " +
                      std::to_string(last));
            }
            last = fault.EntryId;
        }
        return result == HISTORY_END ? static_cast<int>(HISTORY_OK) : result;
    }

    int readRest(FaultReader& reader)
    {
        Counts counts;
        std::vector<Fault> active;
        std::vector<FaultStatistic> statistics;
        int result = reader.counts(counts);
        result = result == HISTORY_OK ? reader.statistics(statistics) : result;
        result = result == HISTORY_OK ? reader.activeNow(active) : result;
        for (Fault const& fault : active)
        {
            expectSound(fault);
            if (fault.Status != FAULT_ACTIVE)
            {
                print("wrong active fault: " + textOf(rowOf(fault)));
            }
        }
        return result;
    }

    void expectSound(Fault const& fault) const
    {
        soak::StoredRow const row = rowOf(fault);
        std::string const defect = defectOf(m_seed, row);
        if (!defect.empty())
        {
            print("wrong " + textOf(row) + ' ' + defect);
        }
    }

    std::string const m_path;
    std::uint64_t const m_seed;
    std::size_t m_rows = 0;
    std::string m_problem;
};

} // namespace

int main(int argc, char** argv)
{
    if (argc != 3)
    {
        return 2;
    }
    Reading reading(argv[1], std::stoull(argv[2]));
    for (unsigned int number = 0;; ++number)
    {
        long long const begin = now();
        int const result = reading.readAll(number % 2 == 0 ? FaultQuery::OLDEST_FIRST : FaultQuery::NEWEST_FIRST);
        std::string const times = std::to_string(begin) + ' ' + std::to_string(now()) + ' ';
        print(result == HISTORY_OK ? "read " + times + std::to_string(reading.rows())
                                   : "failed " + times + std::to_string(result) + '\t' + reading.problem());
        std::this_thread::sleep_for(kPause);
    }
}
