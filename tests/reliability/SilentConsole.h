#pragma once

#include <iostream>
#include <streambuf>

/// Standard output without the library's lines, for as long as it lives. It allocates nothing, so that it is the
/// library that fails when memory does.
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
