// Random operations by two recorders, the facade and SQL, compared with a simple model of the file's content.

#include "RecorderFixtures.h"
#include "StatisticModel.h"

#include <random>

namespace
{

using namespace firaim;

class FaultRecorderModelTest : public FaultRecorderTest
{
protected:
    static constexpr int kOperations = 4000;
    static constexpr int kStepsBetweenLooks = 10;

    FaultRecorderModelTest()
    {
        open();
        EXPECT_EQ(m_second.open(path), HISTORY_OK);
        EXPECT_EQ(m_facade->openDb(path, false), RESULT_OK);
    }
    ~FaultRecorderModelTest() override { EXPECT_EQ(m_facade->closeDb(), RESULT_OK); }

    unsigned int below(unsigned int end) { return static_cast<unsigned int>(m_random() % end); }

    FaultEvent randomEvent()
    {
        static char const* const texts[] = {"", "a", "b", "it's"};
        FaultEvent event =
            eventOf(10 + below(4), texts[below(3)], texts[1 + below(3)], below(2) == 0 ? FAULT_INACTIVE : FAULT_ACTIVE);
        event.time = 1 + below(1000); // Times in any order, as clocks may be set back.
        return event;
    }

    StatisticModel::Row rowOf(FaultEvent const& event, unsigned long long key, bool isActive) const
    {
        return {key, static_cast<std::uint32_t>(event.code), event.module, event.parameter, isActive};
    }

    StatisticModel::Row const* activeRow(FaultEvent const& event) const
    {
        return m_model.active(static_cast<std::uint32_t>(event.code), event.module, event.parameter);
    }

    void record(FaultRecorder& by)
    {
        FaultEvent const event = randomEvent();
        Receipt const receipt = by.record(event);
        ASSERT_EQ(receipt.result, HISTORY_OK) << by.lastProblem();
        m_model.recorded(rowOf(event, receipt.key, event.status == FAULT_ACTIVE), *event.time);
    }

    /// Raises or clears a random triple.
    void setEdge(FaultRecorder& by, bool isRaised)
    {
        FaultEvent const event = randomEvent();
        StatisticModel::Row const* const active = activeRow(event);
        Receipt const receipt = isRaised ? by.raise(event) : by.clear(event);
        if ((active != nullptr) == isRaised)
        {
            ASSERT_EQ(receipt.result, HISTORY_UNCHANGED);
            ASSERT_EQ(receipt.key, isRaised ? active->key : 0);
            return;
        }
        ASSERT_EQ(receipt.result, HISTORY_OK) << by.lastProblem();
        m_model.recorded(rowOf(event, receipt.key, isRaised), *event.time);
    }

    void clearCode(FaultRecorder& by)
    {
        FaultEvent const event = randomEvent();
        auto const code = static_cast<std::uint32_t>(event.code);
        auto triples = m_model.activeTriples(code);
        if (triples.empty() && m_model.statistics.count(code) != 0 && m_model.statistics[code].isActive)
        {
            triples.emplace(event.module, event.parameter);
        }
        std::vector<unsigned long long> keys;
        int const result = by.clearCode(event, keys);
        ASSERT_EQ(result, triples.empty() ? HISTORY_UNCHANGED : HISTORY_OK) << by.lastProblem();
        ASSERT_EQ(keys.size(), triples.size());
        for (unsigned long long const key : keys)
        {
            auto const source =
                rows("SELECT ModuleName, Parameter FROM FdbFaultTbl WHERE EntryId = " + std::to_string(key))[0];
            ASSERT_EQ(triples.erase({source[0].value(), source[1].value()}), 1U);
            FaultEvent end = event;
            end.module = source[0].value();
            end.parameter = source[1].value();
            m_model.recorded(rowOf(end, key, false), *event.time);
        }
    }

    void recordAll(FaultRecorder& by)
    {
        std::vector<FaultEvent> events;
        for (unsigned int i = below(8); i > 0; --i)
        {
            events.push_back(randomEvent());
        }
        std::vector<Receipt> receipts;
        ASSERT_EQ(by.recordAll(events, receipts), HISTORY_OK) << by.lastProblem();
        ASSERT_EQ(receipts.size(), events.size());
        for (std::size_t i = 0; i < events.size(); ++i)
        {
            m_model.recorded(rowOf(events[i], receipts[i].key, events[i].status == FAULT_ACTIVE), *events[i].time);
        }
    }

    /// Inserts a fault through the facade, without updating the statistic.
    void insertForeign()
    {
        FaultEvent const event = randomEvent();
        Fault fault = makeFault(1);
        fault.FaultCode = static_cast<faultCode_t>(event.code);
        fault.ModuleName = event.module == "it's" ? "it''s" : event.module;
        fault.Parameter = event.parameter == "it's" ? "it''s" : event.parameter;
        fault.Status = event.status;
        ASSERT_EQ(m_facade->insert(fault), RESULT_OK);
        m_model.rows.push_back(rowOf(event, fault.EntryId, event.status == FAULT_ACTIVE));
    }

