// firaim record and firaim clear: faults that begin and end.

#include "../Codes.h"
#include "../Command.h"
#include "../FaultJson.h"
#include "../Interrupt.h"
#include "../LineReader.h"
#include "../Progress.h"
#include "../Recorder.h"
#include "../Text.h"

#include <chrono>
#include <stdexcept>
#include <utility>
#include <vector>

namespace tool
{

namespace
{

constexpr std::size_t kLongestLine = 16 << 20;
/// How long other writers may have to wait for one transaction of many faults.
constexpr std::chrono::milliseconds kLongestBatch(100);

struct Options
{
    std::string path;
    std::string code;
    std::string time;
    TimeStyle style;
    FaultRequest request;
    bool isInactive = false;
    bool isFromInput = false;
};

unsigned int requireCode(std::string const& text)
{
    std::optional<unsigned int> const code = codeOf(text);
    if (!code)
    {
        throw Problem(STATUS_BAD_USAGE, unknownCodeText(text));
    }
    return *code;
}

/// The fault that the options describe.
FaultRequest requestOf(Options const& options)
{
    FaultRequest request = options.request;
    request.fault.FaultCode = static_cast<faultCode_t>(requireCode(options.code));
    request.fault.Status = options.isInactive ? FAULT_INACTIVE : FAULT_ACTIVE;
    if (!options.time.empty())
    {
        request.time = requireTime(options.time, options.style).begin;
        if (*request.time < 0)
        {
            throw Problem(STATUS_BAD_USAGE, "'" + options.time + "' lies before 1970, where time stamps begin");
        }
    }
    return request;
}

/// Records one fault and names it.
void recordAndName(Recorder& recorder, FaultRequest const& request, Output& output)
{
    unsigned long long key = 0;
    try
    {
        key = recorder.record(request);
    }
    catch (std::invalid_argument const& problem)
    {
        throw Problem(STATUS_BAD_USAGE, problem.what());
    }
    recorder.commit();
    try
    {
        output.writeLine(std::to_string(key));
        output.flush();
    }
    catch (...)
    {
        complain("the fault was recorded all the same, with the key " + std::to_string(key));
        throw;
    }
}

int recordOne(Options const& options, Output& output)
{
    FaultRequest const request = requestOf(options);
    Recorder recorder(options.path, options.style);
    recorder.begin();
    recordAndName(recorder, request, output);
    return STATUS_DONE;
}

/// Records the faults of many lines, several in one transaction, and never waits for input inside of one.
class InputRecorder
{
public:
    InputRecorder(Options const& options, Output& output)
        : m_options(options), m_output(output), m_recorder(options.path, options.style), m_input(kLongestLine),
          m_progress("recording")
    {
    }

    /// Returns whether every line was recorded.
    bool run()
    {
        try
        {
            recordAll();
        }
        catch (interrupt::Interrupted const&)
        {
            commitLast();
            throw;
        }
        catch (...)
        {
            nameLost();
            throw;
        }
        return m_areAllRecorded;
    }

private:
    void recordAll()
    {
        std::size_t const total = m_input.total();
        while (readLine())
        {
            if (total == 0)
            {
                m_progress.show(counted(m_lineNumber, "line"));
            }
            else
            {
                m_progress.show(static_cast<double>(m_input.taken()) / static_cast<double>(total));
            }
        }
        commit();
    }

    /// After a signal: these lines were taken; who sent them is told what became of them.
    void commitLast()
    {
        try
        {
            commit();
        }
        catch (...)
        {
            nameLost();
            throw;
        }
        nameLost(); // The one at work, if there is one.
    }

    /// Says which lines were taken and are not recorded now.
    void nameLost()
    {
        unsigned long long const first = m_keys.empty() ? m_lineAtWork : m_batchBegin;
        if (first != 0)
        {
            complain("lines " + std::to_string(first) + " to " + std::to_string(m_lineNumber) + ": not recorded");
        }
        m_keys.clear();
        m_lineAtWork = 0;
    }

    /// Takes the next line; returns whether there was one.
    bool readLine()
    {
        while (!m_input.hasLine())
        {
            commit();
            m_input.fill();
        }
        interrupt::check();
        std::string line;
        bool isTooLong = false;
        if (!m_input.take(line, isTooLong))
        {
            return false;
        }
        ++m_lineNumber;
        if (isTooLong)
        {
            refuse("longer than " + std::to_string(kLongestLine >> 20) + " MiB");
        }
        else if (line.find_first_not_of(" \t\r") != std::string::npos)
        {
            record(line);
        }
        return true;
    }

    void record(std::string const& line)
    {
        FaultRequest request;
        try
        {
            request = readFault(line, m_options.style);
        }
        catch (std::invalid_argument const& problem)
        {
            refuse(problem.what());
            return;
        }
        auto const now = std::chrono::steady_clock::now();
        m_lineAtWork = m_lineNumber;
        if (m_keys.empty())
        {
            m_recorder.begin();
            m_batchBegin = m_lineNumber;
            m_batchEnd = now + kLongestBatch;
        }
        try
        {
            m_keys.push_back(m_recorder.record(request));
        }
        catch (std::invalid_argument const& problem)
        {
            refuse(problem.what());
        }
        catch (...)
        {
            nameLost(); // The whole transaction is gone.
            throw;
        }
        m_lineAtWork = 0;
        if (now >= m_batchEnd || m_keys.empty())
        {
            commit();
        }
    }

    void refuse(std::string const& reason)
    {
        m_progress.clear();
        complain("line " + std::to_string(m_lineNumber) + ": " + reason);
        m_areAllRecorded = false;
    }

