// firaim rescue: saves what can be read of a damaged file into a new one.

#include <tool/cli/Command.h>
#include <tool/commands/Commands.h>
#include <tool/formats/Json.h>
#include <tool/process/Problem.h>
#include <tool/rescue/Rescue.h>
#include <tool/terminal/Progress.h>
#include <tool/terminal/SafeText.h>
#include <tool/values/Text.h>

#include <cstring>
#include <limits>
#include <memory>
#include <optional>

#include <sys/stat.h>

namespace tool
{

namespace
{

struct Options
{
    RescueRequest request;
    bool isJson = false;
};

/// As text, only so many bad pages, missing ranges and differences are named.
constexpr std::size_t kMostLines = 20;

void requireFreeName(RescueRequest const& request)
{
    struct stat damaged = {};
    struct stat target = {};
    bool const isThere = lstat(request.target.c_str(), &target) == 0;
    if (stat(request.damaged.c_str(), &damaged) == 0 && isThere && damaged.st_dev == target.st_dev &&
        damaged.st_ino == target.st_ino)
    {
        throw Problem(STATUS_BAD_USAGE, "rescue: the new file would replace the damaged one; choose another name");
    }
    if (isThere)
    {
        throw Problem(STATUS_BAD_FILE, request.target + ": exists already; choose another name");
    }
    for (char const* const suffix : {"-journal", "-wal"})
    {
        if (request.target == request.damaged + suffix)
        {
            throw Problem(STATUS_BAD_USAGE, "rescue: a new file of that name would be taken for a journal of the "
                                            "damaged one; choose another name");
        }
        std::string const companion = request.target + suffix;
        if (stat(companion.c_str(), &target) == 0 && target.st_size > 0)
        {
            throw Problem(STATUS_BAD_FILE, companion + ": belongs to another file of that name; remove it or choose "
                                                       "another name for the new file");
        }
    }
}

char const* resultName(RescueReport::Result result)
{
    switch (result)
    {
    case RescueReport::COMPLETE:
        return "complete";
    case RescueReport::PARTIAL:
        return "partial";
    default:
        return "nothing";
    }
}

int statusOf(RescueReport::Result result)
{
    switch (result)
    {
    case RescueReport::COMPLETE:
        return STATUS_DONE;
    case RescueReport::PARTIAL:
        return STATUS_NO;
    default:
        return STATUS_BAD_FILE;
    }
}

/// The first of a range of keys; none if nothing limits it.
std::optional<std::int64_t> firstOf(KeyRange const& keys)
{
    return keys.first == std::numeric_limits<std::int64_t>::min() ? std::nullopt : std::optional(keys.first);
}

std::optional<std::int64_t> lastOf(KeyRange const& keys)
{
    return keys.last == std::numeric_limits<std::int64_t>::max() ? std::nullopt : std::optional(keys.last);
}

Json jsonKey(std::optional<std::int64_t> const& key)
{
    return key ? Json(*key) : Json(nullptr);
}

Json jsonMissing(MissingKeys const& missing)
{
    Json ranges = Json::array();
    for (MissingKeys::Range const& range : missing.ranges)
    {
        ranges.push_back({{"first", range.first}, {"last", jsonKey(range.last)}});
    }
    return ranges;
}

Json jsonPages(RescueReport const& report)
{
    Json bad = Json::array();
    for (RescueReport::BadPage const& page : report.badPages)
    {
        bad.push_back({{"page", page.page == 0 ? Json(nullptr) : Json(page.page)},
                       {"table", page.table},
                       {"first", jsonKey(firstOf(page.keys))},
                       {"last", jsonKey(lastOf(page.keys))},
                       {"reason", page.reason}});
    }
    return {{"has", report.pageCount}, {"should", report.statedPageCount}, {"bad", bad}};
}

void printReportAsJson(Options const& options, RescueReport const& report, Output& output)
{
    Json steps = Json::array();
    for (RescueReport::Step const& step : report.steps)
    {
        steps.push_back({{"step", step.name}, {"text", step.text}});
    }
    bool const isNew = report.result != RescueReport::NOTHING;
    printJson({{"file", options.request.damaged},
               {"new", isNew ? Json(options.request.target) : Json(nullptr)},
               {"result", resultName(report.result)},
               {"recovered", report.recovered},
               {"doubtful", report.doubtful},
               {"missing", jsonMissing(report.missing)},
               {"missingIsExact", report.missing.isExact},
               {"pages", jsonPages(report)},
               {"statistics",
                {{"kept", report.keptStatistics},
                 {"rebuilt", report.rebuiltStatistics},
                 {"differences", report.differences}}},
               {"steps", steps}},
              output);
}

std::string keysText(std::optional<std::int64_t> const& first, std::optional<std::int64_t> const& last)
{
    if (first && last)
    {
        return *first == *last ? std::to_string(*first) : std::to_string(*first) + " to " + std::to_string(*last);
    }
    return first ? "from " + std::to_string(*first) + " on" : last ? "up to " + std::to_string(*last) : "any";
}

std::string badPageText(RescueReport::BadPage const& page)
{
    std::string const name = page.page == 0 ? "the root page" : "page " + std::to_string(page.page);
    return page.table + ": " + name + " " + page.reason + " (keys: " + keysText(firstOf(page.keys), lastOf(page.keys)) +
           ")";
}

/// Prints lines that begin with the same word, the first ones of many.
template <class Items, class TextOf>
void printLines(char const* word, Items const& items, TextOf const& textOf, Output& output)
{
    std::size_t count = 0;
    for (auto const& item : items)
    {
        if (++count > kMostLines)
        {
            break;
        }
        output.writeLine(word + std::string(": ") + escape(textOf(item), output.terminal().isAsciiOnly()));
    }
    if (items.size() > kMostLines)
    {
        output.writeLine(word + std::string(": and ") + grouped(items.size() - kMostLines) + " more");
    }
}

std::string summaryText(Options const& options, RescueReport const& report)
{
    if (report.result == RescueReport::NOTHING)
    {
        return options.request.damaged + ": nothing could be rescued; there is no new file";
    }
    std::string const doubtful =
        report.doubtful == 0 ? "" : ", " + grouped(report.doubtful) + " doubtful in RescuedDoubtfulTbl";
    return options.request.target + ": " + resultName(report.result) + ", " + counted(report.recovered, "fault") +
           " recovered" + doubtful;
}

void printReportAsText(Options const& options, RescueReport const& report, Output& output)
{
    bool const isAsciiOnly = output.terminal().isAsciiOnly();
    for (RescueReport::Step const& step : report.steps)
    {
        output.writeLine(std::string(step.name) + ": " + escape(step.text, isAsciiOnly));
    }
    output.writeLine("file: has " + counted(report.pageCount, "page") + " of " + grouped(report.statedPageCount));
    printLines("bad", report.badPages, badPageText, output);
    printLines(
        "difference", report.differences, [](std::string const& text) { return text; }, output);
    printLines(
        report.missing.isExact ? "missing" : "perhaps missing", report.missing.ranges,
        [](MissingKeys::Range const& range)
        { return "faults " + keysText(range.first, range.last) + (range.last ? "" : "; the last key is not known"); },
        output);
    output.writeLine(escape(summaryText(options, report), isAsciiOnly));
}

/// Shows each phase with a bar of its own.
class Phases
{
public:
    void show(char const* phase, double share)
    {
        if (std::strcmp(phase, m_phase) != 0)
        {
            m_phase = phase;
            m_progress = std::make_unique<Progress>(phase);
        }
        m_progress->show(share);
    }

private:
    char const* m_phase = "";
    std::unique_ptr<Progress> m_progress;
};

int rescue(Options const& options, Output& output)
{
    requireFreeName(options.request);
    Phases phases;
    RescueReport const report =
        rescueFile(options.request, [&](char const* phase, double share) { phases.show(phase, share); });
    Progress::clearShown();
    options.isJson ? printReportAsJson(options, report, output) : printReportAsText(options, report, output);
    return statusOf(report.result);
}

} // namespace

void addRescue(CommandLine& line, Request& request)
{
    Command command =
        line.add("rescue", "Save what can be read of a damaged file", "  firaim rescue damaged.db rescued.db");
    auto const options = std::make_shared<Options>();
    command.argument("DAMAGED", options->request.damaged, "Damaged fault database; never written to");
    command.argument("NEW", options->request.target, "File to create");
    command.flag("--json", options->isJson, "Print the report as JSON");
    command.flag("--free-pages", options->request.areFreePagesTaken, "Also read free pages; their faults are doubtful");
    runWith(command, request, options, rescue);
}

} // namespace tool
