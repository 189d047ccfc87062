#pragma once

#include <utility>

#include <unistd.h>

namespace tool
{

/// Owns a file descriptor. Whoever writes through it synchronises it before the end: closing reports no error.
class Descriptor
{
public:
    explicit Descriptor(int number) : m_number(number) {}
    Descriptor(Descriptor&& other) noexcept : m_number(std::exchange(other.m_number, -1)) {}
    Descriptor& operator=(Descriptor&&) = delete;
    ~Descriptor()
    {
        if (m_number >= 0)
        {
            static_cast<void>(close(m_number));
        }
    }

    explicit operator bool() const { return m_number >= 0; }
    int get() const { return m_number; }

private:
    int m_number;
};

} // namespace tool
