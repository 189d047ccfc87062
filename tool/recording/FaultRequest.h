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

/// A fault to record, as the options or a line of input describe it.
struct FaultRequest
{
    firaim::FaultEvent event;
    std::optional<std::int64_t> time; ///< in milliseconds since 1970; `event.time` is the stamp to store
};

/// Completes faults before they are recorded into one file. They must come in the order of recording.
class FaultCompleter
{
public:
    /// Opens the file at `path` only when it has to read it, with `busyTimeout`.
    FaultCompleter(std::string path, TimeStyle const& style,
                   std::chrono::milliseconds busyTimeout = lockWait::kBusyTimeout)
        : m_path(std::move(path)), m_style(style), m_busyTimeout(busyTimeout)
    {
    }

    /// The fault with its time in the unit of the file. Throws std::invalid_argument for a time that would be read back
    /// as another one.
    firaim::FaultEvent complete(FaultRequest request);

    /// Warns on standard error, once for each code, if several statistics have the code.
    void warnOfSeveralStatistics(std::uint64_t code);

private:
    TimeUnit unit();
    FaultFile& file();

    std::string const m_path;
    TimeStyle const m_style;
    std::chrono::milliseconds const m_busyTimeout;
    std::optional<FaultFile> m_file;
    std::optional<TimeUnit> m_unit;                        ///< of the newest fault; read when needed
    std::optional<std::set<unsigned int>> m_codesToWarnOf; ///< without a warning so far; read when needed
};

/// The options of a recorder for this program.
firaim::RecorderOptions recorderOptions(TimeStyle const& style);

} // namespace tool
