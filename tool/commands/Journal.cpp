// firaim journal: prints or changes the journal of a file.

#include <tool/cli/Command.h>
#include <tool/commands/Commands.h>
#include <tool/formats/Json.h>
#include <tool/store/Journal.h>

namespace tool
{

namespace
{

struct Options
{
    std::string path;
    std::string journal;
    bool isJson = false;
};

int runJournal(Options const& options, Output& output)
{
    if (!options.journal.empty())
    {
        changeJournal(options.path, journalNamed(options.journal));
        return STATUS_DONE;
    }
    std::string const name = nameOf(journalOf(options.path));
    if (options.isJson)
    {
        printJson(Json{{"File", options.path}, {"Journal", name}}, output);
    }
    else
    {
        output.writeLine(name);
    }
    return STATUS_DONE;
}

} // namespace

void addJournal(CommandLine& line, Request& request)
{
    Command command = line.add("journal", "Print or change the journal of a file",
                               "  firaim journal faults.db\n"
                               "  firaim journal faults.db wal");
    auto const options = std::make_shared<Options>();
    addFile(command, options->path);
    Option journal = command.text("JOURNAL", options->journal,
                                  "New journal: rollback, or wal for a write-ahead log; without it, the present one is "
                                  "printed",
                                  "");
    journal.allow(journalNames());
    bool& isJson = options->isJson;
    command.flag("--json", isJson, "Print JSON").exclude(journal);
    runWith(command, request, options, runJournal);
}

} // namespace tool
