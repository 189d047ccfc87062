#pragma once

#include <tool/terminal/Terminal.h>

#include <streambuf>
#include <string>
#include <string_view>

namespace tool
{

/// Thrown when the reader of standard output has closed the pipe, as `head` does. Not a std::exception, because it is
/// no error.
struct BrokenPipe
{
};

/// Writes each whole line to standard error, with control characters escaped. After a signal it discards the lines, so
/// that the program does not wait for a reader.
class LogBuffer : public std::streambuf
{
protected:
    int_type overflow(int_type character) override;
    std::streamsize xsputn(char const* text, std::streamsize size) override;

private:
    void writeWholeLines();

    std::string m_pending;
};

/// Opens a placeholder for each of standard input, output and error that is closed, so that no other file gets its
/// descriptor. I/O on a placeholder fails.
void reserveStandardDescriptors();

/// Standard output, for results only. While this object lives, std::cout, to which the library writes its log lines, is
/// redirected to standard error.
///
/// Results are buffered until `flush`, so that a command decides when it may have to wait for the reader.
class Output
{
public:
    Output();
    ~Output();
    Output(Output const&) = delete;
    Output& operator=(Output const&) = delete;

    Terminal const& terminal() const { return m_terminal; }

    void write(std::string_view text) { m_pending.append(text); }
    void writeLine(std::string_view text);

    /// The number of buffered bytes.
    std::size_t pending() const { return m_pending.size(); }

    /// Writes the buffer. Throws BrokenPipe, interrupt::Interrupted, or a Problem when it cannot be written.
    void flush();
    /// Flushes once the buffer is large.
    void flushIfLarge();

private:
    Terminal const m_terminal;
    bool const m_mayBlock; ///< writing may wait for the reader
    std::string m_pending;
    LogBuffer m_logLines;
    std::streambuf* m_consoleBuffer;
};

/// Prints a line about a change of the file. If that fails, prints it to standard error before it throws: the file is
/// changed nevertheless.
void reportDone(std::string const& text, Output& output);

/// Writes one line to standard error, with control characters escaped.
void printMessage(std::string_view text);

} // namespace tool
