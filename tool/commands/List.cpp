// firaim list: faults as a table, the newest first.

#include <tool/cli/Command.h>
#include <tool/commands/Commands.h>
#include <tool/formats/Json.h>
#include <tool/formats/Listing.h>
#include <tool/formats/StatusCell.h>
#include <tool/store/FaultFile.h>
#include <tool/store/FaultFilter.h>
#include <tool/store/FaultReading.h>
#include <tool/values/Codes.h>

namespace tool
{

namespace
{

struct Options
{
    std::string path;
    FilterOptions filter;
    TimeStyle style;
    std::optional<unsigned long long> last;
    bool isJson = false;
};

TextTable::Row cellsOf(Fault const& fault, TimeStyle const& style)
{
    return {std::to_string(fault.EntryId),
            stampText(fault.TimeStampUTC, style),
            codeText(fault.FaultCode, fault.FaultCodeName),
            statusCell(fault.Status),
            fault.ModuleName,
            fault.Parameter,
            std::to_string(fault.RdbStartupId),
            fault.Description};
}

int list(Options const& options, Output& output)
{
    FaultFile file(options.path, FaultFile::AroundDamage());
    FaultFilter const filter(options.filter, options.style, file);
    firaim::FaultQuery query = filter.query();
    query.limit = options.last;
    FaultReading faults(file, query);
    Listing listing(output, options.isJson,
                    {{"ID", true},
                     {"TIME"},
                     {"FAULT"},
                     {"STATUS"},
                     {"MODULE", false, true, 3},
                     {"PARAMETER", false, true, 2},
                     {"STARTUP", true, false, 1},
                     {"DESCRIPTION", false, true, 4}});
    Fault fault;
    bool isAnyListed = false;
    while (faults.next(fault))
    {
        listing.add([&] { return cellsOf(fault, options.style); },
                    [&] { return jsonRow(faults.row(), faultSchema(), options.style); });
        isAnyListed = true;
        output.flushIfLarge();
    }
    listing.end();
    if (!isAnyListed && options.last != 0)
    {
        filter.reportNoMatch();
    }
    return file.reportDamage();
}

} // namespace

void addList(CommandLine& line, Request& request)
{
    Command command = line.add("list", "List faults, the newest first",
                               "  firaim list faults.db --last 20\n"
                               "  firaim list faults.db --code FC_BUS_OFF --since 2031-05-04");
    auto const options = std::make_shared<Options>();
    addFile(command, options->path);
    addFilters(command, options->filter);
    command.number("--last", options->last, "At most the newest N of these faults");
    addTimeStyle(command, options->style);
    addJson(command, options->isJson);
    runWith(command, request, options, list);
}

} // namespace tool
