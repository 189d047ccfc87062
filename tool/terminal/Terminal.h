#pragma once

namespace tool
{

/// The properties of the terminal behind a descriptor, if there is one.
struct Terminal
{
    bool isThere = false;
    bool isDecorated = false; ///< colours and bars may be used
    bool isUtf8 = false;      ///< more than ASCII can be drawn with
    int width = 0;            ///< columns; 0 without a terminal

    /// Other bytes than those of ASCII may act on it, as it takes them for characters of their own.
    bool isAsciiOnly() const { return isThere && !isUtf8; }
};

/// Looks at `descriptor` and at the environment: NO_COLOR and TERM=dumb switch decoration off, COLUMNS stands in for a
/// terminal that does not tell its width.
Terminal examineTerminal(int descriptor);

} // namespace tool
