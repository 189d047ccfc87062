#pragma once

#include <tool/terminal/Output.h>

#include <cstddef>
#include <string>
#include <vector>

namespace tool
{

/// How a terminal highlights a cell.
enum class Style
{
    PLAIN,
    STRONG,
    ALARM,
    FAINT
};

/// `text` in that style; unchanged where there is no decoration.
std::string styled(std::string const& text, Style style, Terminal const& terminal);

/// A bar for `count`, scaled so that `most` takes all of `width` columns; empty where there is no decoration. Every
/// count above 0 is visible.
std::string barText(unsigned long long count, unsigned long long most, std::size_t width, Terminal const& terminal);

/// The mark of a shortened text.
std::string_view ellipsisFor(Terminal const& terminal);

/// Writes rows of texts as a table that fits the terminal. The first rows are buffered and decide the column widths, so
/// that a table of any length takes little memory. Without a terminal nothing is shortened.
class TextTable
{
public:
    struct Heading
    {
        std::string text;
        bool isRight = false;   ///< right-aligned, as numbers are
        bool isElastic = false; ///< may be shortened on a narrow terminal
        int dropOrder = 0;      ///< left out on a narrower one, the columns with 1 first; 0: never
    };

    struct Cell
    {
        Cell(std::string cellText, Style cellStyle = Style::PLAIN) : text(std::move(cellText)), style(cellStyle) {}
        Cell(char const* cellText) : text(cellText) {}

        std::string text; ///< of any origin; the table escapes it
        Style style = Style::PLAIN;
    };
    using Row = std::vector<Cell>;

    /// A line that is still too long is cut. With `wraps`, nothing is fitted to the terminal, which wraps long lines.
    TextTable(Output& output, std::vector<Heading> headings, bool wraps = false);

    void add(Row row);
    /// Writes the buffered rows. No row can be added afterwards.
    void end();

private:
    /// Writes the buffered rows; the column widths are fixed from then on.
    void flush();
    void fitToTerminal();
    void dropColumns();
    std::size_t neededWidth(bool isShortest) const;
    std::size_t* widestElastic();
    void write(Row const& row);

    Output& m_output;
    std::vector<Heading> const m_headings;
    bool const m_wraps;
    std::vector<Row> m_buffered;
    std::size_t m_bufferedBytes = 0;
    std::vector<std::size_t> m_widths; ///< empty while rows are buffered
    std::vector<bool> m_isDropped;
};

} // namespace tool
