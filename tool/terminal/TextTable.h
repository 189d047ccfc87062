#pragma once

#include <tool/terminal/Output.h>

#include <cstddef>
#include <string>
#include <vector>

namespace tool
{

/// How a cell stands out on a terminal.
enum class Style
{
    PLAIN,
    STRONG,
    ALARM,
    FAINT
};

/// `text` in that style; as it is where there is no decoration.
std::string styled(std::string const& text, Style style, Terminal const& terminal);

/// A bar for `count` when `most` has the full length of `width` columns; empty where there is no decoration. Anything
/// above 0 is seen.
std::string barText(unsigned long long count, unsigned long long most, std::size_t width, Terminal const& terminal);

/// Stands for the part of a text that was left out.
std::string_view ellipsisFor(Terminal const& terminal);

/// Writes rows of texts as a table that fits the terminal. The first rows are held back and tell how wide the columns
/// have to be, so that a table of any length takes little memory. Without a terminal nothing is shortened.
class TextTable
{
public:
    struct Heading
    {
        std::string text;
        bool isRight = false;   ///< a number: its last digits stand below each other
        bool isElastic = false; ///< may be shortened where the terminal is narrow
        int dropOrder = 0;      ///< left out where it is narrower still, the columns with 1 first; 0: never
    };

    struct Cell
    {
        Cell(std::string cellText, Style cellStyle = Style::PLAIN) : text(std::move(cellText)), style(cellStyle) {}
        Cell(char const* cellText) : text(cellText) {}

        std::string text; ///< of any origin: what is not to be sent to a terminal is replaced
        Style style = Style::PLAIN;
    };
    using Row = std::vector<Cell>;

    /// A line that is too long all the same is cut, unless the table `wraps`.
    TextTable(Output& output, std::vector<Heading> headings, bool wraps = false);

    void add(Row row);
    /// Writes what is held back. No row can be added afterwards.
    void end();

private:
    /// Writes the rows that are held back. The columns stay as wide as they are then.
    void flush();
    void fitToTerminal();
    void dropColumns();
    std::size_t neededWidth(bool isShortest) const;
    std::size_t* widestElastic();
    void write(Row const& row);

    Output& m_output;
    std::vector<Heading> const m_headings;
    bool const m_wraps;
    std::vector<Row> m_held;
    std::size_t m_heldBytes = 0;
    std::vector<std::size_t> m_widths; ///< empty for as long as rows are held back
    std::vector<bool> m_isDropped;
};

} // namespace tool
