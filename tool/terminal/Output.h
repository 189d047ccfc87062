#pragma once

#include <tool/terminal/Terminal.h>

#include <streambuf>
#include <string>
#include <string_view>

namespace tool
{

/// Thrown when the reader of standard output has gone, as `head` goes. Not a std::exception: it is no problem.
struct ReaderGone
{
};

/// Passes on lines to standard error, with control characters escaped. Once a signal has come it passes on nothing
/// more, so that the program does not wait for a reader.
class LogBuffer : public std::streambuf
{
protected:
    int_type overflow(int_type character) override;
    std::streamsize xsputn(char const* text, std::streamsize size) override;

private:
    void passOnLines();

    std::string m_pending;
};

/// Makes sure that no file that is opened gets the number of standard input, output or error, where one of these was
/// closed: using that one still fails.
void holdStandardDescriptors();

/// Standard output, where only results go. While this object lives, what is written to std::cout, as the library's log
/// lines are, goes to standard error instead.
///
/// Results are held back until `flush`, so that a command decides when it may have to wait for its reader.
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

    /// How much is held back, in bytes.
    std::size_t pending() const { return m_pending.size(); }

    /// Writes what was held back. Throws ReaderGone, interrupt::Interrupted, or a Problem when it cannot be written.
    void flush();
    /// The same as soon as that is worth its while.
    void flushIfMuch();

private:
    Terminal const m_terminal;
    bool const m_hasReader; ///< writing may take as long as that one pleases
    std::string m_pending;
    LogBuffer m_logLines;
    std::streambuf* m_consoleBuffer;
};

/// Prints a line that says what was done to the file. When it cannot be written, standard error gets it: the file is
/// changed all the same.
void reportDone(std::string const& text, Output& output);

/// Writes one line to standard error, with control characters escaped.
void complain(std::string_view text);

} // namespace tool
