#pragma once

#include <stdexcept>
#include <string>

namespace tool
{

/// The exit status.
enum ExitStatus : int
{
    STATUS_DONE = 0,
    STATUS_NO = 1,        ///< the answer is no: nothing found, something wrong with the file, not all of it done
    STATUS_BAD_USAGE = 2, ///< what was asked for makes no sense
    STATUS_BAD_FILE = 3   ///< the file, or another resource, cannot be used
};

/// Ends the command: its text goes to standard error, its status to the caller of the program.
class Problem : public std::runtime_error
{
public:
    Problem(ExitStatus status, std::string const& text) : std::runtime_error(text), m_status(status) {}

    ExitStatus status() const { return m_status; }

private:
    ExitStatus m_status;
};

} // namespace tool
