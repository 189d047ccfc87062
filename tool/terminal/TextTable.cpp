#include <tool/terminal/TextTable.h>

#include <tool/terminal/SafeText.h>

#include <algorithm>
#include <array>

namespace tool
{

namespace
{

constexpr std::size_t kRowsForWidths = 200;
constexpr std::size_t kLeastElasticWidth = 10;
/// Fewer rows are buffered when their texts are long.
constexpr std::size_t kBytesForWidths = 1 << 16;
constexpr std::size_t kGapWidth = 2;

} // namespace

std::string_view ellipsisFor(Terminal const& terminal)
{
    return terminal.isUtf8 ? "\u2026" : "~";
}

std::string styled(std::string const& text, Style style, Terminal const& terminal)
{
    if (!terminal.isDecorated || style == Style::PLAIN)
    {
        return text;
    }
    char const* const begin = style == Style::STRONG ? "\x1b[1m" : style == Style::ALARM ? "\x1b[31m" : "\x1b[2m";
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

TextTable::TextTable(Output& output, std::vector<Heading> headings, bool wraps)
    : m_output(output), m_headings(std::move(headings)), m_wraps(wraps), m_isDropped(m_headings.size(), false)
{
}

void TextTable::add(Row row)
{
    for (Cell& cell : row)
    {
        cell.text = escape(cell.text, m_output.terminal().isAsciiOnly());
    }
    if (!m_widths.empty())
    {
        write(row);
        return;
    }
    for (Cell const& cell : row)
    {
        m_bufferedBytes += cell.text.size();
    }
    m_buffered.push_back(std::move(row));
    if (m_buffered.size() == kRowsForWidths || m_bufferedBytes > kBytesForWidths)
    {
        flush();
    }
}

void TextTable::end()
{
    flush();
}

void TextTable::flush()
{
    if (!m_widths.empty())
    {
        return;
    }
    for (std::size_t column = 0; column < m_headings.size(); ++column)
    {
        std::size_t width = displayWidth(m_headings[column].text);
        for (Row const& row : m_buffered)
        {
            width = std::max(width, displayWidth(row[column].text));
        }
        m_widths.push_back(width);
    }
    fitToTerminal();
    Row headings;
    for (Heading const& heading : m_headings)
    {
        headings.emplace_back(heading.text, Style::STRONG);
    }
    write(headings);
    for (Row const& row : m_buffered)
    {
        write(row);
    }
    m_buffered.clear();
}

/// The terminal columns that the table takes: at the least, or with the present widths.
std::size_t TextTable::neededWidth(bool isShortest) const
{
    std::size_t needed = 0;
    for (std::size_t column = 0; column < m_widths.size(); ++column)
    {
        if (!m_isDropped[column])
        {
            bool const isShortened = isShortest && m_headings[column].isElastic;
            needed += kGapWidth + (isShortened ? std::min(m_widths[column], kLeastElasticWidth) : m_widths[column]);
        }
    }
    return needed < kGapWidth ? 0 : needed - kGapWidth;
}

/// Leaves out columns until the others fit with their least widths.
void TextTable::dropColumns()
{
    for (int order = 1; neededWidth(true) > static_cast<std::size_t>(m_output.terminal().width); ++order)
    {
        auto const next = std::find_if(m_headings.begin(), m_headings.end(),
                                       [order](Heading const& heading) { return heading.dropOrder == order; });
        if (next == m_headings.end())
        {
            return;
        }
        m_isDropped[static_cast<std::size_t>(next - m_headings.begin())] = true;
    }
}

std::size_t* TextTable::widestElastic()
{
    std::size_t* widest = nullptr;
    for (std::size_t column = 0; column < m_widths.size(); ++column)
    {
        bool const isElastic = m_headings[column].isElastic && !m_isDropped[column];
        if (isElastic && (widest == nullptr || m_widths[column] > *widest))
        {
            widest = &m_widths[column];
        }
    }
    return widest;
}

/// Leaves out columns, then narrows the widest elastic one until the table fits or all of them have their least width.
void TextTable::fitToTerminal()
{
    if (!m_output.terminal().isTerminal || m_wraps)
    {
        return;
    }
    dropColumns();
    auto const room = static_cast<std::size_t>(m_output.terminal().width);
    for (std::size_t needed = neededWidth(false); needed > room; --needed)
    {
        std::size_t* const widest = widestElastic();
        if (widest == nullptr || *widest <= kLeastElasticWidth)
        {
            return;
        }
        --*widest;
    }
}

void TextTable::write(Row const& row)
{
    Terminal const& terminal = m_output.terminal();
    bool const isFitted = terminal.isTerminal && !m_wraps;
    std::string line;
    std::size_t used = 0;   // Columns of the terminal.
    std::size_t blanks = 0; // Written only before a text, so that no line ends with blanks.
    for (std::size_t column = 0; column < row.size(); ++column)
    {
        if (m_isDropped[column])
        {
            continue;
        }
        std::size_t const whole = displayWidth(row[column].text);
        std::size_t const padding = m_widths[column] > whole ? m_widths[column] - whole : 0;
        blanks += m_headings[column].isRight ? padding : 0;
        std::string text = row[column].text;
        if (isFitted)
        {
            // The last column gets the rest of the line.
            auto const terminalWidth = static_cast<std::size_t>(terminal.width);
            std::size_t const left = terminalWidth > used + blanks ? terminalWidth - used - blanks : 0;
            bool const isLast = column + 1 == row.size();
            std::size_t const own = m_headings[column].isElastic && !isLast ? m_widths[column] : left;
            // A single column would hold only the ellipsis.
            text = left < std::min<std::size_t>(2, whole) ? ""
                                                          : shortened(text, std::min(own, left), ellipsisFor(terminal));
        }
        std::size_t const width = displayWidth(text);
        if (!text.empty())
        {
            line.append(blanks, ' ').append(styled(text, row[column].style, terminal));
            used += blanks + width;
            blanks = 0;
        }
        bool const isLeft = !m_headings[column].isRight;
        blanks += (isLeft && m_widths[column] > width ? m_widths[column] - width : 0) + kGapWidth;
    }
    m_output.writeLine(line);
}

} // namespace tool
