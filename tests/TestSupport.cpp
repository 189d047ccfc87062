#include "TestSupport.h"

#include <sqlite3.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <utility>

#include <linux/securebits.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

TempDir::TempDir() : m_path(testing::TempDir() + "/firaim-XXXXXX")
{
    if (mkdtemp(m_path.data()) == nullptr)
    {
        throw std::runtime_error("no temporary directory");
    }
}

TempDir::~TempDir()
{
    std::error_code ignored; // Leftover files do not fail a test.
    std::filesystem::remove_all(m_path, ignored);
}

Console::Console() : m_previous(std::cout.rdbuf(m_text.rdbuf())) {}

Console::~Console()
{
    std::cout.rdbuf(m_previous);
}

std::string Console::take()
{
    std::string text = m_text.str();
    m_text.str("");
    return text;
}

std::vector<std::string> Console::takeLines()
{
    std::istringstream text(take());
    std::vector<std::string> lines;
    for (std::string line; std::getline(text, line);)
    {
        lines.push_back(line);
    }
    return lines;
}

RawDb::RawDb(std::string const& path)
{
    EXPECT_EQ(sqlite3_open_v2(path.c_str(), &m_db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr), SQLITE_OK)
        << path;
    constexpr int kBusyTimeoutMs = 10000; // Other connections may hold a lock on the file.
    EXPECT_EQ(sqlite3_busy_timeout(m_db, kBusyTimeoutMs), SQLITE_OK);
}

RawDb::~RawDb()
{
    EXPECT_EQ(sqlite3_close(m_db), SQLITE_OK);
}

void RawDb::exec(std::string const& sql)
{
    EXPECT_EQ(sqlite3_exec(m_db, sql.c_str(), nullptr, nullptr, nullptr), SQLITE_OK)
        << sql << ": " << sqlite3_errmsg(m_db);
}

std::vector<RawDb::Row> RawDb::rows(std::string const& sql)
{
    std::vector<Row> result;
    sqlite3_stmt* statement = nullptr;
    EXPECT_EQ(sqlite3_prepare_v2(m_db, sql.c_str(), -1, &statement, nullptr), SQLITE_OK)
        << sql << ": " << sqlite3_errmsg(m_db);
    while (sqlite3_step(statement) == SQLITE_ROW)
    {
        Row row;
        for (int i = 0; i < sqlite3_column_count(statement); ++i)
        {
            // Read as a blob, so that a text with zero bytes is not cut.
            auto const* const cell = static_cast<char const*>(sqlite3_column_blob(statement, i));
            auto const size = static_cast<std::size_t>(sqlite3_column_bytes(statement, i));
            bool const isNull = sqlite3_column_type(statement, i) == SQLITE_NULL;
            row.push_back(isNull ? std::nullopt : std::optional<std::string>(std::string(cell ? cell : "", size)));
        }
        result.push_back(std::move(row));
    }
    EXPECT_EQ(sqlite3_finalize(statement), SQLITE_OK) << sql << ": " << sqlite3_errmsg(m_db);
    return result;
}

std::string RawDb::value(std::string const& sql)
{
    auto const result = rows(sql);
    if (result.size() != 1 || result[0].size() != 1)
    {
        ADD_FAILURE() << "not one cell: " << sql;
        return {};
    }
    return result[0][0].value_or("NULL");
}

bool succeedsElsewhere(std::string const& path, std::string const& sql)
{
    std::string const command = "'" FIRAIM_TEST_SQLITE_SHELL "' '" + path + "' \"" + sql + "\" >/dev/null 2>&1";
    return std::system(command.c_str()) == 0;
}

namespace
{

__user_cap_header_struct capabilityHeader()
{
    return {_LINUX_CAPABILITY_VERSION_3, 0};
}

WithoutRoot::Capabilities capabilities()
{
    __user_cap_header_struct header = capabilityHeader();
    WithoutRoot::Capabilities result = {};
    EXPECT_EQ(syscall(SYS_capget, &header, result.data()), 0);
    return result;
}

void setCapabilities(WithoutRoot::Capabilities const& capabilities)
{
    __user_cap_header_struct header = capabilityHeader();
    EXPECT_EQ(syscall(SYS_capset, &header, capabilities.data()), 0);
}

} // namespace

