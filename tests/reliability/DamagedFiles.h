#pragma once

#include "Fixtures.h"

#include <string>

/// A filled file, and damaged, foreign or hostile variants of it. Prints the number of files after all tests.
class DamagedFiles : public FaultDbTest
{
protected:
    DamagedFiles()
    {
        createAndOpen();
        for (unsigned int i = 1; i <= kRows; ++i)
        {
            Fault fault = makeFault(i);
            fault.RdbStartupId = i % 2;
            FaultStatistic statistic = makeStatistic(i);
            statistic.RdbStartupId = i % 2;
            EXPECT_EQ(db.insert(fault), 0);
            EXPECT_EQ(db.insert(statistic), 0);
        }
        EXPECT_EQ(db.closeDb(), 0);
        std::remove((path + "-journal").c_str());
        healthy = readFile(path);
    }

    /// Opens the file, and calls all operations on it if that succeeds. Returns the result of opening.
    int openAndUse(std::string const& file);
    /// The same for a file of these bytes, with nothing beside it.
    int openAndUseBytes(std::string const& bytes);
    /// The same for the healthy file after another program ran `sql` on it.
    int openAndUseChanged(std::string const& sql);
    /// Expects every operation to succeed on the file and to return the correct result.
    void expectFullService(std::string const& file);

    static constexpr unsigned int kRows = 20;
    std::string healthy; ///< the bytes of a filled file

private:
    static void useReads(FaultDb& other);
    static void useWrites(FaultDb& other);
};

/// Removes the file, its journal and its log.
void removeWithSidecars(std::string const& file);

/// Expects success or the code for a failure.
void expectCode(int result);
void expectCountOrCode(int result);
