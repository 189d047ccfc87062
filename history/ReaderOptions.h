#pragma once

#include <chrono>

namespace firaim
{

/// How a reader works.
struct ReaderOptions
{
    /// How long a call waits for other processes.
    std::chrono::milliseconds busyTimeout = std::chrono::seconds(5);
    /// Whether somebody wants a waiting or reading call to end; null: nobody.
    bool (*isCancelled)() = nullptr;
    /// Whether a file of another format version, or without one, is read as far as the two are alike.
    bool isAnyVersionRead = false;
};

} // namespace firaim
