#include <tool/files/Failures.h>
#include <tool/store/FaultFile.h>

#include <tool/damage/LostPages.h>
#include <tool/damage/ReadableRows.h>
#include <tool/files/LockedBytes.h>
#include <tool/terminal/Output.h>

#include <fdb/tables/FdbSqlVersionTbl.h>

#include <algorithm>
#include <utility>
#include <vector>

#include <sys/stat.h>

namespace tool
{

namespace
{

/// Read in a few milliseconds, for which writers wait.
constexpr off_t kLargestFileToLookThrough = 4 << 20;

/// Hands the rows of sqlite_sequence to `take`. Throws sqlite::Error.
void readLastKeysOf(std::string const& path,
                    std::function<void(std::string const& table, std::int64_t key)> const& take)
{
    sqlite::Connection const connection = openForReading(path);
    sqlite::Statement sequence =
        connection.prepare("SELECT name, seq FROM sqlite_sequence WHERE typeof(seq) = 'integer' ORDER BY rowid");
    while (sequence.step())
    {
        take(std::string(sequence.text(0)), sequence.integer(1));
    }
}

} // namespace

FaultFile::FaultFile(std::string const& path, std::chrono::milliseconds busyTimeout, bool isReadAroundDamage)
    : m_path(path), m_isReadAroundDamage(isReadAroundDamage)
{
    int const result = openReader(m_reader, path, busyTimeout);
    bool const isCut = result >= 0 && isReadAroundDamage && usingSqlite(path, [&] { return countPages(path).isCut(); });
    m_isOpen = result >= 0 && !isCut;
    if (isCut || (result == firaim::HISTORY_DAMAGED && isReadAroundDamage))
    {
        m_rows = std::make_unique<ReadableRows>(path);
    }
    else if (result < 0)
    {
        requireFirstPage(result);
        throwFailure(result, m_reader.lastProblem());
    }
    readFormatVersion();
}

FaultFile::FaultFile(std::string const& path, std::chrono::milliseconds busyTimeout)
    : FaultFile(path, busyTimeout, false)
{
}

FaultFile::FaultFile(std::string const& path, AroundDamage) : FaultFile(path, lockWait::kBusyTimeout, true) {}

FaultFile::~FaultFile() = default;

/// Throws a Problem if the file is no database because its first page is damaged.
void FaultFile::requireFirstPage(int result) const
{
    if (result != firaim::HISTORY_FOREIGN_FILE || !m_isReadAroundDamage)
    {
        return;
    }
    bool const isLost = usingSqlite(m_path, [&] { return hasFaultPages(LockedBytes(m_path)); });
    if (isLost)
    {
        throw Problem(STATUS_BAD_FILE, m_path + ": its first page is damaged, which tells where the tables begin; "
                                                "'firaim rescue FILE NEW' recovers what the other pages hold");
    }
}

/// SQLite does not notice a page that holds rows of another place: its keys are out of order, and rows would be left
/// out without a word. In a small file, all pages are looked at before.
void FaultFile::findMisplacedPages(TableSchema const& schema)
{
    struct stat status = {};
    bool const isSmall = stat(m_path.c_str(), &status) == 0 && status.st_size <= kLargestFileToLookThrough;
    if (isSmall && usingSqlite(m_path, [&] { return !findGapsOf(m_path, schema).empty(); }))
    {
        static_cast<void>(readsOnAfter(firaim::HISTORY_DAMAGED, schema));
    }
}

/// Whether the storage fails to return pages of the table.
bool FaultFile::isMediumFailing(TableSchema const& schema) const
{
    std::vector<KeyGap> const gaps = usingSqlite(m_path, [&] { return findGapsOf(m_path, schema); });
    return std::any_of(gaps.begin(), gaps.end(), [](KeyGap const& gap) { return gap.isMedium; });
}

void FaultFile::readFormatVersion()
{
    std::string version;
    int result = readerOf(versionSchema()).formatVersion(version);
    if (readsOnAfter(result, versionSchema()))
    {
        result = readerOf(versionSchema()).formatVersion(version);
    }
    if (!isFound(result))
    {
        printMessage(m_path + ": the format version is missing or not the only one; 'firaim check' tells more");
        return;
    }
    m_formatVersion = version;
    if (version != FdbSqlVersionTbl::kFormatVersion)
    {
        printMessage(m_path + ": format version " + version + " is not " + FdbSqlVersionTbl::kFormatVersion +
                     "; the file is read as far as the two formats agree");
    }
}

firaim::FaultReader& FaultFile::readerOf(TableSchema const& schema)
{
    if (m_rows && !m_isOpen)
    {
        m_rows->add(schema);
    }
    else if (m_isReadAroundDamage && m_isLookedThrough.insert(&schema).second)
    {
        findMisplacedPages(schema);
    }
    return m_rows && m_rows->has(schema) ? m_rows->reader() : m_reader;
}

bool FaultFile::readsOnAfter(int result, TableSchema const& schema)
{
    bool const isBadFile = result == firaim::HISTORY_DAMAGED || result == firaim::HISTORY_FAILED;
    if (!isBadFile || !m_isReadAroundDamage || (m_rows && m_rows->has(schema)) ||
        (result == firaim::HISTORY_FAILED && !isMediumFailing(schema)))
    {
        return false;
    }
    if (!m_rows)
    {
        m_rows = std::make_unique<ReadableRows>(m_path);
    }
    m_rows->add(schema);
    return true;
}

ExitStatus FaultFile::reportDamage() const
{
    if (!m_rows)
    {
        return STATUS_DONE;
    }
    printMessage(m_path + ": " + m_rows->damageText() + "; 'firaim rescue FILE NEW' recovers what other pages hold");
    return STATUS_NO;
}

void FaultFile::readLastKeys(std::function<void(std::string const& table, std::int64_t key)> const& take)
{
    if (m_rows)
    {
        m_rows->readLastKeys(take);
        return;
    }
    std::vector<std::pair<std::string, std::int64_t>> keys;
    try
    {
        readLastKeysOf(m_path, [&](std::string const& table, std::int64_t key) { keys.emplace_back(table, key); });
    }
    catch (sqlite::Error const& error)
    {
        if (error.kind() != SQLITE_CORRUPT || !m_isReadAroundDamage)
        {
            throwFailure(m_path, error);
        }
        m_rows = std::make_unique<ReadableRows>(m_path);
        m_rows->readLastKeys(take);
    }
    for (auto const& [table, key] : keys)
    {
        take(table, key);
    }
}

bool FaultFile::isFound(int result) const
{
    if (result < 0)
    {
        throwFailure(result, m_reader.lastProblem());
    }
    return result == firaim::HISTORY_OK;
}

} // namespace tool
