#pragma once

#include <chrono>

namespace firaim
{

/// Options of a reader.
struct ReaderOptions
{
    /// Busy timeout: how long a call waits for other processes.
    std::chrono::milliseconds busyTimeout = std::chrono::seconds(5);
    /// Returns true when a waiting or reading call shall end early; may be null.
    bool (*isCancelled)() = nullptr;
    /// Reads also a file of another format version, or without one, as far as the formats agree.
    bool isAnyVersionRead = false;
};

} // namespace firaim
