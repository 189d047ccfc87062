// Records with four threads until it is killed. Acknowledges each row on standard output as soon as the call has
// returned: a line with the result, the key, the status (1 for active) and the description.
//
//   endless_recorder FILE NAME   descriptions start with NAME

#include <history/FaultRecorder.h>

#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include <unistd.h>

namespace
{

using namespace firaim;

constexpr unsigned int kThreads = 4;
constexpr unsigned int kGroup = 5;
/// All processes and threads raise and clear the same triple of this code.
constexpr std::uint64_t kSharedCode = 3;

FaultEvent eventOf(std::uint64_t code, std::string const& module, std::string const& description, faultStatus_t status)
{
    FaultEvent event;
    event.code = code;
    event.module = module;
    event.status = status;
    event.description = description;
    return event;
}

std::string lineOf(Receipt const& receipt, FaultEvent const& event)
{
    return std::to_string(receipt.result) + ' ' + std::to_string(receipt.key) + ' ' +
           (event.status == FAULT_ACTIVE ? "1 " : "0 ") + event.description + '\n';
}

/// Writes unbuffered with one call, so that an acknowledgement is neither lost when the process is killed nor mixed
/// with those of other threads.
bool acknowledge(std::string const& lines)
{
    return write(STDOUT_FILENO, lines.data(), lines.size()) == static_cast<ssize_t>(lines.size());
}

std::string act(FaultRecorder& recorder, unsigned int number, std::string const& name)
{
    std::string const description = name + '/' + std::to_string(number);
    switch (number % 4)
    {
    case 0:
    {
        FaultEvent const event = eventOf(1, name, description, number % 8 == 0 ? FAULT_ACTIVE : FAULT_INACTIVE);
        return lineOf(recorder.record(event), event);
    }
    case 1:
    {
        FaultEvent const event = eventOf(kSharedCode, "shared", description, FAULT_ACTIVE);
        return lineOf(recorder.raise(event), event);
    }
    case 2:
    {
        FaultEvent const event = eventOf(kSharedCode, "shared", description, FAULT_INACTIVE);
        return lineOf(recorder.clear(event), event);
    }
    default:
    {
        std::vector<FaultEvent> events;
        for (unsigned int i = 0; i < kGroup; ++i)
        {
            events.push_back(eventOf(4 + i % 2, name, description + '/' + std::to_string(i),
                                     i % 3 == 0 ? FAULT_INACTIVE : FAULT_ACTIVE));
        }
        std::vector<Receipt> receipts;
        static_cast<void>(recorder.recordAll(events, receipts)); // The receipts hold the results.
        std::string lines;
        for (std::size_t i = 0; i < receipts.size(); ++i)
        {
            lines += lineOf(receipts[i], events[i]);
        }
        return lines;
    }
    }
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 3)
    {
        return 2;
    }
    FaultRecorder recorder;
    RecorderOptions options;
    options.startup = RecorderOptions::SAME_STARTUP;
    if (recorder.open(argv[1], options) != HISTORY_OK)
    {
        acknowledge(recorder.lastProblem() + '\n');
        return 3;
    }
    std::vector<std::thread> threads;
    for (unsigned int thread = 0; thread < kThreads; ++thread)
    {
        std::string const name = std::string(argv[2]) + '/' + std::to_string(thread);
        threads.emplace_back(
            [&recorder, name, thread]
            {
                unsigned int number = thread; // So that the threads call different operations.
                while (acknowledge(act(recorder, number, name)))
                {
                    ++number;
                }
            });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    return 4;
}
