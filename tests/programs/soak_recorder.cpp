// Records with several threads, as Script says, until standard input ends. Acknowledges each call on standard output as
// soon as it has returned: a line with the thread, the number of the call, the times before and after it, and the
// result and the keys of each event.
//
//   soak_recorder FILE SEED WORKER INCARNATION KEEP-NEWEST STORM-BURST [lie]
//
// Standard input: `pause` finishes the calls under way, flushes and answers `paused`; `close` closes the recorder
// during a pause and answers `closed`; `go` opens it again and ends the pause. With `lie` one call is acknowledged that
// was never made.

#include "soak/Script.h"

#include <history/FaultRecorder.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <iostream>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <unistd.h>

namespace
{

using namespace firaim;
using soak::Identity;
using soak::Step;

constexpr unsigned int kLieFrom = 5; ///< number of the first call that may be a lie
constexpr std::chrono::milliseconds kPauseAfterFailure(20);

long long now()
{
    return std::chrono::nanoseconds(std::chrono::steady_clock::now().time_since_epoch()).count();
}

/// Writes unbuffered with one call, so that a line is neither lost when the process is killed nor mixed with others.
bool print(std::string const& line)
{
    std::string const whole = line + '\n';
    return write(STDOUT_FILENO, whole.data(), whole.size()) == static_cast<ssize_t>(whole.size());
}

/// The last problem, short enough that its line stays whole in a pipe.
std::string problemOf(FaultRecorder const& recorder)
{
    constexpr std::size_t kLongest = 300;
    return '\t' + recorder.lastProblem().substr(0, kLongest);
}

std::string textOf(int result, std::vector<unsigned long long> const& keys)
{
    std::string text = ' ' + std::to_string(result) + ':';
    for (unsigned long long const key : keys)
    {
        text += std::to_string(key) + ',';
    }
    return text;
}

class Recording
{
public:
    Recording(std::string path, std::uint64_t seed, Identity const& identity, RecorderOptions options, bool isLying)
        : m_path(std::move(path)), m_seed(seed), m_identity(identity), m_options(std::move(options)), m_isLying(isLying)
    {
    }

    void run()
    {
        open();
        std::vector<std::thread> threads;
        for (unsigned int thread = 0; thread < soak::kThreads; ++thread)
        {
            threads.emplace_back([this, thread] { work(thread); });
        }
        for (std::string command; std::getline(std::cin, command);)
        {
            obey(command);
        }
        setState(ENDING);
        for (std::thread& thread : threads)
        {
            thread.join();
        }
    }

private:
    enum State
    {
        WORKING,
        PAUSED,
        ENDING
    };

    void obey(std::string const& command)
    {
        if (command == "pause")
        {
            setState(PAUSED);
            std::unique_lock<std::mutex> lock(m_mutex);
            m_changed.wait(lock, [this] { return m_atWork == 0; });
            flushAll();
            print("paused");
        }
        else if (command == "close")
        {
            report("close", [this] { return m_recorder.close(); });
            m_isOpen = false;
            print("closed");
        }
        else if (command == "go")
        {
            open();
            setState(WORKING);
        }
    }

    void open()
    {
        if (!m_isOpen)
        {
            m_options.startupId = m_identity.incarnation;
            report("open", [this] { return m_recorder.open(m_path, m_options); });
            m_isOpen = true;
        }
    }

    void flushAll()
    {
        report("flush",
               [this]
               {
                   std::uint64_t left = 0;
                   return m_recorder.flush(left);
               });
    }

    /// Calls until the call succeeds, and prints each result.
    template <class Call>
    void report(char const* name, Call call)
    {
        int result = HISTORY_FAILED;
        while (result != HISTORY_OK)
        {
            long long const begin = now();
            result = call();
            std::string const line = std::string(name) + ' ' + std::to_string(begin) + ' ' + std::to_string(now()) +
                                     ' ' + std::to_string(result);
            if (!print(line + (result == HISTORY_OK ? "" : problemOf(m_recorder))))
            {
                _exit(1); // Nobody listens any more.
            }
            std::this_thread::sleep_for(result == HISTORY_OK ? std::chrono::milliseconds(0) : kPauseAfterFailure);
        }
    }

