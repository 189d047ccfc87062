#pragma once

#include <stdexcept>

namespace soak
{

/// The recorders, readers or the file broke a promise.
struct Violation : std::runtime_error
{
    using std::runtime_error::runtime_error;
};

} // namespace soak
