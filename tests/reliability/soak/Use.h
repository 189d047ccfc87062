#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include <sys/types.h>

namespace soak
{

/// Watches the memory and the descriptors of a process. They must not grow.
class Use
{
public:
    /// Throws Violation if the process uses more than it did at the first calls.
    void expectSteady(std::string const& name, pid_t process);

private:
    unsigned int m_looks = 0;
    std::size_t m_memoryKib = 0; ///< the bound
    std::size_t m_descriptors = 0;
};

} // namespace soak
