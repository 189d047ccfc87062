#pragma once

#include <fdb/FaultDb.h>

#include <random>
#include <string>

/// A writing operation and its arguments.
struct Operation
{
    enum Kind
    {
        INSERT_FAULT,
        UPDATE_FAULT,
        INSERT_STATISTIC,
        UPDATE_STATISTIC,
        MOVE
    };

    Kind kind = INSERT_FAULT;
    Fault fault;
    FaultStatistic statistic;
    unsigned int newId = 0;
    unsigned int oldId = 0;
};

/// An endless sequence of writing operations. The seed determines it, so two processes can generate the same sequence.
class OperationScript
{
public:
    /// `faultCount`: number of faults in the file at the start, with the keys 1, 2 and so on.
    OperationScript(unsigned int seed, unsigned long long faultCount) : m_random(seed), m_faultCount(faultCount) {}

    Operation next();

private:
    unsigned int below(unsigned int limit) { return static_cast<unsigned int>(m_random()) % limit; }
    std::string text();
    Fault fault();
    FaultStatistic statistic();

    std::mt19937 m_random;
    unsigned long long m_faultCount;
};

/// Runs the operation and returns its code. Sets the key of an inserted fault.
inline int perform(FaultDb& db, Operation& operation)
{
    switch (operation.kind)
    {
    case Operation::INSERT_FAULT:
        return db.insert(operation.fault);
    case Operation::UPDATE_FAULT:
        return db.update(operation.fault);
    case Operation::INSERT_STATISTIC:
        return db.insert(operation.statistic);
    case Operation::UPDATE_STATISTIC:
        return db.update(operation.statistic);
    case Operation::MOVE:
        break;
    }
    return db.updateRdbStartup(operation.newId, operation.oldId);
}
