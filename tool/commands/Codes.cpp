// firaim codes: the fault codes that this program knows.

#include <tool/cli/Command.h>
#include <tool/commands/Commands.h>
#include <tool/formats/Listing.h>
#include <tool/values/Codes.h>
#include <tool/values/Text.h>

namespace tool
{

namespace
{

struct Options
{
    bool isJson = false;
};

int listCodes(Options const& options, Output& output)
{
    Listing listing(output, options.isJson, {{"CODE", true}, {"HEX", true}, {"NAME"}});
    for (Code const& code : knownCodes())
    {
        listing.add(
            [&] {
                return TextTable::Row{std::to_string(code.number), "0x" + hexadecimal(code.number, 4), code.name};
            },
            [&] {
                return Json{{"FaultCode", code.number}, {"FaultCodeName", code.name}};
            });
    }
    listing.end();
    return STATUS_DONE;
}

} // namespace

void addCodes(CommandLine& line, Request& request)
{
    Command command = line.add("codes", "List the known fault codes by number and name", "  firaim codes");
    auto const options = std::make_shared<Options>();
    addJson(command, options->isJson);
    runWith(command, request, options, listCodes);
}

} // namespace tool
