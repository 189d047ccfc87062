#include <tool/files/Failures.h>

#include <tool/process/Interrupt.h>
#include <tool/process/Problem.h>

#include <db/internal/ReadOnlyOpening.h>
#include <history/HistoryResult.h>

namespace tool
{

void throwFailure(int result, std::string const& problem)
{
    if (result == firaim::HISTORY_CANCELLED)
    {
        interrupt::throwIfPending();
    }
    throw Problem(STATUS_BAD_FILE, problem);
}

void throwFailure(std::string const& path, sqlite::Error const& error)
{
    if (error.kind() == SQLITE_INTERRUPT || error.kind() == SQLITE_BUSY)
    {
        interrupt::throwIfPending();
    }
    throw Problem(STATUS_BAD_FILE, readOnlyOpening::problemText(path, error));
}

} // namespace tool
