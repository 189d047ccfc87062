#include <tool/checking/IntegrityCheck.h>

#include <tool/checking/CheckKinds.h>
#include <tool/process/Interrupt.h>
#include <tool/values/Text.h>

#include <db/internal/TimeLimits.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <string_view>
#include <utility>
#include <vector>

namespace tool
{

namespace
{

/// Instructions of SQLite's virtual machine between two ticks: about a millisecond.
constexpr int kInstructionsPerTick = 10000;
/// Problems that SQLite looks for in one run.
constexpr char kMostProblems[] = "100";
/// For a schema of another origin: far more than SQLite needs for a file of that size on a slow device.
constexpr double kBytesPerSecond = 1 << 20;
constexpr int kLongestCell = 64 << 20;

double processorTime()
{
    timespec time = {};
    static_cast<void>(clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time)); // Every Linux has this clock.
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

/// All tables of the file, the internal ones included.
std::vector<std::string> tablesOf(sqlite::Connection const& connection)
{
    std::vector<std::string> tables = {"sqlite_master"};
    sqlite::Statement statement =
        connection.prepare("SELECT replace(name, '''', '''''') FROM sqlite_master WHERE type = 'table' AND rootpage > "
                           "0 ORDER BY rowid");
    while (statement.step())
    {
        tables.emplace_back(statement.text(0));
    }
    return tables;
}

/// Whether SQLite says that a page could not be read, with an error of the storage.
bool isFailedRead(std::string const& line)
{
    constexpr std::string_view kCode = "unable to get the page. error code=";
    std::size_t const begin = line.find(kCode);
    return begin != std::string::npos && (std::atoi(line.c_str() + begin + kCode.size()) & 0xff) == SQLITE_IOERR;
}

} // namespace

IntegrityCheck::IntegrityCheck(sqlite::Connection const& connection,
                               std::function<void(FindingKind const&, std::string const&)> take,
                               std::function<void()> tick)
    : m_connection(connection), m_take(std::move(take)), m_tick(std::move(tick))
{
    sqlite3_progress_handler(connection.get(), kInstructionsPerTick, onProgress, this);
}

IntegrityCheck::~IntegrityCheck()
{
    sqlite3_progress_handler(m_connection.get(), 0, nullptr, nullptr);
}

int IntegrityCheck::onProgress(void* self)
{
    auto& check = *static_cast<IntegrityCheck*>(self);
    check.m_tick();
    check.m_isOverdue = check.m_limit > 0 && processorTime() - check.m_begin > check.m_limit;
    return check.m_isOverdue || interrupt::isPending() ? 1 : 0;
}

void IntegrityCheck::run(Scope const& scope, std::uint64_t size)
{
    if (scope.isLimited)
    {
        static_cast<void>(sqlite3_limit(m_connection.get(), SQLITE_LIMIT_LENGTH, kLongestCell));
        m_begin = processorTime();
        m_limit =
            static_cast<double>(timeLimits::kStatementLimit.count()) + static_cast<double>(size) / kBytesPerSecond;
    }
    std::string const pragma = scope.isQuick ? "PRAGMA quick_check" : "PRAGMA integrity_check";
    try
    {
        if (scope.isByTable)
        {
            for (std::string const& table : tablesOf(m_connection))
            {
                check(pragma + "('" + table + "')");
            }
        }
        else
        {
            check(pragma + "(" + kMostProblems + ")");
        }
    }
    catch (sqlite::Error const& error)
    {
        bool const isOfSchema = scope.isLimited && error.kind() == SQLITE_TOOBIG;
        if (!isOfSchema && !(m_isOverdue && error.kind() == SQLITE_INTERRUPT))
        {
            throw;
        }
        m_take(kIntegrity,
               "the schema of the file makes SQLite's check take too long or too much memory; it was ended");
    }
    reportCounts();
}

void IntegrityCheck::check(std::string const& pragma)
{
    sqlite::Statement statement = m_connection.prepare(pragma);
    while (statement.step())
    {
        std::string const text(statement.text(0));
        report(text);
        if (text.compare(0, 3, "***") == 0)
        {
            // The pages are damaged. SQLite would go on row by row, which need not end where pages form a loop.
            return;
        }
    }
}

/// Reports each line of a message but its heading.
void IntegrityCheck::report(std::string const& lines)
{
    for (std::size_t begin = 0; begin < lines.size();)
    {
        std::size_t const end = std::min(lines.find('\n', begin), lines.size());
        std::string const line = lines.substr(begin, end - begin);
        begin = end + 1;
        if (line.compare(0, 5, "Page ") == 0 && line.find(" is never used") != std::string::npos)
        {
            ++m_unused;
        }
        else if (line.find("invalid page number") != std::string::npos)
        {
            ++m_outside;
        }
        else if (line != "ok" && line.compare(0, 3, "***") != 0)
        {
            m_take(isFailedRead(line) ? kMedium : kIntegrity, line);
        }
    }
}

/// Reports at once what SQLite says of each page of a file that is cut off.
void IntegrityCheck::reportCounts()
{
    if (m_outside > 0)
    {
        m_take(kIntegrity, counted(m_outside, "page") + " or more that the tables name lie outside of the file");
    }
    if (m_unused > 0)
    {
        m_take(kIntegrity, counted(m_unused, "page") + " or more are not used by any table");
    }
}

} // namespace tool
