// firaim list: faults as a table, the newest first.

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
    FilterOptions filter;
    TimeStyle style;
    std::optional<unsigned long long> last;
    bool isJson = false;
};

class Lister
{
public:
    Lister(Options const& options, Output& output)
        : m_options(options), m_output(output), m_table(output, {{"ID", true},
                                                                 {"TIME"},
                                                                 {"FAULT"},
                                                                 {"STATUS"},
                                                                 {"MODULE", false, true, 3},
                                                                 {"PARAMETER", false, true, 2},
                                                                 {"STARTUP", true, false, 1},
                                                                 {"DESCRIPTION", false, true, 4}})
    {
        if (options.isJson)
        {
            m_array.emplace(output);
        }
    }

    void add(Statement const& row, Fault const& fault)
    {
        if (m_array)
        {
            m_array->add(jsonRow(row, faultFormat(), m_options.style));
            return;
        }
        bool const isActive = fault.Status == FAULT_ACTIVE;
        m_table.add({std::to_string(fault.EntryId),
                     stampText(fault.TimeStampUTC, m_options.style),
                     codeText(fault.FaultCode, fault.FaultCodeName),
                     {isActive ? "active" : "inactive", isActive ? style_t::ALARM : style_t::FAINT},
                     fault.ModuleName,
                     fault.Parameter,
                     std::to_string(fault.RdbStartupId),
                     fault.Description});
    }

    void end()
    {
        if (m_array)
        {
            m_array->end();
            m_output.writeLine("");
        }
        else
        {
            m_table.end();
        }
    }

private:
    Options const& m_options;
    Output& m_output;
    TextTable m_table;
    std::optional<JsonArray> m_array;
};

int list(Options const& options, Output& output)
{
    FaultFile const file(options.path);
    FaultFilter filter(options.filter, options.style, file.connection());
    RowReader reader(file.connection(), faultFormat(), order_t::NEWEST_FIRST, rangeOf(options.filter));
    FaultDecoder decoder;
    Lister lister(options, output);
    unsigned long long left = options.last.value_or(std::numeric_limits<unsigned long long>::max());
    bool isAnyListed = false;
    reader.read(
        [&](Statement const& row)
        {
            if (left == 0)
            {
                return false;
            }
            Fault const& fault = decoder.decode(row);
            if (filter.accepts(fault))
            {
                lister.add(row, fault);
                isAnyListed = true;
                --left;
            }
            return left > 0;
        },
        [&] { output.flush(); });
    lister.end();
    if (!isAnyListed && options.last != 0)
    {
        reportUnanswered(filter, options.filter);
    }
    return STATUS_DONE;
}

} // namespace

void addList(CLI::App& app, Request& request)
{
    CLI::App* const command = addCommand(app, "list", "List faults, the newest first",
                                         "  firaim list faults.db --last 20\n"
                                         "  firaim list faults.db --code FC_BUS_OFF --since 2031-05-04");
    auto const options = std::make_shared<Options>();
    addFile(*command, options->path);
    addFilters(*command, options->filter);
    addNumber(*command, "--last", options->last, "No more than the newest N of them");
    addTimeStyle(*command, options->style);
    addJson(*command, options->isJson);
    runWith(*command, request, options, list);
}

} // namespace tool
