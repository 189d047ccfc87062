#include "FaultFilter.h"

#include "Codes.h"
#include "Output.h"
#include "Text.h"

#include <utility>

namespace tool
{

namespace
{

/// The number of a code that only the file knows by name: a device may have its own table.
std::optional<unsigned int> codeInFile(std::string const& name, Connection const& connection)
{
    for (char const* const table : {"FdbFaultStatisticTbl", "FdbFaultTbl"})
    {
        Statement statement = connection.prepare("SELECT FaultCode FROM " + std::string(table) +
                                                 " WHERE FaultCodeName = ?1 COLLATE NOCASE LIMIT 1");
        if (statement.bind(1, name).step())
        {
            return static_cast<unsigned int>(statement.integer(0));
        }
    }
    return std::nullopt;
}

unsigned int requireCode(std::string const& text, Connection const& connection)
{
    std::optional<unsigned int> code = codeOf(text);
    if (!code)
    {
        code = codeInFile(text, connection);
    }
    if (!code)
    {
        throw Problem(STATUS_BAD_USAGE, unknownCodeText(text));
    }
    return *code;
}

bool mentions(Fault const& fault, std::string const& text)
{
    for (std::string const* const member : {&fault.Description, &fault.Parameter, &fault.ModuleName,
                                            &fault.FaultCodeName, &fault.DiagSignalsDumpFileName, &fault.CfgBackupFile})
    {
        if (containsIgnoringCase(*member, text))
        {
            return true;
        }
    }
    return false;
}

} // namespace

bool FilterOptions::areSet() const
{
    return code || module || grep || since || until || startup || after || isActiveOnly;
}

keyRange_t rangeOf(FilterOptions const& options)
{
    keyRange_t range;
    if (options.after)
    {
        if (*options.after == range.last)
        {
            throw Problem(STATUS_BAD_USAGE, "no key is larger than " + std::to_string(range.last));
        }
        range.first = *options.after + 1;
    }
    return range;
}

void reportUnanswered(FaultFilter const& filter, FilterOptions const& options)
{
    std::string const among = options.after ? " after key " + std::to_string(*options.after) : "";
    std::vector<std::string> const complaints = filter.unanswered();
    for (std::string const& complaint : complaints)
    {
        complain(complaint + among);
    }
    if (complaints.empty())
    {
        complain(filter.isEmpty() ? "there is no fault" + among
                                  : "no fault" + among + " answers to all that was asked for");
    }
}

period_t requireTime(std::string const& text, TimeStyle const& style)
{
    std::optional<period_t> const period = parseTime(text, style);
    if (!period)
    {
        throw Problem(STATUS_BAD_USAGE,
                      "'" + text + "' is no time; write it as 2031-05-04, 2031-05-04T03:02 or 2031-05-04T03:02:01Z");
    }
    return *period;
}

FaultFilter::FaultFilter(FilterOptions const& options, TimeStyle const& style, Connection const& connection)
{
    if (options.code)
    {
        unsigned int const code = requireCode(*options.code, connection);
        add("no fault has the code " + *options.code,
            [code](Fault const& fault) { return static_cast<unsigned int>(fault.FaultCode) == code; });
    }
    if (options.module)
    {
        add("no fault is of the module '" + *options.module + "'",
            [module = *options.module](Fault const& fault) { return fault.ModuleName == module; });
    }
    if (options.startup)
    {
        add("no fault has the start-up id " + std::to_string(*options.startup),
            [startup = *options.startup](Fault const& fault) { return fault.RdbStartupId == startup; });
    }
    if (options.isActiveOnly)
    {
        add("no fault was recorded as active", [](Fault const& fault) { return fault.Status == FAULT_ACTIVE; });
    }
    if (options.grep)
    {
        add("no fault mentions '" + *options.grep + "'",
            [text = *options.grep](Fault const& fault) { return mentions(fault, text); });
    }
    addTimes(options, style);
}

void FaultFilter::addTimes(FilterOptions const& options, TimeStyle const& style)
{
    if (options.since)
    {
        std::int64_t const begin = requireTime(*options.since, style).begin;
        add("no fault is dated " + isoText(begin, style) + " or later",
            [begin, style](Fault const& fault)
            {
                std::optional<std::int64_t> const time = timeOf(fault.TimeStampUTC, style);
                return time && *time >= begin;
            });
    }
    if (options.until)
    {
        std::int64_t const end = requireTime(*options.until, style).end;
        add("no fault is dated before " + isoText(end, style),
            [end, style](Fault const& fault)
            {
                std::optional<std::int64_t> const time = timeOf(fault.TimeStampUTC, style);
                return time && *time < end;
            });
    }
}

void FaultFilter::add(std::string complaint, std::function<bool(Fault const&)> holds)
{
    m_criteria.push_back({std::move(complaint), std::move(holds)});
}

bool FaultFilter::accepts(Fault const& fault)
{
    bool isAccepted = true;
    // All are asked, so that each can tell whether anything answers to it.
    for (criterion_t& criterion : m_criteria)
    {
        bool const holds = criterion.holds(fault);
        criterion.isAnswered = criterion.isAnswered || holds;
        isAccepted = isAccepted && holds;
    }
    return isAccepted;
}

std::vector<std::string> FaultFilter::unanswered() const
{
    std::vector<std::string> complaints;
    for (criterion_t const& criterion : m_criteria)
    {
        if (!criterion.isAnswered)
        {
            complaints.push_back(criterion.complaint);
        }
    }
    return complaints;
}

} // namespace tool
