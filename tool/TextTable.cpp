#include "TextTable.h"

#include "Text.h"

#include <algorithm>
#include <array>
#include <numeric>

namespace tool
{

namespace
{

constexpr std::size_t kRowsThatTellWidths = 200;
constexpr std::size_t kLeastElasticWidth = 6;
constexpr char kGap[] = "  ";
constexpr std::size_t kGapWidth = 2;

std::string_view ellipsisFor(Terminal const& terminal)
{
    return terminal.isUtf8 ? "\u2026" : "~";
}

} // namespace

std::string styled(std::string const& text, style_t style, Terminal const& terminal)
{
    if (!terminal.isDecorated || style == style_t::PLAIN)
    {
        return text;
    }
    char const* const begin = style == style_t::STRONG ? "\x1b[1m" : style == style_t::ALARM ? "\x1b[31m" : "\x1b[2m";
    return begin + text + "\x1b[0m";
}

std::string barText(unsigned long long count, unsigned long long most, std::size_t width, Terminal const& terminal)
{
    if (!terminal.isDecorated || count == 0 || most == 0)
    {
        return "";
    }
    constexpr std::size_t kParts = 8;
    constexpr std::array<char const*, kParts> kBlocks = {"",       "\u258f", "\u258e", "\u258d",
                                                         "\u258c", "\u258b", "\u258a", "\u2589"};
    double const share = static_cast<double>(count) / static_cast<double>(most);
    auto const eighths =
        std::max<std::size_t>(1, static_cast<std::size_t>(share * static_cast<double>(width * kParts)));
    std::string bar;
    if (!terminal.isUtf8)
    {
        return bar.append(std::max<std::size_t>(1, eighths / kParts), '#');
    }
    for (std::size_t block = 0; block < eighths / kParts; ++block)
    {
        bar += "\u2588";
    }
    return bar + kBlocks[eighths % kParts];
}

TextTable::TextTable(Output& output, std::vector<heading_t> headings)
    : m_output(output), m_headings(std::move(headings))
{
}

void TextTable::add(row_t row)
{
    for (cell_t& cell : row)
    {
        cell.text = visible(cell.text);
    }
    if (!m_widths.empty())
    {
        write(row);
        return;
    }
    m_held.push_back(std::move(row));
    if (m_held.size() == kRowsThatTellWidths)
    {
        settle();
    }
}

void TextTable::end()
{
    settle();
}

void TextTable::settle()
{
    if (!m_widths.empty())
    {
        return;
    }
    for (std::size_t column = 0; column < m_headings.size(); ++column)
    {
        std::size_t width = displayWidth(m_headings[column].text);
        for (row_t const& row : m_held)
        {
            width = std::max(width, displayWidth(row[column].text));
        }
        m_widths.push_back(width);
    }
    fitToTerminal();
    row_t headings;
    for (heading_t const& heading : m_headings)
    {
        headings.emplace_back(heading.text, style_t::STRONG);
    }
    write(headings);
    for (row_t const& row : m_held)
    {
        write(row);
    }
    m_held.clear();
}

/// Takes columns away from the widest elastic column until the table fits, or cannot be made to.
void TextTable::fitToTerminal()
{
    if (!m_output.terminal().isThere)
    {
        return;
    }
    auto const room = static_cast<std::size_t>(m_output.terminal().width);
    std::size_t needed =
        std::accumulate(m_widths.begin(), m_widths.end(), std::size_t(0)) + kGapWidth * (m_widths.size() - 1);
    while (needed > room)
    {
        std::size_t* widest = nullptr;
        for (std::size_t column = 0; column < m_widths.size(); ++column)
        {
            if (m_headings[column].isElastic && (widest == nullptr || m_widths[column] > *widest))
            {
                widest = &m_widths[column];
            }
        }
        if (widest == nullptr || *widest <= kLeastElasticWidth)
        {
            return;
        }
        --*widest;
        --needed;
    }
}

void TextTable::write(row_t const& row)
{
    Terminal const& terminal = m_output.terminal();
    std::string line;
    std::size_t blanks = 0; // Written before the next text only, so that no line ends with some.
    for (std::size_t column = 0; column < row.size(); ++column)
    {
        std::string const text = terminal.isThere && m_headings[column].isElastic
                                     ? shortened(row[column].text, m_widths[column], ellipsisFor(terminal))
                                     : row[column].text;
        std::size_t const width = displayWidth(text);
        std::size_t const padding = m_widths[column] > width ? m_widths[column] - width : 0;
        blanks += m_headings[column].isRight ? padding : 0;
        if (!text.empty())
        {
            line.append(blanks, ' ').append(styled(text, row[column].style, terminal));
            blanks = 0;
        }
        blanks += (m_headings[column].isRight ? 0 : padding) + kGapWidth;
    }
    m_output.writeLine(line);
}

} // namespace tool
