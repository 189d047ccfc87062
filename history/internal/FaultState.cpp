#include <history/internal/FaultState.h>

#include <db/internal/Join.h>
#include <history/internal/ResetAtEnd.h>

#include <algorithm>
#include <functional>

namespace firaim
{

namespace
{

/// Rows read under one lock: takes some milliseconds.
constexpr std::int64_t kRowsInBatch = 10000;

constexpr std::string_view kMissingText = "n/a";

/// A text cell, decoded as the library does.
std::string_view decodedText(sqlite::Statement const& row, int column)
{
    if (row.isNull(column))
    {
        return kMissingText;
    }
    std::string_view const text = row.text(column);
    return text.substr(0, text.find('\0'));
}

std::size_t hashOf(std::string_view module, std::string_view parameter, std::string_view systemTime)
{
    std::string const separator(1, '\0'); // is in none of the texts
    return std::hash<std::string>()(join({module, separator, parameter, separator, systemTime}));
}

} // namespace

bool isName(std::string_view name)
{
    constexpr std::string_view kUnknown = "UNKNOWN_FAULT_CODE(";
    return !name.empty() && name != kMissingText && name.substr(0, kUnknown.size()) != kUnknown;
}

void FaultState::connect(sqlite::Connection const& connection)
{
    unsigned int status = FAULT_ACTIVE;
    m_activeWord = m_faults.schema().convertValueToStr(FdbSqlFaultTbl::COLUMN_TYPE_CUSTOM, &status);
    BoundTable const& faults = m_faults.bound();
    m_connection = &connection;
    m_statistics.connect(connection);
    m_version = connection.prepare("PRAGMA data_version");
    m_readRows = connection.prepare(join({"SELECT ", faults.key(), ",", rowColumns(), " FROM ", faults.name(),
                                          " WHERE ", faults.key(), " > ?1 ORDER BY ", faults.key(), " LIMIT ?2"}));
    m_readMark = connection.prepare(join(
        {"SELECT ", faults.column(FdbSqlFaultTbl::kFaultCodeColumn), ",",
         faults.column(FdbSqlFaultTbl::kTimeStampUtcColumn), ",", faults.column(FdbSqlFaultTbl::kModuleNameColumn), ",",
         faults.column(FdbSqlFaultTbl::kParameterColumn), ",", faults.column(FdbSqlFaultTbl::kSystemDateTimeColumn),
         " FROM ", faults.name(), " WHERE ", faults.key(), " = ?1"}));
    m_seenVersion.reset();
}

void FaultState::disconnect()
{
    m_statistics.disconnect();
    m_version = {};
    m_readRows = {};
    m_readMark = {};
    m_connection = nullptr;
}

void FaultState::forget()
{
    m_seenVersion.reset();
    m_statistics.forget();
    forgetSources();
}

void FaultState::forgetSources()
{
    m_active.clear();
    m_names.clear();
    m_hasNewName = false;
    m_areSourcesKnown = false;
    m_seen = {};
    m_seenBefore = m_seen;
}

/// Columns of `m_readRows` after the key: code, module, parameter, status, name of the code.
std::string FaultState::rowColumns() const
{
    BoundTable const& faults = m_faults.bound();
    return join({faults.column(FdbSqlFaultTbl::kFaultCodeColumn), ",", faults.column(FdbSqlFaultTbl::kModuleNameColumn),
                 ",", faults.column(FdbSqlFaultTbl::kParameterColumn), ",",
                 faults.column(FdbSqlFaultTbl::kStatusColumn), ",",
                 faults.column(FdbSqlFaultTbl::kFaultCodeNameColumn)});
}

void FaultState::refresh()
{
    m_version.step();
    std::int64_t const version = m_version.integer(0);
    m_version.reset();
    if (m_seenVersion == version)
    {
        return;
    }
    m_statistics.read();
    if (m_areSourcesKnown && !isLastSeenRowThere())
    {
        forgetSources(); // Keys may have begun anew, or an older row may be the newest of its triple.
    }
    if (m_areSourcesKnown && !(readNewRows() && areActiveRowsThere()))
    {
        forgetSources(); // Reading them again takes long. Not here, as other processes may have to wait.
    }
    m_seenVersion = version;
}

void FaultState::loadSources()
{
    try
    {
        readAllSources();
    }
    catch (std::exception const&)
    {
        forgetSources(); // Rows that were read in part would not be kept up to date.
        throw;
    }
}

void FaultState::readAllSources()
{
    while (!m_areSourcesKnown)
    {
        // One transaction, so that the last row seen and the rows after it are of the same content.
        std::optional<sqlite::Transaction> piece;
        if (!m_connection->isInTransaction())
        {
            m_connection->requireName();
            piece.emplace(*m_connection, "BEGIN");
        }
        if (!isLastSeenRowThere())
        {
            forgetSources();
        }
        m_areSourcesKnown = readNewRows();
    }
    m_seenBefore = m_seen;
}

/// Reads a batch of the rows behind the last one seen; returns whether it was the last batch.
bool FaultState::readNewRows()
{
    std::int64_t rows = 0;
    std::int64_t last = m_seen.key;
    m_readRows.bind(1, last).bind(2, kRowsInBatch);
    ResetAtEnd const end(m_readRows);
    while (m_readRows.step())
    {
        ++rows;
        last = m_readRows.integer(0);
        bool const isActive = decodedText(m_readRows, 4) == m_activeWord;
        auto const code = static_cast<std::uint32_t>(m_readRows.integer(1));
        SourceView const source(decodedText(m_readRows, 2), decodedText(m_readRows, 3));
        static_cast<void>(addName(code, decodedText(m_readRows, 5)));
        std::optional<std::int64_t> const key = isActive ? std::optional(last) : std::nullopt;
        if (m_areSourcesKnown)
        {
            m_active.change(code, source, key);
        }
        else
        {
            m_active.set(code, source, key);
        }
    }
    if (rows != 0)
    {
        m_seen = markOf(last).value_or(RowMark());
    }
    return rows < kRowsInBatch;
}

/// The mark of the row with that key; none if there is no row.
std::optional<FaultState::RowMark> FaultState::markOf(std::int64_t key)
{
    m_readMark.bind(1, key);
    ResetAtEnd const end(m_readMark);
    if (!m_readMark.step())
    {
        return std::nullopt;
    }
    return RowMark{key, static_cast<std::uint32_t>(m_readMark.integer(0)), m_readMark.integer(1),
                   hashOf(decodedText(m_readMark, 2), decodedText(m_readMark, 3), decodedText(m_readMark, 4))};
}

bool FaultState::isLastSeenRowThere()
{
    if (m_seen.key == kBeforeAllKeys)
    {
        return true;
    }
    std::optional<RowMark> const mark = markOf(m_seen.key);
    return mark && mark->code == m_seen.code && mark->timeStamp == m_seen.timeStamp &&
           mark->textHash == m_seen.textHash;
}

/// Whether the rows that made triples active are unchanged: another program may have removed or rewritten them.
bool FaultState::areActiveRowsThere()
{
    for (auto const& [code, sources] : m_active.all())
    {
        for (auto const& [source, key] : sources)
        {
            if (!isActiveRow(key, code, source))
            {
                return false;
            }
        }
    }
    return true;
}

bool FaultState::isActiveRow(std::int64_t key, std::uint32_t code, Source const& source)
{
    m_readRows.bind(1, key - 1).bind(2, std::int64_t(1));
    ResetAtEnd const end(m_readRows);
    return m_readRows.step() && m_readRows.integer(0) == key &&
           static_cast<std::uint32_t>(m_readRows.integer(1)) == code && decodedText(m_readRows, 2) == source.first &&
           decodedText(m_readRows, 3) == source.second && decodedText(m_readRows, 4) == m_activeWord;
}

std::vector<std::int64_t> FaultState::neededKeys() const
{
    std::vector<std::int64_t> keys;
    for (auto const& [code, statistic] : m_statistics.all())
    {
        if (statistic.FaultActive == FAULT_ACTIVE)
        {
            keys.push_back(static_cast<std::int64_t>(statistic.FaultEntryId));
        }
    }
    for (auto const& [code, sources] : m_active.all())
    {
        for (auto const& [source, key] : sources)
        {
            keys.push_back(key);
        }
    }
    std::sort(keys.begin(), keys.end());
    return keys;
}

void FaultState::rowWritten(Fault const& row, std::int64_t key)
{
    if (m_areSourcesKnown)
    {
        auto const code = static_cast<std::uint32_t>(row.FaultCode);
        m_hasNewName = addName(code, row.FaultCodeName) || m_hasNewName;
        m_active.change(code, {row.ModuleName, row.Parameter},
                        row.Status == FAULT_ACTIVE ? std::optional(key) : std::nullopt);
        m_seen = {key, code, static_cast<std::int64_t>(row.TimeStampUTC),
                  hashOf(row.ModuleName, row.Parameter, row.SystemDateTimeString)};
    }
}

unsigned int FaultState::lastStartup()
{
    auto const newest = static_cast<unsigned int>(
        m_connection->number(selectNewest(m_faults.bound().column(FdbSqlFaultTbl::kRdbStartupIdColumn))));
    return std::max(newest, m_statistics.lastStartup());
}

/// Selects one cell of the newest fault.
std::string FaultState::selectNewest(std::string const& column) const
{
    BoundTable const& faults = m_faults.bound();
    return join({"SELECT ", column, " FROM ", faults.name(), " ORDER BY ", faults.key(), " DESC LIMIT 1"});
}

/// Returns whether the name is new.
bool FaultState::addName(std::uint32_t code, std::string_view name)
{
    if (!isName(name))
    {
        return false;
    }
    std::string& known = m_names[code];
    if (known == name)
    {
        return false;
    }
    known = name;
    return true;
}

std::string const& FaultState::nameInFaults(std::uint32_t code) const
{
    auto const found = m_names.find(code);
    return found != m_names.end() ? found->second : m_noName;
}

std::optional<unsigned long long> FaultState::lastTimeStamp()
{
    sqlite::Statement newest =
        m_connection->prepare(selectNewest(m_faults.bound().column(FdbSqlFaultTbl::kTimeStampUtcColumn)));
    return newest.step() ? std::optional(static_cast<unsigned long long>(newest.integer(0))) : std::nullopt;
}

void FaultState::committed()
{
    m_statistics.committed();
    m_active.committed();
    m_hasNewName = false;
    m_seenBefore = m_seen;
}

void FaultState::rolledBack()
{
    m_active.rolledBack();
    m_seen = m_seenBefore;
    if (!m_areSourcesKnown || m_hasNewName)
    {
        forgetSources();
    }
    m_statistics.rolledBack();
    m_seenVersion.reset();
}

} // namespace firaim
