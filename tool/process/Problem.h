#pragma once

#include <stdexcept>
#include <string>

namespace tool
{

/// The exit status.
enum ExitStatus : int
{
    STATUS_DONE = 0,
    STATUS_NO = 1,        ///< a negative result: nothing found, a finding in the file, or not everything done
    STATUS_BAD_USAGE = 2, ///< the arguments are invalid
    STATUS_BAD_FILE = 3   ///< the file, or another resource, cannot be used
};

/// Ends the command: the program prints the text to standard error and exits with the status.
class Problem : public std::runtime_error
{
public:
    Problem(ExitStatus status, std::string const& text) : std::runtime_error(text), m_status(status) {}

    ExitStatus status() const { return m_status; }

private:
    ExitStatus m_status;
};

} // namespace tool
