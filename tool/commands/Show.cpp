// firaim show: one fault with every field.

#include <tool/cli/Command.h>
#include <tool/commands/Commands.h>
#include <tool/formats/Json.h>
#include <tool/formats/StatusCell.h>
#include <tool/store/FaultReading.h>
#include <tool/terminal/TextTable.h>
#include <tool/values/Codes.h>

#include <limits>

namespace tool
{

namespace
{

struct Options
{
    std::string path;
    long long key = 0;
    TimeStyle style;
    bool isJson = false;
};

/// The query for the fault with that key.
firaim::FaultQuery queryOf(long long key)
{
    firaim::FaultQuery query;
    if (key > std::numeric_limits<long long>::min())
    {
        query.afterKey = key - 1;
    }
    if (key < std::numeric_limits<long long>::max())
    {
        query.beforeKey = key + 1;
    }
    return query;
}

void print(Fault const& fault, Options const& options, Output& output)
{
    auto const number = [](unsigned long long value) { return std::to_string(value); };
    TextTable table(output, {{"FIELD"}, {"VALUE"}}, true);
    table.add({"EntryId", number(fault.EntryId)});
    table.add({"FaultCode", number(fault.FaultCode)});
    table.add({"FaultCodeName", codeText(fault.FaultCode, fault.FaultCodeName)});
    table.add({"Status", storedStatusCell(fault.Status)});
    table.add({"Time", stampText(fault.TimeStampUTC, options.style)});
    table.add({"TimeStampUTC", number(fault.TimeStampUTC)});
    table.add({"TimeZone", fault.TimeZone});
    table.add({"DateTimeString", fault.DateTimeString});
    table.add({"SystemDateTimeString", fault.SystemDateTimeString});
    table.add({"ModuleName", fault.ModuleName});
    table.add({"Parameter", fault.Parameter});
    table.add({"Description", fault.Description});
    table.add({"DiagSignalsDumpFileName", fault.DiagSignalsDumpFileName});
    table.add({"LoggerUpTime", number(fault.LoggerUpTime)});
    table.add({"LoggerLifeTime", number(fault.LoggerLifeTime)});
    table.add({"CfgBackupFile", fault.CfgBackupFile});
    table.add({"RdbStartupId", number(fault.RdbStartupId)});
    table.end();
}

int show(Options const& options, Output& output)
{
    FaultFile file(options.path, FaultFile::AroundDamage());
    FaultReading faults(file, queryOf(options.key));
    Fault fault;
    if (!faults.next(fault))
    {
        static_cast<void>(file.reportDamage());
        throw Problem(STATUS_NO, options.path + ": there is no fault with the key " + std::to_string(options.key));
    }
    if (options.isJson)
    {
        printJson(jsonRow(faults.row(), faultSchema(), options.style), output);
    }
    else
    {
        print(fault, options, output);
    }
    return STATUS_DONE;
}

} // namespace

void addShow(CommandLine& line, Request& request)
{
    Command command = line.add("show", "Show every field of one fault", "  firaim show faults.db 17");
    auto const options = std::make_shared<Options>();
    addFile(command, options->path);
    command.number("ID", options->key, "Key of the fault", "").require();
    addTimeStyle(command, options->style);
    addJson(command, options->isJson);
    runWith(command, request, options, show);
}

} // namespace tool
