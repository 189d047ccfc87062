#pragma once

/// Decides which of the calls that could fail does: the n-th one alone, or it and all that follow.
///
/// It counts between `resume` and `pause` only: what a test itself reads, compares and allocates in between is no part
/// of the count. Threads: one at a time.
class FaultPlan
{
public:
    enum persistence_t
    {
        ONCE,
        UNTIL_CLEARED
    };

    /// From the next counted call on, the `n`-th fails; `n` counts from 1.
    void arm(unsigned int n, persistence_t persistence)
    {
        m_left = n;
        m_persistence = persistence;
        m_fired = 0;
    }

    void clear() { m_left = 0; }
    void resume() { m_isCounting = true; }
    void pause() { m_isCounting = false; }

    /// Asked by each call that could fail: whether this one does.
    bool strikes()
    {
        if (!m_isCounting || m_left == 0)
        {
            return false;
        }
        if (m_left > 1)
        {
            --m_left;
            return false;
        }
        m_left = m_persistence == ONCE ? 0 : 1;
        ++m_fired;
        return true;
    }

    /// How many calls have failed since `arm`.
    unsigned int fired() const { return m_fired; }

private:
    unsigned int m_left = 0;
    unsigned int m_fired = 0;
    persistence_t m_persistence = ONCE;
    bool m_isCounting = false;
};