    /// Makes the faults last and names them.
    void commit()
    {
        m_recorder.commit();
        m_progress.clear();
        std::vector<unsigned long long> const recorded = std::move(m_keys);
        m_keys.clear();
        if (recorded.empty())
        {
            return;
        }
        try
        {
            for (unsigned long long const key : recorded)
            {
                m_output.writeLine(std::to_string(key));
            }
            m_output.flush();
        }
        catch (...)
        {
            complain("faults up to key " + std::to_string(recorded.back()) + " were recorded all the same");
            throw;
        }
    }

    Options const& m_options;
    Output& m_output;
    Recorder m_recorder;
    LineReader m_input;
    Progress m_progress;
    std::vector<unsigned long long> m_keys; ///< of the transaction that is open
    unsigned long long m_batchBegin = 0;    ///< its first line
    std::chrono::steady_clock::time_point m_batchEnd;
    unsigned long long m_lineNumber = 0;
    unsigned long long m_lineAtWork = 0; ///< 0 between two lines
    bool m_areAllRecorded = true;
};

int record(Options const& options, Output& output)
{
    if (options.isFromInput)
    {
        return InputRecorder(options, output).run() ? STATUS_DONE : STATUS_NO;
    }
    if (options.code.empty())
    {
        throw Problem(STATUS_BAD_USAGE, "record: --code or --stdin is required");
    }
    return recordOne(options, output);
}

int clear(Options const& options, Output& output)
{
    FaultRequest request = requestOf(options);
    request.fault.Status = FAULT_INACTIVE;
    Recorder recorder(options.path, options.style);
    recorder.begin();
    std::optional<FaultStatistic> const statistic = recorder.statisticOf(request.fault.FaultCode);
    if (!statistic || statistic->FaultActive != FAULT_ACTIVE)
    {
        throw Problem(STATUS_NO, options.path + ": " + options.code +
                                     (statistic ? " is not active" : " has never occurred") + "; nothing was recorded");
    }
    // The fault that ends names what the fault that began did.
    std::optional<Fault> const begun = recorder.faultWith(statistic->FaultEntryId);
    request.fault.FaultCodeName = statistic->FaultCodeName;
    if (begun && request.fault.ModuleName.empty())
    {
        request.fault.ModuleName = begun->ModuleName;
    }
    if (begun && request.fault.Parameter.empty())
    {
        request.fault.Parameter = begun->Parameter;
    }
    recordAndName(recorder, request, output);
    return STATUS_DONE;
}

/// The options that describe a fault; returns them, so that others can exclude them.
std::vector<CLI::Option*> addFaultOptions(CLI::App& command, Options& options)
{
    Fault& fault = options.request.fault;
    return {
        command.add_option("--module", fault.ModuleName, "Module that reports it")->type_name("NAME"),
        command.add_option("--param", fault.Parameter, "Parameter")->type_name("TEXT"),
        command.add_option("--description", fault.Description, "Description")->type_name("TEXT"),
        addNumber(command, "--startup", options.request.startup, "Start-up id; that of the newest fault if absent"),
        command.add_option("--time", options.time, "Time, such as 2031-05-04T03:02:01Z; now if absent")
            ->type_name("TIME"),
        command.add_option("--time-zone", fault.TimeZone, "Time zone of the device; UTC if absent")->type_name("TEXT"),
        command.add_option("--signals-file", fault.DiagSignalsDumpFileName, "File with dumped signals")
            ->type_name("NAME"),
        command.add_option("--config-backup", fault.CfgBackupFile, "Configuration backup")->type_name("NAME"),
        addNumber(command, "--up-time", fault.LoggerUpTime, "Up-time of the device"),
        addNumber(command, "--life-time", fault.LoggerLifeTime, "Life-time of the device")};
}

} // namespace

void addRecord(CLI::App& app, Request& request)
{
    CLI::App* const command =
        addCommand(app, "record", "Record a fault and count it in the statistic of its code; print its key",
                   "  firaim record faults.db --code FC_BUS_OFF --module can0 --description \"no answer\"\n"
                   "  firaim export old.db --format jsonl | firaim record faults.db --stdin");
    auto const options = std::make_shared<Options>();
    addFile(*command, options->path);
    std::vector<CLI::Option*> described = {
        command->add_option("--code", options->code, "Its code, by name or number")->type_name("CODE"),
        command->add_flag("--inactive", options->isInactive, "It is over: recorded as inactive, and not counted")};
    for (CLI::Option* const option : addFaultOptions(*command, *options))
    {
        described.push_back(option);
    }
    CLI::Option* const input = command->add_flag("--stdin", options->isFromInput,
                                                 "Read many from standard input, each a line of JSON; the fields are "
                                                 "the columns of the file or these options");
    for (CLI::Option* const option : described)
    {
        input->excludes(option);
    }
    addTimeStyle(*command, options->style);
    runWith(*command, request, options, record);
}

void addClear(CLI::App& app, Request& request)
{
    CLI::App* const command =
        addCommand(app, "clear", "Mark the statistic of a code as inactive and record that the fault is over",
                   "  firaim clear faults.db --code FC_BUS_OFF");
    auto const options = std::make_shared<Options>();
    addFile(*command, options->path);
    command->add_option("--code", options->code, "The code, by name or number")->required()->type_name("CODE");
    addFaultOptions(*command, *options);
    addTimeStyle(*command, options->style);
    runWith(*command, request, options, clear);
}

} // namespace tool
