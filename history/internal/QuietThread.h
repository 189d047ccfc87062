#pragma once

#include <functional>
#include <thread>

namespace firaim
{

/// Starts a thread that gets no signals: these are for the application's own threads. Throws std::system_error.
std::thread startQuietThread(std::function<void()> body);

} // namespace firaim
