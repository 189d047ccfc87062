#pragma once

#include <chrono>
#include <ctime>

#include <pthread.h>

namespace firaim
{

/// A mutex with priority inheritance: a real-time thread that records never waits for a low-priority holder that other
/// threads keep from running.
class Mutex
{
public:
    Mutex()
    {
        pthread_mutexattr_t attributes;
        pthread_mutexattr_init(&attributes);
        // Not every kernel supports it; the mutex is then an ordinary one.
        static_cast<void>(pthread_mutexattr_setprotocol(&attributes, PTHREAD_PRIO_INHERIT));
        if (pthread_mutex_init(&m_mutex, &attributes) != 0)
        {
            pthread_mutex_init(&m_mutex, nullptr);
        }
        pthread_mutexattr_destroy(&attributes);
    }
    ~Mutex() { pthread_mutex_destroy(&m_mutex); }
    Mutex(Mutex const&) = delete;
    Mutex& operator=(Mutex const&) = delete;

    void lock() { pthread_mutex_lock(&m_mutex); }
    void unlock() { pthread_mutex_unlock(&m_mutex); }
    pthread_mutex_t* get() { return &m_mutex; }

private:
    pthread_mutex_t m_mutex;
};

/// Releases a mutex for the lifetime of this object.
class Unlocked
{
public:
    explicit Unlocked(Mutex& mutex) : m_mutex(mutex) { m_mutex.unlock(); }
    ~Unlocked() { m_mutex.lock(); }
    Unlocked(Unlocked const&) = delete;
    Unlocked& operator=(Unlocked const&) = delete;

private:
    Mutex& m_mutex;
};

/// A condition variable for a Mutex, on the monotonic clock.
class Condition
{
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    Condition()
    {
        pthread_condattr_t attributes;
        pthread_condattr_init(&attributes);
        pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
        pthread_cond_init(&m_condition, &attributes);
        pthread_condattr_destroy(&attributes);
    }
    ~Condition() { pthread_cond_destroy(&m_condition); }
    Condition(Condition const&) = delete;
    Condition& operator=(Condition const&) = delete;

    /// Waits until notified, not much longer than until `end`. May return early without a reason.
    void waitUntil(Mutex& mutex, TimePoint end)
    {
        using namespace std::chrono;
        nanoseconds const since = duration_cast<nanoseconds>(end.time_since_epoch());
        timespec time = {};
        time.tv_sec = static_cast<std::time_t>(duration_cast<seconds>(since).count());
        time.tv_nsec = static_cast<long>((since % seconds(1)).count());
        pthread_cond_timedwait(&m_condition, mutex.get(), &time);
    }
    void wait(Mutex& mutex) { pthread_cond_wait(&m_condition, mutex.get()); }
    void notifyAll() { pthread_cond_broadcast(&m_condition); }
    void notifyOne() { pthread_cond_signal(&m_condition); }

private:
    pthread_cond_t m_condition;
};

} // namespace firaim
