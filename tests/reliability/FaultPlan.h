#pragma once

/// Selects the calls that fail: only the n-th one, or the n-th one and all later ones.
///
/// Counts only between `resume` and `pause`, so that calls by the test itself do not count. Only one thread may use it
/// at a time.
class FaultPlan
{
public:
    enum Persistence
    {
        ONCE,
        UNTIL_CLEARED
    };

    /// Makes the `n`-th counted call from now fail; `n` counts from 1.
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

    /// To be called in each call that can fail; returns true when this one must fail.
    bool mustFail()
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

    /// Number of calls that have failed since `arm`.
    unsigned int fired() const { return m_fired; }
    /// Number of counted calls that succeeded after the last failed one.
    unsigned int passedAfterFailure() const { return m_passed; }

private:
    unsigned int m_left = 0;
    unsigned int m_fired = 0;
    unsigned int m_passed = 0;
    Persistence m_persistence = ONCE;
    bool m_isCounting = false;
};
