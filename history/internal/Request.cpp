#include <history/internal/Request.h>

#include <time.h>

namespace firaim
{

namespace
{

constexpr std::size_t kSizeOfRow = 256; ///< approximate size of numbers, times and names

} // namespace

void Request::setTimes()
{
    timespec sinceBoot = {};
    static_cast<void>(clock_gettime(CLOCK_BOOTTIME, &sinceBoot)); // Every Linux has this clock.
    now = currentTime();
    upTime = static_cast<unsigned int>(sinceBoot.tv_sec);
}

std::size_t Request::size() const
{
    if (event == nullptr)
    {
        return 0;
    }
    std::size_t size = kSizeOfRow;
    for (std::string const* const text :
         {&event->module, &event->parameter, &event->description, &event->signalsFile, &event->configBackup})
    {
        size += text->size();
    }
    for (std::optional<std::string> const* const text :
         {&event->timeZone, &event->codeName, &event->dateTimeText, &event->systemTimeText})
    {
        size += *text ? (*text)->size() : 0;
    }
    return size;
}

bool Request::needsSources() const
{
    switch (kind)
    {
    case RECORD:
    case STORM:
        return event->status != FAULT_ACTIVE;
    case END_CYCLE:
        return false;
    default:
        return true;
    }
}

} // namespace firaim