    /// Ends an active triple by rewriting its newest row, or removes that row.
    void changeActiveRow(bool isRemoved)
    {
        StatisticModel::Row const* const active = activeRow(randomEvent());
        if (active == nullptr)
        {
            return;
        }
        auto const row = m_model.rows.begin() + (active - m_model.rows.data());
        std::string const where = " WHERE EntryId = " + std::to_string(row->key);
        if (isRemoved)
        {
            exec("DELETE FROM FdbFaultTbl" + where);
            m_model.rows.erase(row);
        }
        else
        {
            exec("UPDATE FdbFaultTbl SET Status = 'ErrorInactive'" + where);
            row->isActive = false;
        }
    }

    void step()
    {
        FaultRecorder& by = below(2) == 0 ? recorder : m_second;
        switch (below(12))
        {
        case 0:
        case 1:
            return record(by);
        case 2:
        case 3:
        case 4:
            return setEdge(by, true);
        case 5:
        case 6:
            return setEdge(by, false);
        case 7:
            return clearCode(by);
        case 8:
            return recordAll(by);
        case 9:
            return insertForeign();
        case 10:
            return changeActiveRow(below(2) == 0);
        default:
            return endCycle();
        }
    }

    /// Does nothing with two recorders, as each of them sees only its own events of a cycle.
    virtual void endCycle() {}

    void expectFileAsModel() const
    {
        Rows statistics;
        for (auto const& [code, statistic] : m_model.statistics)
        {
            statistics.push_back({std::to_string(code), std::to_string(statistic.occurrences),
                                  std::to_string(statistic.cycles), statistic.isActive ? "active" : "inactive",
                                  std::to_string(statistic.first), std::to_string(statistic.last),
                                  std::to_string(statistic.entry)});
        }
        ASSERT_EQ(rows("SELECT FaultCode, OccurenceCnt, FaultActiveCycleCnt, FaultActive, TimeFirstOccurredUTC, "
                       "TimeLastOccurredUTC, FaultEntryId FROM FdbFaultStatisticTbl ORDER BY FaultCode"),
                  statistics);
        Rows faults;
        for (StatisticModel::Row const& row : m_model.rows)
        {
            faults.push_back({std::to_string(row.key), std::to_string(row.code), row.module, row.parameter,
                              row.isActive ? "ErrorActive" : "ErrorInactive"});
        }
        ASSERT_TRUE(
            rows("SELECT EntryId, FaultCode, ModuleName, Parameter, Status FROM FdbFaultTbl ORDER BY EntryId") ==
            faults);
    }

    void run()
    {
        for (int operation = 0; operation < kOperations && !HasFatalFailure(); ++operation)
        {
            SCOPED_TRACE(operation);
            step();
            if (operation % kStepsBetweenLooks == 0 && !HasFatalFailure())
            {
                expectFileAsModel();
            }
            if (m_model.rows.size() > 400)
            {
                removeOldRows();
            }
        }
        expectFileAsModel();
    }

    /// Removes old rows that are not the newest of their triple, in file and model: they affect no result, but the
    /// model scans all rows at each step.
    void removeOldRows()
    {
        std::vector<StatisticModel::Row> kept;
        std::set<std::tuple<std::uint32_t, std::string, std::string>> seen;
        for (auto row = m_model.rows.rbegin(); row != m_model.rows.rend(); ++row)
        {
            bool const isNewest = seen.emplace(row->code, row->module, row->parameter).second;
            if (isNewest || m_model.rows.rend() - row > 300)
            {
                kept.push_back(*row);
            }
            else
            {
                exec("DELETE FROM FdbFaultTbl WHERE EntryId = " + std::to_string(row->key));
            }
        }
        m_model.rows.assign(kept.rbegin(), kept.rend());
    }

    std::mt19937 m_random{20260301};
    StatisticModel m_model;
    FaultRecorder m_second;

private:
    Console m_console;
    FaultDb* const m_facade = FaultDb::getInstance();
};

TEST_F(FaultRecorderModelTest, TwoRecordersAndTheFacadeAgreeWithTheModel)
{
    run();
}

/// A single recorder, which also ends cycles.
class FaultRecorderCycleModelTest : public FaultRecorderModelTest
{
protected:
    FaultRecorderCycleModelTest() { EXPECT_EQ(m_second.close(), HISTORY_OK); }

    void endCycle() override
    {
        ASSERT_EQ(recorder.endCycle(), HISTORY_OK);
        m_model.cycleEnded();
    }
};

TEST_F(FaultRecorderCycleModelTest, CyclesAgreeWithTheModel)
{
    for (int operation = 0; operation < kOperations && !HasFatalFailure(); ++operation)
    {
        SCOPED_TRACE(operation);
        switch (below(8))
        {
        case 0:
            endCycle();
            break;
        case 1:
            clearCode(recorder);
            break;
        case 2:
            setEdge(recorder, true);
            break;
        case 3:
            recordAll(recorder);
            break;
        case 4:
            record(recorder);
            break;
        default:
            setEdge(recorder, false);
        }
        if (operation % kStepsBetweenLooks == 0 && !HasFatalFailure())
        {
            expectFileAsModel();
        }
        if (m_model.rows.size() > 400)
        {
            removeOldRows();
        }
    }
    expectFileAsModel();
}

} // namespace
