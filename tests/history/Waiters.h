#pragma once

#include <history/FaultRecorder.h>

#include <condition_variable>
#include <mutex>
#include <set>
#include <thread>

/// The threads whose calls wait in a recorder with options passed to `Waiters::watch`. All members are static, as the
/// recorder takes a plain function.
class Waiters
{
public:
    /// Resets, then tracks the threads that wait in a recorder with these options.
    static void watch(firaim::RecorderOptions& options)
    {
        reset();
        options.isCancelled = isCancelled;
    }

    /// Forgets all threads and the cancellation.
    static void reset()
    {
        std::lock_guard<std::mutex> const lock(mutex());
        threads().clear();
        isEnding() = false;
    }

    /// For RecorderOptions: adds the calling thread.
    static bool isCancelled()
    {
        std::lock_guard<std::mutex> const lock(mutex());
        threads().insert(std::this_thread::get_id());
        changed().notify_all();
        return isEnding();
    }

    static void cancel()
    {
        std::lock_guard<std::mutex> const lock(mutex());
        isEnding() = true;
    }

    /// Blocks until `count` threads have waited.
    static void waitFor(std::size_t count)
    {
        std::unique_lock<std::mutex> lock(mutex());
        changed().wait(lock, [count] { return threads().size() >= count; });
    }

private:
    static std::mutex& mutex()
    {
        static std::mutex object;
        return object;
    }
    static std::condition_variable& changed()
    {
        static std::condition_variable object;
        return object;
    }
    static std::set<std::thread::id>& threads()
    {
        static std::set<std::thread::id> object;
        return object;
    }
    static bool& isEnding()
    {
        static bool object = false;
        return object;
    }
};
