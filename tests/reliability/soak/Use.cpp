#include "Use.h"
#include "Violation.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>

namespace soak
{

namespace
{

constexpr unsigned int kFirstLooks = 3; ///< of these the largest numbers are the basis
/// An allocator and SQLite's cache take their time to reach their size. A process lives for minutes and makes some
/// hundred thousand calls, so this notices a leak of some hundred bytes a call.
constexpr std::size_t kMoreKib = 16 * 1024;
/// A reader opens the file again and again, also at the moment of a look.
constexpr std::size_t kMoreDescriptors = 8;

/// Sanitizers keep freed memory.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kIsMemoryKept = true;
#else
constexpr bool kIsMemoryKept = false;
#endif

std::size_t memoryKibOf(std::string const& folder)
{
    std::ifstream status(folder + "/status");
    for (std::string word; status >> word;)
    {
        if (word == "VmRSS:")
        {
            std::size_t kib = 0;
            status >> kib;
            return kib;
        }
    }
    return 0; // The process has ended, which is noticed elsewhere.
}

std::size_t descriptorsOf(std::string const& folder)
{
    std::error_code error;
    std::filesystem::directory_iterator const descriptors(folder + "/fd", error);
    return error ? 0 : static_cast<std::size_t>(std::distance(begin(descriptors), end(descriptors)));
}

} // namespace

void Use::expectSteady(std::string const& name, pid_t process)
{
    std::string const folder = "/proc/" + std::to_string(process);
    std::size_t const memoryKib = kIsMemoryKept ? 0 : memoryKibOf(folder);
    std::size_t const descriptors = descriptorsOf(folder);
    if (++m_looks <= kFirstLooks)
    {
        m_memoryKib = std::max(m_memoryKib, memoryKib + kMoreKib);
        m_descriptors = std::max(m_descriptors, descriptors + kMoreDescriptors);
        return;
    }
    if (memoryKib > m_memoryKib)
    {
        throw Violation(name + " uses " + std::to_string(memoryKib) + " KiB of memory, more than " +
                        std::to_string(m_memoryKib) + " KiB");
    }
    if (descriptors > m_descriptors)
    {
        throw Violation(name + " has " + std::to_string(descriptors) + " open descriptors, more than " +
                        std::to_string(m_descriptors));
    }
}

} // namespace soak