    void setState(State state)
    {
        std::lock_guard<std::mutex> const lock(m_mutex);
        m_state = state;
        m_changed.notify_all();
    }

    /// Waits for the end of a pause; returns false at the end of the recording.
    bool begin()
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_changed.wait(lock, [this] { return m_state != PAUSED; });
        m_atWork += m_state == WORKING ? 1 : 0;
        return m_state == WORKING;
    }

    void end()
    {
        std::lock_guard<std::mutex> const lock(m_mutex);
        --m_atWork;
        m_changed.notify_all();
    }

    void work(unsigned int thread)
    {
        Identity identity = m_identity;
        identity.thread = thread;
        for (; begin(); ++identity.number)
        {
            Step const step = stepOf(m_seed, identity);
            long long const before = now();
            std::string const results = isLie(step, identity) ? textOf(HISTORY_OK, {m_lastKey + 1}) : act(step);
            std::string const times = std::to_string(before) + ' ' + std::to_string(now());
            bool const isFailed = results.find(" -") != std::string::npos;
            if (!print("call " + std::to_string(thread) + ' ' + std::to_string(identity.number) + ' ' + times +
                       results + (isFailed ? problemOf(m_recorder) : "")))
            {
                _exit(1);
            }
            end();
            std::this_thread::sleep_for(std::chrono::microseconds(step.pauseUs));
        }
    }

    bool isLie(Step const& step, Identity const& identity)
    {
        bool const mayBe = m_isLying && step.kind == Step::RECORD && identity.number >= kLieFrom;
        return mayBe && !m_hasLied.exchange(true);
    }

    std::string act(Step const& step)
    {
        switch (step.kind)
        {
        case Step::RECORD:
            return received(m_recorder.record(step.events.front()));
        case Step::RAISE:
            return received(m_recorder.raise(step.events.front()));
        case Step::CLEAR:
            return received(m_recorder.clear(step.events.front()));
        case Step::GROUP:
            return recordGroup(step.events);
        case Step::POST:
            return textOf(m_recorder.post(step.events.front()), {});
        case Step::CLEAR_CODE:
        {
            std::vector<unsigned long long> keys;
            int const result = m_recorder.clearCode(step.events.front(), keys);
            return textOf(result, keys);
        }
        case Step::END_CYCLE:
            return textOf(m_recorder.endCycle(), {});
        default:
        {
            std::uint64_t left = 0;
            return textOf(m_recorder.flush(left), {});
        }
        }
    }

    std::string received(Receipt const& receipt)
    {
        m_lastKey = receipt.result == HISTORY_OK ? receipt.key : m_lastKey.load();
        return textOf(receipt.result, {receipt.key});
    }

    std::string recordGroup(std::vector<FaultEvent> const& events)
    {
        std::vector<Receipt> receipts;
        static_cast<void>(m_recorder.recordAll(events, receipts)); // The receipts have the results.
        std::string text;
        for (Receipt const& receipt : receipts)
        {
            text += received(receipt);
        }
        return text;
    }

    std::string const m_path;
    std::uint64_t const m_seed;
    Identity const m_identity;
    RecorderOptions m_options;
    bool const m_isLying;
    std::atomic<bool> m_hasLied{false};
    std::atomic<unsigned long long> m_lastKey{0};
    std::mutex m_mutex;
    std::condition_variable m_changed;
    State m_state = WORKING;
    bool m_isOpen = false;
    unsigned int m_atWork = 0;
    FaultRecorder m_recorder;
};

} // namespace

int main(int argc, char** argv)
{
    if (argc < 7)
    {
        return 2;
    }
    Identity identity;
    identity.worker = static_cast<unsigned int>(std::stoul(argv[3]));
    identity.incarnation = static_cast<unsigned int>(std::stoul(argv[4]));
    RecorderOptions options;
    options.startup = RecorderOptions::GIVEN_STARTUP;
    options.keepNewest = std::stoull(argv[5]);
    options.stormBurst = static_cast<unsigned int>(std::stoul(argv[6]));
    options.stormRowsPerMinute = 600; // Storms begin and end many times in a round.
    Recording(argv[1], std::stoull(argv[2]), identity, options, argc > 7).run();
    return 0;
}
