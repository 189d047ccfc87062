#pragma once

/// Decides which of the calls that could fail does: the n-th one alone, or it and all that follow.
///
/// It counts between `resume` and `pause` only: what a test itself reads, compares and allocates in between is no part
/// of the count. Threads: one at a time.
class FaultPlan
{
public:
    enum Persistence
    {
        ONCE,
        UNTIL_CLEARED
    };

    /// From the next counted call on, the `n`-th fails; `n` counts from 1.
    void arm(unsigned int n, Persistence persistence)
    {
        m_left = n;
        m_persistence = persistence;
        m_fired = 0;
        m_passed = 0;
    }

    void clear() { m_left = 0; }
    void resume() { m_isCounting = true; }
    void pause() { m_isCounting = false; }

    /// Asked by each call that could fail: whether this one does.
    bool strikes()
    {
        if (!m_isCounting)
        {
            return false;
        }
        if (m_left != 1)
        {
            m_left -= m_left == 0 ? 0 : 1;
            m_passed += m_fired != 0 ? 1 : 0;
            return false;
        }
        m_left = m_persistence == ONCE ? 0 : 1;
        ++m_fired;
        m_passed = 0;
        return true;
    }

    /// How many calls have failed since `arm`.
    unsigned int fired() const { return m_fired; }
    /// How many counted calls have not failed since the last one that has.
    unsigned int passedAfterFailure() const { return m_passed; }

private:
    unsigned int m_left = 0;
    unsigned int m_fired = 0;
    unsigned int m_passed = 0;
    Persistence m_persistence = ONCE;
    bool m_isCounting = false;
};
