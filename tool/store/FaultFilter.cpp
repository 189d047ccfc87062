#include <tool/store/FaultFilter.h>

#include <tool/store/FaultReading.h>
#include <tool/terminal/Output.h>
#include <tool/values/Codes.h>
#include <tool/values/Text.h>

#include <limits>
#include <utility>

namespace tool
{

using firaim::FaultQuery;
using firaim::RowCursor;

namespace
{

/// The code of the first row whose code name is `name`.
std::optional<unsigned int> codeIn(TableSchema const& schema, std::size_t code, std::size_t codeName,
                                   std::string const& name, FaultFile& file)
{
    RowReading reading(file, schema);
    while (reading.next())
    {
        RowCursor const& row = reading.row();
        if (row.type(codeName) == RowCursor::CELL_TEXT && equalIgnoringCase(row.bytes(codeName), name))
        {
            return static_cast<unsigned int>(row.integer(code));
        }
    }
    return std::nullopt;
}

/// The number of a code that only the file knows by name: a device may have its own table.
std::optional<unsigned int> codeInFile(std::string const& name, FaultFile& file)
{
    std::optional<unsigned int> const code =
        codeIn(statisticSchema(), statisticColumn::CODE, statisticColumn::CODE_NAME, name, file);
    return code ? code : codeIn(faultSchema(), faultColumn::CODE, faultColumn::CODE_NAME, name, file);
}

/// The number of a code that this program or the file knows.
unsigned int requireKnownCode(std::string const& text, FaultFile& file)
{
    std::optional<unsigned int> const code = codeOf(text) ? std::nullopt : codeInFile(text, file);
    return code ? *code : requireCode(text);
}

bool isAnyFound(FaultQuery const& query, FaultFile& file)
{
    Fault fault;
    return FaultReading(file, query).next(fault);
}

} // namespace

bool FilterOptions::areSet() const
{
    return code || module || grep || since || until || startup || after || isActiveOnly;
}

FaultFilter::FaultFilter(FilterOptions const& options, TimeStyle const& style, FaultFile& file) : m_file(file)
{
    if (options.after == std::numeric_limits<long long>::max())
    {
        throw Problem(STATUS_BAD_USAGE, "--after: no key is larger than " + std::to_string(*options.after));
    }
    m_query.timeUnit = style.unit;
    m_query.afterKey = options.after;
    if (options.code)
    {
        unsigned int const code = requireKnownCode(*options.code, file);
        add("no fault has the code " + *options.code, [&](FaultQuery& query) { query.codes = {code}; });
    }
    if (options.module)
    {
        add("no fault is of the module '" + *options.module + "'",
            [&](FaultQuery& query) { query.modules = {*options.module}; });
    }
    if (options.startup)
    {
        add("no fault has the start-up id " + std::to_string(*options.startup),
            [&](FaultQuery& query) { query.startups = {*options.startup}; });
    }
    if (options.isActiveOnly)
    {
        add("no fault was recorded as active", [](FaultQuery& query) { query.isActiveOnly = true; });
    }
    if (options.grep)
    {
        add("no fault contains '" + *options.grep + "'", [&](FaultQuery& query) { query.text = options.grep; });
    }
    addTimes(options, style);
}

void FaultFilter::addTimes(FilterOptions const& options, TimeStyle const& style)
{
    if (options.since)
    {
        std::int64_t const begin = requireTime(*options.since, style).begin;
        add("no fault is dated " + isoText(begin, style) + " or later",
            [begin](FaultQuery& query) { query.since = begin; });
    }
    if (options.until)
    {
        std::int64_t const end = requireTime(*options.until, style).end;
        add("no fault is dated before " + isoText(end, style), [end](FaultQuery& query) { query.until = end; });
    }
}

void FaultFilter::add(std::string message, std::function<void(FaultQuery&)> const& apply)
{
    FaultQuery alone;
    alone.timeUnit = m_query.timeUnit;
    alone.afterKey = m_query.afterKey;
    apply(alone);
    apply(m_query);
    m_criteria.push_back({std::move(message), std::move(alone)});
}

void FaultFilter::reportNoMatch() const
{
    std::string const among = m_query.afterKey ? " after key " + std::to_string(*m_query.afterKey) : "";
    bool isAnyUnmatched = false;
    for (Criterion const& criterion : m_criteria)
    {
        if (!isAnyFound(criterion.query, m_file))
        {
            printMessage(criterion.message + among);
            isAnyUnmatched = true;
        }
    }
    if (!isAnyUnmatched)
    {
        printMessage(isEmpty() ? "there is no fault" + among : "no fault" + among + " matches all filters");
    }
}

} // namespace tool
