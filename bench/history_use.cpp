// Prints how much heap a recorder takes, and how much stack each of its calls takes. The heap that the process uses
// before, and the stack of an empty thread, are not counted.
//
//   history_use FILE

#include <history/FaultRecorder.h>

#include <algorithm>
#include <cstdio>
#include <functional>

#include <malloc.h>
#include <pthread.h>
#include <sys/mman.h>

namespace
{

using Work = std::function<bool()>;

std::size_t inUse()
{
    return mallinfo2().uordblks;
}

/// A stack filled with a pattern, which shows how much of it was used.
class PaintedStack
{
public:
    PaintedStack()
        : m_bottom(static_cast<unsigned char*>(
              mmap(nullptr, kSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0)))
    {
    }
    ~PaintedStack() { munmap(m_bottom, kSize); }
    PaintedStack(PaintedStack const&) = delete;
    PaintedStack& operator=(PaintedStack const&) = delete;

    bool isUsable() const { return m_bottom != MAP_FAILED; }

    /// Runs `work` in a thread on this stack. Returns the number of bytes used; 0 when it failed.
    std::size_t useOf(Work const& work)
    {
        std::fill(m_bottom, m_bottom + kSize, kPaint);
        pthread_attr_t attributes;
        pthread_t thread;
        Task task = {&work, false};
        pthread_attr_init(&attributes);
        bool const isRun = pthread_attr_setstack(&attributes, m_bottom, kSize) == 0 &&
                           pthread_create(&thread, &attributes, run, &task) == 0 && pthread_join(thread, nullptr) == 0;
        pthread_attr_destroy(&attributes);
        unsigned char const* const deepest =
            std::find_if(m_bottom, m_bottom + kSize, [](unsigned char byte) { return byte != kPaint; });
        return isRun && task.isDone ? static_cast<std::size_t>(m_bottom + kSize - deepest) : 0;
    }

private:
    static constexpr std::size_t kSize = 1 << 20;
    static constexpr unsigned char kPaint = 0xa5;

    struct Task
    {
        Work const* work;
        bool isDone;
    };

    static void* run(void* argument)
    {
        auto* const task = static_cast<Task*>(argument);
        task->isDone = (*task->work)();
        return nullptr;
    }

    unsigned char* m_bottom;
};

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2)
    {
        return 2;
    }
    PaintedStack stack;
    if (!stack.isUsable())
    {
        return 1;
    }
    std::size_t const ofThread = stack.useOf([] { return true; });
    bool isAllDone = ofThread > 0;
    auto const print = [&](char const* call, Work const& work)
    {
        std::size_t const use = stack.useOf(work);
        isAllDone = isAllDone && use > 0;
        std::printf("stack of %s: %zu bytes\n", call, use > ofThread ? use - ofThread : 0);
    };
    firaim::FaultEvent event;
    event.code = 1;
    event.module = "sensor 12";
    event.description = "channel 4 reports a value outside its range";

    // Measure the heap first: a thread that ends may leave memory allocated.
    std::size_t const before = inUse();
    auto recorder = std::make_unique<firaim::FaultRecorder>();
    isAllDone = isAllDone && recorder->open(argv[1]) == firaim::HISTORY_OK;
    std::size_t const opened = inUse();
    isAllDone = isAllDone && recorder->record(event).result == firaim::HISTORY_OK;
    std::printf("heap in use: %zu bytes more after opening, %zu after recording one fault\n", opened - before,
                inUse() - before);
    recorder = std::make_unique<firaim::FaultRecorder>();

    print("open", [&] { return recorder->open(argv[1]) == firaim::HISTORY_OK; });
    print("record", [&] { return recorder->record(event).result == firaim::HISTORY_OK; });
    print("clear", [&] { return recorder->clear(event).result == firaim::HISTORY_OK; });
    print("raise", [&] { return recorder->raise(event).result == firaim::HISTORY_OK; });
    print("close", [&] { return recorder->close() == firaim::HISTORY_OK; });
    return isAllDone ? 0 : 1;
}
