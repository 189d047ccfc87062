// A soak: two recording processes with several threads, a reader and `firaim watch` work on one file while processes
// are killed, the storage is full and the file is pulled. What they have acknowledged is compared with the file.
//
//   soak SECONDS [--seed N] [--pull-closed] [--sabotage lie|row|cell|statistic] [--verbose]
//
// With --pull-closed the file is pulled only while no recorder has it open. Ends at the first violation, prints it with
// the seed, and keeps the files. With --sabotage a promise is broken on purpose, and the soak fails unless it notices
// that.

#include "Conductor.h"
#include "Violation.h"

#include <csignal>
#include <cstdio>
#include <map>
#include <random>

#include <unistd.h>

namespace
{

using soak::Sabotage;

struct Options
{
    unsigned int seconds = 0;
    std::uint64_t seed = std::random_device()();
    Sabotage sabotage = Sabotage::NONE;
    bool canPull = true;
    bool isVerbose = isatty(STDOUT_FILENO) != 0;
};

int usage()
{
    std::fputs("usage: soak SECONDS [--seed N] [--pull-closed] [--sabotage lie|row|cell|statistic] [--verbose]\n",
               stderr);
    return 2;
}

bool isNumber(std::string const& text)
{
    return !text.empty() && text.size() < 10 && text.find_first_not_of("0123456789") == std::string::npos;
}

bool parse(std::vector<std::string> const& arguments, Options& options)
{
    static std::map<std::string, Sabotage> const kSabotages = {
        {"lie", Sabotage::LIE}, {"row", Sabotage::ROW}, {"cell", Sabotage::CELL}, {"statistic", Sabotage::STATISTIC}};
    for (std::size_t i = 0; i < arguments.size(); ++i)
    {
        std::string const value = i + 1 < arguments.size() ? arguments[i + 1] : "";
        if (i == 0 && isNumber(arguments[i]))
        {
            options.seconds = static_cast<unsigned int>(std::stoul(arguments[i]));
        }
        else if (arguments[i] == "--seed" && isNumber(value))
        {
            options.seed = std::stoull(arguments[++i]);
        }
        else if (arguments[i] == "--sabotage" && kSabotages.count(value) != 0)
        {
            options.sabotage = kSabotages.at(arguments[++i]);
        }
        else if (arguments[i] == "--pull-closed")
        {
            options.canPull = false;
        }
        else if (arguments[i] == "--verbose")
        {
            options.isVerbose = true;
        }
        else
        {
            return false;
        }
    }
    return options.seconds > 0;
}

int soakWith(Options const& options)
{
    soak::Conductor conductor(options.seed, options.sabotage, options.canPull, options.isVerbose);
    bool const isSabotaged = options.sabotage != Sabotage::NONE;
    try
    {
        conductor.run(options.seconds);
    }
    catch (soak::Violation const& violation)
    {
        if (isSabotaged)
        {
            std::printf("soak: noticed: %s\n", violation.what());
            return 0;
        }
        std::string const diagnosis = conductor.diagnosis();
        std::printf("%s\nsoak: FAILED: %s\n", diagnosis.c_str(), violation.what());
        return 1;
    }
    std::printf("soak: %u s, %s, seed %llu\n", options.seconds, conductor.summary().c_str(),
                static_cast<unsigned long long>(options.seed));
    if (isSabotaged)
    {
        std::puts("soak: FAILED: the sabotage was not noticed");
    }
    return isSabotaged ? 1 : 0;
}

} // namespace

int main(int argc, char** argv)
{
    std::signal(SIGPIPE, SIG_IGN); // A killed process does not read its commands.
    Options options;
    if (!parse({argv + 1, argv + argc}, options))
    {
        return usage();
    }
    return soakWith(options);
}
