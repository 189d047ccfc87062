#pragma once

#include <fdb/records/Fault.h>
#include <fdb/records/FaultStatistic.h>
#include <fdb/records/FdbVersion.h>

#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <iosfwd>
#include <locale>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include <linux/capability.h>

struct sqlite3;

/// A fresh directory, removed with its content.
class TempDir
{
public:
    TempDir();
    ~TempDir();
    TempDir(TempDir const&) = delete;
    TempDir& operator=(TempDir const&) = delete;

    std::string const& path() const { return m_path; }
    std::string file(std::string const& name) const { return m_path + "/" + name; }

private:
    std::string m_path;
};

/// Changes the current folder while the object lives.
class CurrentFolder
{
public:
    explicit CurrentFolder(std::string const& path) { std::filesystem::current_path(path); }
    ~CurrentFolder() { std::filesystem::current_path(m_before); }
    CurrentFolder(CurrentFolder const&) = delete;
    CurrentFolder& operator=(CurrentFolder const&) = delete;

private:
    std::filesystem::path const m_before = std::filesystem::current_path();
};

/// Captures std::cout while the object lives.
class Console
{
public:
    Console();
    ~Console();
    Console(Console const&) = delete;
    Console& operator=(Console const&) = delete;

    /// The output since the last call, whole or as lines.
    std::string take();
    std::vector<std::string> takeLines();

private:
    std::ostringstream m_text;
    std::streambuf* m_previous;
};

/// Access to the file through SQLite, without the library. A failing statement fails the test.
class RawDb
{
public:
    explicit RawDb(std::string const& path);
    ~RawDb();
    RawDb(RawDb const&) = delete;
    RawDb& operator=(RawDb const&) = delete;

    using Row = std::vector<std::optional<std::string>>;

    void exec(std::string const& sql);
    std::vector<Row> rows(std::string const& sql);
    /// The cell of a query whose result is one cell.
    std::string value(std::string const& sql);
    sqlite3* handle() const { return m_db; }

private:
    sqlite3* m_db = nullptr;
};

/// Runs a statement on the file in another process, without a busy timeout. Returns true when it succeeds.
bool succeedsElsewhere(std::string const& path, std::string const& sql);

/// For tests about permissions, which root bypasses: while the object lives, file permissions apply to this thread as
/// to an ordinary owner of root's files. They also apply to programs that it starts, except that these may read
/// everything, so that they can load their files from anywhere.
class WithoutRoot
{
public:
    WithoutRoot();
    ~WithoutRoot();
    WithoutRoot(WithoutRoot const&) = delete;
    WithoutRoot& operator=(WithoutRoot const&) = delete;

    /// Call this in a child process before it starts a program, so that it finds the program.
    static void findPrograms();

    using Capabilities = std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3>;

private:
    bool m_isSwitched = false;
    int m_securebits = 0;
    Capabilities m_capabilities = {};
};

/// Groups digits in threes, as the locales of many applications do.
struct GroupedDigits : std::numpunct<char>
{
    char do_thousands_sep() const override { return ','; }
    std::string do_grouping() const override { return "\3"; }
};

/// Sets such a locale as the global one while the object lives.
class GlobalGroupingLocale
{
public:
    GlobalGroupingLocale() = default;
    ~GlobalGroupingLocale() { std::locale::global(m_previous); }
    GlobalGroupingLocale(GlobalGroupingLocale const&) = delete;
    GlobalGroupingLocale& operator=(GlobalGroupingLocale const&) = delete;

private:
    std::locale m_previous = std::locale::global(std::locale(std::locale::classic(), new GroupedDigits));
};

/// The text that `value` writes to a fresh stream.
template <class T>
std::string textOf(T const& value)
{
    std::ostringstream text;
    text << value;
    return text.str();
}

std::string readFile(std::string const& path);
void writeFile(std::string const& path, std::string const& bytes);
/// The content of each file in a folder, by file name.
std::map<std::string, std::string> filesIn(std::string const& folder);
bool exists(std::string const& path);

/// Records in which no two members have the same value. Different seeds give different records.
Fault makeFault(unsigned int seed = 1);
FaultStatistic makeStatistic(unsigned int seed = 1);

/// All members, for comparing whole records.
inline auto members(Fault const& f)
{
    return std::tie(f.EntryId, f.DateTimeString, f.FaultCode, f.FaultCodeName, f.Parameter, f.TimeStampUTC, f.Status,
                    f.Description, f.DiagSignalsDumpFileName, f.ModuleName, f.TimeZone, f.LoggerUpTime,
                    f.LoggerLifeTime, f.CfgBackupFile, f.RdbStartupId, f.SystemDateTimeString);
}

inline auto members(FaultStatistic const& s)
{
    return std::tie(s.EntryId, s.FaultCode, s.FaultCodeName, s.OccurenceCnt, s.TimeFirstOccurredUTC,
                    s.TimeLastOccurredUTC, s.FaultActive, s.TimeZoneFirstOccurred, s.TimeZoneLastOccurred,
                    s.FaultActiveCycleCnt, s.FaultEntryId, s.RdbStartupId);
}

inline auto members(FdbVersion const& v)
{
    return std::tie(v.VersionEntryId, v.Component, v.Version);
}
