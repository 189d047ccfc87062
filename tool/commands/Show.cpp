// firaim show: one fault with every field.

#include "../Codes.h"
#include "../Command.h"
#include "../FaultFile.h"
#include "../Json.h"
#include "../Rows.h"
#include "../TextTable.h"

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

void print(Statement const& row, Options const& options, Output& output)
{
    FaultDecoder decoder;
    Fault const& fault = decoder.decode(row);
    bool const isActive = fault.Status == FAULT_ACTIVE;
    auto const number = [](unsigned long long value) { return std::to_string(value); };
    TextTable table(output, {{"FIELD"}, {"VALUE"}}, true);
    table.add({"EntryId", number(fault.EntryId)});
    table.add({"FaultCode", number(fault.FaultCode)});
    table.add({"FaultCodeName", codeText(fault.FaultCode, fault.FaultCodeName)});
    table.add({"Status", {isActive ? "ErrorActive" : "ErrorInactive", isActive ? style_t::ALARM : style_t::FAINT}});
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
    FaultFile const file(options.path);
    Statement row = file.connection().prepare(selectText(file.connection(), faultFormat()) + " WHERE EntryId = ?1");
    row.bind(1, options.key);
    if (!row.step())
    {
        throw Problem(STATUS_NO, options.path + ": there is no fault with the key " + std::to_string(options.key));
    }
    if (options.isJson)
    {
        output.writeLine(jsonText(jsonRow(row, faultFormat(), options.style), output.terminal()));
    }
    else
    {
        print(row, options, output);
    }
    return STATUS_DONE;
}

} // namespace

void addShow(CLI::App& app, Request& request)
{
    CLI::App* const command = addCommand(app, "show", "Show every field of one fault", "  firaim show faults.db 17");
    auto const options = std::make_shared<Options>();
    addFile(*command, options->path);
    addNumber(*command, "ID", options->key, "Its key")->required()->type_name("");
    addTimeStyle(*command, options->style);
    addJson(*command, options->isJson);
    runWith(*command, request, options, show);
}

} // namespace tool
