#pragma once

#include <fdb/FaultDb.h>

#include <random>
#include <string>

/// One writing operation with all that it needs.
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

/// An endless sequence of writing operations that follows from a seed, so that two processes can agree on it.
class OperationScript
{
public:
    /// `faultCount`: how many faults there are to begin with; they have the keys from 1 on.
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

/// Runs the operation and returns its code; the key of an inserted fault is left in it.
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
