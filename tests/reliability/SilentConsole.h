#pragma once

#include <iostream>
#include <streambuf>

/// Drops standard output while the object lives. It allocates nothing, so that only allocations of the library can
/// fail.
class SilentConsole
{
public:
    SilentConsole() : m_previous(std::cout.rdbuf(&m_discarding)) {}
    ~SilentConsole() { std::cout.rdbuf(m_previous); }
    SilentConsole(SilentConsole const&) = delete;
    SilentConsole& operator=(SilentConsole const&) = delete;

private:
    class DiscardingBuffer : public std::streambuf
    {
        int_type overflow(int_type c) override { return traits_type::not_eof(c); }
        std::streamsize xsputn(char const*, std::streamsize size) override { return size; }
    };

    DiscardingBuffer m_discarding;
    std::streambuf* m_previous;
};
