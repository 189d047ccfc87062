#pragma once

#include <stdexcept>
#include <string>

namespace tool
{

/// The exit status.
enum exitStatus_t : int
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
    Problem(exitStatus_t status, std::string const& text) : std::runtime_error(text), m_status(status) {}

    exitStatus_t status() const { return m_status; }

private:
    exitStatus_t m_status;
};

} // namespace tool
