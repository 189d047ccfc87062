#pragma once

#include <tool/store/FaultFile.h>
#include <tool/values/Times.h>

#include <history/FaultEvent.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <set>
#include <string>

namespace tool
{

/// A fault as it is asked for.
struct FaultRequest
{
    firaim::FaultEvent event;
    std::optional<std::int64_t> time; ///< in milliseconds; `event.time` is the time as it is to be stored
};

/// Completes faults that are to be recorded into one file, in the order in which they are recorded.
class FaultCompleter
{
public:
    /// Reads the file at `path` only where that is needed, and then waits for other processes for as long as
    /// `busyTimeout` says.
    FaultCompleter(std::string path, TimeStyle const& style,
                   std::chrono::milliseconds busyTimeout = lockWait::kBusyTimeout)
        : m_path(std::move(path)), m_style(style), m_busyTimeout(busyTimeout)
    {
    }

    /// The fault with its time in the unit of the file. Throws std::invalid_argument for a time that would be read back
    /// as another one.
    firaim::FaultEvent complete(FaultRequest request);

    /// Says on standard error, once, that several statistics have the code.
    void warnOfSharedCode(std::uint64_t code);

private:
    TimeUnit unit();
    FaultFile& file();

    std::string const m_path;
    TimeStyle const m_style;
    std::chrono::milliseconds const m_busyTimeout;
    std::optional<FaultFile> m_file;
    std::optional<TimeUnit> m_unit;                      ///< of the newest fault, as soon as it matters
    std::optional<std::set<unsigned int>> m_sharedCodes; ///< of which nothing was said yet
};

/// The options of a recorder for this program.
firaim::RecorderOptions recorderOptions(TimeStyle const& style);

} // namespace tool
