#include <tool/formats/Listing.h>

#include <utility>

namespace tool
{

Listing::Listing(Output& output, bool isJson, std::vector<TextTable::Heading> headings)
    : m_table(output, std::move(headings))
{
    if (isJson)
    {
        m_array.emplace(output);
    }
}

void Listing::end()
{
    m_array ? m_array->endLine() : m_table.end();
}

} // namespace tool