WithoutRoot::WithoutRoot()
{
    if (geteuid() != 0)
    {
        return;
    }
    constexpr auto kReadAll = CAP_TO_MASK(CAP_DAC_READ_SEARCH);
    m_isSwitched = true;
    m_capabilities = capabilities();
    m_securebits = prctl(PR_GET_SECUREBITS);
    // Drop capabilities and keep the user: another user might be unable to reach this program's folder and start
    // programs.
    Capabilities rest = m_capabilities;
    rest[0].effective &= ~(kReadAll | CAP_TO_MASK(CAP_DAC_OVERRIDE) | CAP_TO_MASK(CAP_FOWNER));
    rest[0].inheritable = rest[0].permitted & kReadAll;
    setCapabilities(rest);
    // This may fail: then programs are found only if their folder belongs to root or is open to all.
    static_cast<void>(prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_RAISE, CAP_DAC_READ_SEARCH, 0, 0));
    // Otherwise a started program would get the capabilities back, and `access` would use them.
    EXPECT_EQ(prctl(PR_SET_SECUREBITS, m_securebits | SECBIT_NOROOT | SECBIT_NO_SETUID_FIXUP), 0);
}

WithoutRoot::~WithoutRoot()
{
    if (m_isSwitched)
    {
        EXPECT_EQ(prctl(PR_SET_SECUREBITS, m_securebits), 0);
        setCapabilities(m_capabilities);
    }
}

void WithoutRoot::findPrograms()
{
    Capabilities found = capabilities();
    found[0].effective |= found[0].inheritable & found[0].permitted;
    setCapabilities(found);
}

std::string readFile(std::string const& path)
{
    std::ifstream file(path, std::ios::binary);
    EXPECT_TRUE(file.is_open()) << path;
    std::ostringstream bytes; // Copies in blocks; an iterator would copy byte by byte.
    bytes << file.rdbuf();
    return bytes.str();
}

void writeFile(std::string const& path, std::string const& bytes)
{
    std::ofstream file(path, std::ios::binary);
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    EXPECT_TRUE(file.flush()) << path;
}

std::map<std::string, std::string> filesIn(std::string const& folder)
{
    std::map<std::string, std::string> files;
    for (auto const& entry : std::filesystem::directory_iterator(folder))
    {
        files[entry.path().filename().string()] = readFile(entry.path().string());
    }
    return files;
}

bool exists(std::string const& path)
{
    return std::filesystem::exists(path);
}

Fault makeFault(unsigned int seed)
{
    std::string const tail = " " + std::to_string(seed);
    Fault fault;
    fault.EntryId = 900000 + seed;
    fault.DateTimeString = "2026-03-01 12:00:00" + tail;
    fault.FaultCode = static_cast<faultCode_t>(1000 + seed);
    fault.FaultCodeName = "code name" + tail;
    fault.Parameter = "parameter" + tail;
    fault.TimeStampUTC = 1772366400000000 + seed;
    fault.Status = FAULT_ACTIVE;
    fault.Description = "description" + tail;
    fault.DiagSignalsDumpFileName = "dump" + tail;
    fault.ModuleName = "module" + tail;
    fault.TimeZone = "UTC+1" + tail;
    fault.LoggerUpTime = 2000 + seed;
    fault.LoggerLifeTime = 3000 + seed;
    fault.CfgBackupFile = "backup" + tail;
    fault.RdbStartupId = 4000 + seed;
    fault.SystemDateTimeString = "2026-03-01 11:59:59" + tail;
    return fault;
}

FaultStatistic makeStatistic(unsigned int seed)
{
    std::string const tail = " " + std::to_string(seed);
    FaultStatistic statistic;
    statistic.EntryId = 900000 + seed;
    statistic.FaultCode = static_cast<faultCode_t>(1000 + seed);
    statistic.FaultCodeName = "code name" + tail;
    statistic.OccurenceCnt = static_cast<unsigned short>(10 + seed);
    statistic.TimeFirstOccurredUTC = 1772366400000000 + seed;
    statistic.TimeLastOccurredUTC = 1772366500000000 + seed;
    statistic.FaultActive = FAULT_ACTIVE;
    statistic.TimeZoneFirstOccurred = "UTC+1" + tail;
    statistic.TimeZoneLastOccurred = "UTC+2" + tail;
    statistic.FaultActiveCycleCnt = static_cast<unsigned short>(100 + seed);
    statistic.FaultEntryId = 5000 + seed;
    statistic.RdbStartupId = 4000 + seed;
    return statistic;
}
