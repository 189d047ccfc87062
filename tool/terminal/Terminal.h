#pragma once

namespace tool
{

/// The properties of the terminal behind a descriptor, if there is one.
struct Terminal
{
    bool isTerminal = false;
    bool isDecorated = false; ///< colours and bars may be used
    bool isUtf8 = false;      ///< characters outside of ASCII can be displayed
    int width = 0;            ///< columns; 0 without a terminal

    /// Whether only ASCII is safe: in another encoding than UTF-8, other bytes may be control characters.
    bool isAsciiOnly() const { return isTerminal && !isUtf8; }
};

/// Examines `descriptor` and the environment: NO_COLOR and TERM=dumb switch decoration off, COLUMNS is the width of
/// a terminal that does not report its own.
Terminal examineTerminal(int descriptor);

} // namespace tool
