#include <history/internal/RowWriter.h>

#include <db/internal/Join.h>
#include <history/internal/Failure.h>

#include <algorithm>
#include <limits>
#include <new>
#include <utility>

namespace firaim
{

RowWriter::RowWriter(RecorderOptions const& options)
    : m_options(options), m_startupId(options.startupId),
      m_isStartupChosen(options.startup == RecorderOptions::GIVEN_STARTUP), m_timeUnit(options.timeUnit),
      m_names(m_state), m_counter(m_state.statistics()), m_retention(options.keepNewest)
{
}

void RowWriter::connect(sqlite::Connection const& connection)
{
    m_connection = &connection;
    m_isPruningStopped = false;
    m_insert = connection.prepare(m_faults.bound().insertText());
    m_state.connect(connection);
    m_retention.connect(connection, m_faults.bound());
    {
        sqlite::Transaction const reading(connection, "BEGIN");
        m_state.refresh();
        chooseStartup();
        chooseTimeUnit();
    }
    m_state.committed();
}

void RowWriter::disconnect()
{
    m_state.disconnect();
    m_retention.disconnect();
    m_insert = {};
    m_connection = nullptr;
}

void RowWriter::chooseStartup()
{
    if (m_isStartupChosen)
    {
        return;
    }
    m_startupId = m_state.lastStartup();
    if (m_options.startup == RecorderOptions::NEXT_STARTUP && m_startupId < std::numeric_limits<unsigned int>::max())
    {
        ++m_startupId;
    }
    m_isStartupChosen = true;
}

void RowWriter::chooseTimeUnit()
{
    if (m_timeUnit == TimeUnit::GUESSED)
    {
        std::optional<unsigned long long> const newest = m_state.lastTimeStamp();
        m_timeUnit = newest ? unitOf(*newest) : TimeUnit::MILLISECONDS;
    }
}

bool RowWriter::needsSources(Request const& request)
{
    return m_retention.isOn() || request.needsSources() ||
           (request.event != nullptr && m_names.needsFaults(*request.event));
}

bool RowWriter::refresh()
{
    m_state.refresh();
    return m_state.areSourcesKnown();
}

void RowWriter::prepare(std::vector<Request*> const& group)
{
    m_rows.clear();
    if (!refresh() &&
        std::any_of(group.begin(), group.end(), [&](Request const* request) { return needsSources(*request); }))
    {
        m_state.loadSources();
    }
}

void RowWriter::write(std::vector<Request*> const& group)
{
    for (Request* const request : group)
    {
        request->keys.clear();
        apply(*request);
    }
    m_state.statistics().write();
}

void RowWriter::prune()
{
    constexpr std::int64_t kMaxExtraRows = 8; // A large number of old rows is removed in small steps.
    if (!m_rows.empty() && !m_isPruningStopped)
    {
        auto const most = 2 * static_cast<std::int64_t>(m_rows.size()) + kMaxExtraRows;
        m_prunedNow = m_retention.prune(m_state, m_rows.back().key, most);
    }
}

RowWriter::Outcome RowWriter::outcome() const
{
    return {m_state.statistics().written(), m_counter.countedInCycle()};
}

void RowWriter::committed()
{
    m_rows.clear(); // They refer to requests of the callers.
    m_state.committed();
    m_counter.committed();
    m_pruned += m_prunedNow;
    m_prunedNow = 0;
}

void RowWriter::rolledBack()
{
    try
    {
        m_state.rolledBack();
    }
    catch (std::bad_alloc const&)
    {
        m_state.forget(); // It was undone in part.
    }
    m_retention.rolledBack();
    m_counter.rolledBack();
    m_prunedNow = 0;
}

void RowWriter::forget()
{
    m_counter.forget();
    m_state.forget();
    m_retention.rolledBack();
    m_prunedNow = 0;
}

void RowWriter::foundStored(Outcome outcome)
{
    m_counter.foundStored(std::move(outcome.countedInCycle));
}

/// Whether the transaction is in the file: every row as written or, without rows, every statistic. The same transaction
/// may have removed rows that are too old to be kept, but never the newest one.
bool RowWriter::isStored(Outcome const& outcome)
{
    if (m_rows.empty())
    {
        return m_state.statistics().holds(outcome.statistics);
    }
    sqlite::Statement match = m_connection->prepare(m_faults.bound().matchText());
    for (Row const& row : m_rows)
    {
        auto const age = static_cast<std::uint64_t>(m_rows.back().key - row.key);
        if (m_retention.isOn() && age >= m_options.keepNewest)
        {
            continue;
        }
        fillRow(row);
        m_faults.bound().bind(match, row.key);
        if (!match.step())
        {
            return false;
        }
        match.reset();
    }
    return true;
}

void RowWriter::apply(Request& request)
{
    request.receipt = {HISTORY_OK, 0};
    if (request.kind == Request::END_CYCLE)
    {
        m_counter.endCycle();
        return;
    }
    if (request.kind == Request::CLEAR_CODE)
    {
        applyClearCode(request);
        return;
    }
    if (request.kind == Request::STORM)
    {
        applyStorm(request);
        return;
    }
    if (request.doubtfulKey != 0 && isAlreadyStored(request))
    {
        request.receipt.key = static_cast<unsigned long long>(request.doubtfulKey);
        return;
    }
    FaultEvent const& event = *request.event;
    SourceView const source(event.module, event.parameter);
    faultStatus_t status = event.status;
    if (request.kind != Request::RECORD)
    {
        std::optional<std::int64_t> const active = m_state.activeKey(static_cast<std::uint32_t>(event.code), source);
        bool const isRaised = request.kind == Request::RAISE;
        // A storm may have counted events that have no row yet.
        std::optional<faultStatus_t> const counted = request.status ? request.status() : std::nullopt;
        if (active.has_value() == isRaised && (!counted || (*counted == FAULT_ACTIVE) == isRaised))
        {
            request.receipt = {HISTORY_UNCHANGED, static_cast<unsigned long long>(active.value_or(0))};
            return;
        }
        status = isRaised ? FAULT_ACTIVE : FAULT_INACTIVE;
    }
    updateStatistic(writeRow(request, source, status, event.description));
    request.receipt.key = request.keys.back();
}

/// Whether an earlier commit of this RECORD, with unknown outcome, has stored it.
bool RowWriter::isAlreadyStored(Request& request)
{
    FaultEvent const& event = *request.event;
    FaultStatistic const& statistic = m_state.statistics().of(static_cast<std::uint32_t>(event.code));
    fillRow({&request,
             {event.module, event.parameter},
             event.status,
             m_names.nameOf(event, statistic),
             &event.description,
             request.doubtfulKey});
    sqlite::Statement match = m_connection->prepare(m_faults.bound().matchText());
    m_faults.bound().bind(match, request.doubtfulKey);
    return match.step();
}

void RowWriter::applyClearCode(Request& request)
{
    auto const code = static_cast<std::uint32_t>(request.event->code);
    request.sources.clear();
    for (auto const& [source, key] : m_state.activeSources(code))
    {
        request.sources.push_back(source);
    }
    if (request.sources.empty() && m_state.statistics().of(code).FaultActive == FAULT_ACTIVE)
    {
        request.sources.emplace_back(request.event->module, request.event->parameter);
    }
    for (Source const& source : request.sources)
    {
        updateStatistic(writeRow(request, source, FAULT_INACTIVE, request.event->description));
    }
    if (request.sources.empty())
    {
        request.receipt.result = HISTORY_UNCHANGED;
    }
}

/// Counts the events of a storm. When the storm is over, writes one row about it, which is not counted as an
/// occurrence.
void RowWriter::applyStorm(Request& request)
{
    Storms::Report const& storm = *request.storm;
    FaultEvent const& event = storm.event;
    FaultStatistic& statistic = m_state.statistics().of(static_cast<std::uint32_t>(event.code));
    statistic.FaultCodeName = m_names.nameOf(event, statistic);
    m_counter.count(statistic, {storm.uncounted.actives, request.order,
                                event.time.value_or(firaim::stampOf(storm.uncounted.lastTime, m_timeUnit).value_or(0)),
                                timeZoneOf(event)});
    if (storm.isOver)
    {
        request.description = join({std::to_string(storm.total.events), " more from ", utcText(storm.total.firstTime),
                                    " to ", utcText(storm.total.lastTime)});
        Row const& row = writeRow(request, {event.module, event.parameter}, request.status().value_or(event.status),
                                  request.description);
        updateState(row, statistic);
    }
}

RowWriter::Row const& RowWriter::writeRow(Request& request, SourceView const& source, faultStatus_t status,
                                          std::string const& description)
{
    FaultEvent const& event = *request.event;
    auto const code = static_cast<std::uint32_t>(event.code);
    m_rows.push_back({&request, source, status, m_names.nameOf(event, m_state.statistics().of(code)), &description, 0});
    Row& row = m_rows.back();
    fillRow(row);
    m_faults.bound().bind(m_insert);
    m_insert.run();
    requireOneChange(*m_connection);
    row.key = sqlite3_last_insert_rowid(m_connection->get());
    request.keys.push_back(static_cast<unsigned long long>(row.key));
    m_state.rowWritten(m_faults.record(), row.key);
    return row;
}

/// Fills the working record of the fault table with a row.
void RowWriter::fillRow(Row const& row)
{
    FaultEvent const& event = *row.request->event;
    Fault& fault = m_faults.record();
    fault.FaultCode = static_cast<faultCode_t>(event.code);
    fault.FaultCodeName = row.codeName;
    fault.ModuleName = row.source.first;
    fault.Parameter = row.source.second;
    fault.TimeStampUTC = stampOf(*row.request);
    fault.TimeZone = timeZoneOf(event);
    fault.Status = row.status;
    fault.Description = *row.description;
    fault.DiagSignalsDumpFileName = event.signalsFile;
    fault.LoggerUpTime = event.upTime.value_or(row.request->upTime);
    fault.LoggerLifeTime = event.lifeTime.value_or(0);
    fault.CfgBackupFile = event.configBackup;
    fault.RdbStartupId = event.startupId.value_or(m_startupId);
    fault.SystemDateTimeString = event.systemTimeText ? *event.systemTimeText : utcText(row.request->now);
    std::optional<std::int64_t> const time = timeOf(fault.TimeStampUTC, m_timeUnit);
    fault.DateTimeString = event.dateTimeText ? *event.dateTimeText : time ? utcText(*time) : std::string();
}

unsigned long long RowWriter::stampOf(Request const& request) const
{
    return request.event->time.value_or(firaim::stampOf(request.now, m_timeUnit).value_or(0));
}

std::string const& RowWriter::timeZoneOf(FaultEvent const& event) const
{
    return event.timeZone ? *event.timeZone : m_options.timeZone;
}

/// Updates the statistic of a code for the row written last; see FaultRecorder.
void RowWriter::updateStatistic(Row const& row)
{
    Fault const& fault = m_faults.record();
    FaultStatistic& statistic = m_state.statistics().of(fault.FaultCode);
    statistic.FaultCodeName = row.codeName;
    if (row.status == FAULT_ACTIVE)
    {
        m_counter.countRow(statistic, {1, row.request->order, fault.TimeStampUTC, fault.TimeZone});
    }
    updateState(row, statistic);
}

/// Makes the statistic refer to a new row, and sets whether any triple of the code is active.
void RowWriter::updateState(Row const& row, FaultStatistic& statistic)
{
    bool const isActive = row.status == FAULT_ACTIVE || m_state.isAnyActive(statistic.FaultCode);
    statistic.FaultActive = isActive ? FAULT_ACTIVE : FAULT_INACTIVE;
    statistic.FaultEntryId = static_cast<unsigned long long>(row.key);
    statistic.RdbStartupId = m_faults.record().RdbStartupId;
    m_state.statistics().touch(statistic.FaultCode);
}

} // namespace firaim
