// Compares a recorder with a model: each accepted event is read back byte for byte under its key, a refused event
// writes nothing, and the statistics equal those of the model.
//
// Input: a byte that selects the file's recorder or a new one, two bytes with the options of a new one, then calls. The
// first byte of a call selects the operation, the second the members of the event that are set; the members follow.

#include "EventModel.h"
#include "FuzzSupport.h"

#include <history/FaultReader.h>
#include <history/FaultRecorder.h>

#include <algorithm>
#include <limits>
#include <memory>
#include <tuple>

#include <time.h>

using namespace firaim;

namespace
{

constexpr std::size_t kMaxCalls = 12;
constexpr std::size_t kMaxEventsOfCall = 4;
constexpr std::uint64_t kMostStamp = std::numeric_limits<std::int64_t>::max();
constexpr std::uint64_t kMostCode = std::numeric_limits<std::uint32_t>::max();
constexpr std::chrono::seconds kTimeout(60); ///< for a busy machine; no other process uses the file

unsigned int upTime()
{
    timespec sinceBoot = {};
    fuzz::require(clock_gettime(CLOCK_BOOTTIME, &sinceBoot) == 0, "there is a clock");
    return static_cast<unsigned int>(sinceBoot.tv_sec);
}

FaultEvent readEvent(fuzz::Input& input)
{
    constexpr std::uint64_t kCodes[] = {0, 0x0101, 0x0102, 0xfffffff0, kMostCode, kMostCode + 1};
    std::size_t const given = input.byte();
    FaultEvent event;
    std::size_t const code = input.byte();
    event.code = code < 0xe0 ? kCodes[code % 4] : code < 0xf0 ? kCodes[code % 6] : input.number();
    event.status = static_cast<faultStatus_t>(input.byte() % 3);
    for (std::string* const text :
         {&event.module, &event.parameter, &event.description, &event.signalsFile, &event.configBackup})
    {
        *text = input.text();
    }
    if ((given & 1U) != 0)
    {
        event.time = input.number();
    }
    if ((given & 2U) != 0)
    {
        event.timeZone = input.text();
    }
    if ((given & 4U) != 0)
    {
        event.upTime = static_cast<unsigned int>(input.number());
    }
    if ((given & 8U) != 0)
    {
        event.lifeTime = static_cast<unsigned int>(input.number());
    }
    if ((given & 16U) != 0)
    {
        event.startupId = static_cast<unsigned int>(input.number());
    }
    if ((given & 32U) != 0)
    {
        event.codeName = input.text();
    }
    if ((given & 64U) != 0)
    {
        event.dateTimeText = input.text();
    }
    if ((given & 128U) != 0)
    {
        event.systemTimeText = input.text();
    }
    return event;
}

bool isRefused(FaultEvent const& event)
{
    std::string const none;
    std::string const* const texts[] = {&event.module,
                                        &event.parameter,
                                        &event.description,
                                        &event.signalsFile,
                                        &event.configBackup,
                                        event.timeZone ? &*event.timeZone : &none,
                                        event.codeName ? &*event.codeName : &none,
                                        event.dateTimeText ? &*event.dateTimeText : &none,
                                        event.systemTimeText ? &*event.systemTimeText : &none};
    bool const hasZero = std::any_of(std::begin(texts), std::end(texts),
                                     [](auto const* text) { return text->find('\0') != std::string::npos; });
    return hasZero || event.code > kMostCode || event.time.value_or(0) > kMostStamp;
}

/// The file, which is empty at the start of each input. Its connections stay open, as opening takes most of the time.
class File
{
public:
    File();
    ~File();
    File(File const&) = delete;
    File& operator=(File const&) = delete;

    std::string const& path() const { return m_path; }
    FaultReader& reader() { return m_reader; }
    FaultRecorder& recorder() { return m_recorder; }
    static RecorderOptions options();
    void empty();
    void requireSound();

private:
    void exec(char const* sql);

    fuzz::MemoryDir m_dir;
    std::string const m_path;
    FaultRecorder m_recorder;
    FaultReader m_reader;
    sqlite3* m_db = nullptr;
};

File::File() : m_path(m_dir.file("faults.db"))
{
    fuzz::require(m_recorder.open(m_path, options()) == HISTORY_OK, "a file can be created");
    fuzz::require(m_reader.open(m_path) == HISTORY_OK, "the file can be read");
    fuzz::require(sqlite3_open(m_path.c_str(), &m_db) == SQLITE_OK, "SQLite opens the file");
    exec("PRAGMA journal_mode=PERSIST; PRAGMA synchronous=OFF");
}

File::~File()
{
    fuzz::require(sqlite3_close(m_db) == SQLITE_OK, "SQLite closes the file");
}

void File::exec(char const* sql)
{
    fuzz::require(sqlite3_exec(m_db, sql, nullptr, nullptr, nullptr) == SQLITE_OK, sql);
}

/// With these options, a recorder takes neither start-up id nor unit of time from the file.
RecorderOptions File::options()
{
    RecorderOptions options;
    options.startup = RecorderOptions::GIVEN_STARTUP;
    options.startupId = 7;
    options.timeUnit = TimeUnit::MILLISECONDS;
    return options;
}

/// Removes all rows and starts a new cycle. The recorder notices that another connection has written, and reads anew.
void File::empty()
{
    exec("BEGIN; DELETE FROM FdbFaultTbl; DELETE FROM FdbFaultStatisticTbl; DELETE FROM sqlite_sequence; COMMIT");
    fuzz::require(m_recorder.endCycle(kTimeout) == HISTORY_OK, "a cycle ends");
}

void File::requireSound()
{
    fuzz::require(fuzz::rawRows(m_db, "PRAGMA integrity_check") == std::vector<fuzz::Cells>{{"ok"}},
                  "the file is sound");
}

/// The file with a recorder and its model.
class Subject
{
public:
    Subject(File& file, fuzz::Input& input);
    ~Subject();

    void call();

private:
    void open();
    void reopen();
    void one(std::size_t kind);
    void recordAll();
    void clearCode();
    void endCycle();
    void begin();
    void end();
    void requireKey(Receipt const& receipt);

    File& m_file;
    fuzz::Input& m_input;
    RecorderOptions m_options;
    std::unique_ptr<FaultRecorder> m_ownRecorder; ///< null: the file's recorder is used
    FaultRecorder* m_recorder = nullptr;
    EventModel m_model;
    Moments m_moments;
    unsigned int m_upTime = 0;
    std::size_t m_sizeBefore = 0;
};

Subject::Subject(File& file, fuzz::Input& input) : m_file(file), m_input(input)
{
    m_file.empty();
    constexpr std::size_t kOwn = 224;
    if (m_input.byte() >= kOwn)
    {
        open();
        return;
    }
    m_recorder = &m_file.recorder();
    m_model.begin(File::options());
}

Subject::~Subject()
{
    fuzz::require(m_ownRecorder == nullptr || m_ownRecorder->close() == HISTORY_OK, "the recorder is closed");
    m_model.requireContent(m_file.reader());
    m_file.requireSound();
}

void Subject::open()
{
    std::size_t const how = m_input.byte();
    m_options = {};
    m_options.startup = static_cast<RecorderOptions::StartupMode>(how % 3);
    m_options.startupId = static_cast<unsigned int>(how);
    m_options.timeUnit = static_cast<TimeUnit>(m_input.byte() % 5);
    m_options.timeZone = how >= 128 ? "" : "UTC";
    m_ownRecorder = std::make_unique<FaultRecorder>();
    m_recorder = m_ownRecorder.get();
    fuzz::require(m_recorder->open(m_file.path(), m_options) == HISTORY_OK, "the recorder is opened");
    m_model.begin(m_options);
    fuzz::require(m_recorder->startupId() == m_model.startupId(), "the start-up is the model's");
}

void Subject::reopen()
{
    fuzz::require(m_ownRecorder == nullptr || m_ownRecorder->close() == HISTORY_OK, "the recorder is closed");
    m_model.requireContent(m_file.reader());
    open();
}

void Subject::call()
{
    std::size_t const kind = m_input.byte() % 16;
    begin();
    if (kind < 9)
    {
        one(kind % 3);
    }
    else if (kind < 12)
    {
        recordAll();
    }
    else if (kind == 12)
    {
        endCycle();
    }
    else if (kind == 13)
    {
        reopen();
    }
    else
    {
        clearCode();
    }
}

void Subject::begin()
{
    m_moments.begin = currentTime();
    m_upTime = upTime();
    m_sizeBefore = m_model.size();
}

void Subject::end()
{
    m_moments.end = currentTime();
    m_model.date(m_sizeBefore, m_moments, {m_upTime, upTime()});
}

void Subject::requireKey(Receipt const& receipt)
{
    fuzz::require(receipt.result == HISTORY_OK && receipt.key == m_model.size(), "the receipt has the row's key");
}

void Subject::one(std::size_t kind)
{
    FaultEvent const event = readEvent(m_input);
    Receipt const receipt = kind == 0   ? m_recorder->record(event, kTimeout)
                            : kind == 1 ? m_recorder->raise(event, kTimeout)
                                        : m_recorder->clear(event, kTimeout);
    if (isRefused(event))
    {
        fuzz::require(receipt.result == HISTORY_REFUSED && receipt.key == 0, "the event is refused");
        return;
    }
    unsigned long long const active =
        m_model.activeKey({static_cast<std::uint32_t>(event.code), event.module, event.parameter});
    if (kind != 0 && (active != 0) == (kind == 1))
    {
        fuzz::require(receipt.result == HISTORY_UNCHANGED && receipt.key == active, "there is no edge");
        return;
    }
    m_model.write(event, kind == 0 ? event.status : kind == 1 ? FAULT_ACTIVE : FAULT_INACTIVE);
    end();
    requireKey(receipt);
}

void Subject::recordAll()
{
    std::vector<FaultEvent> events(m_input.byte() % (kMaxEventsOfCall + 1));
    for (FaultEvent& event : events)
    {
        event = readEvent(m_input);
    }
    std::vector<Receipt> receipts(1);
    int const result = m_recorder->recordAll(events, receipts, kTimeout);
    fuzz::require(receipts.size() == events.size(), "each event has a receipt");
    bool const isAnyRefused = std::any_of(events.begin(), events.end(), isRefused);
    fuzz::require(result == (isAnyRefused ? HISTORY_REFUSED : HISTORY_OK), "the result is the first one but OK");
    for (std::size_t i = 0; i < events.size(); ++i)
    {
        if (isRefused(events[i]))
        {
            fuzz::require(receipts[i].result == HISTORY_REFUSED && receipts[i].key == 0, "the event is refused");
            continue;
        }
        m_model.write(events[i], events[i].status);
        requireKey(receipts[i]);
    }
    end();
}

void Subject::clearCode()
{
    FaultEvent const event = readEvent(m_input);
    std::vector<unsigned long long> keys;
    int const result = m_recorder->clearCode(event, keys, kTimeout);
    std::vector<Triple> const triples = m_model.activeTriples(static_cast<std::uint32_t>(event.code));
    if (isRefused(event) || triples.empty())
    {
        fuzz::require(result == (isRefused(event) ? HISTORY_REFUSED : HISTORY_UNCHANGED) && keys.empty(),
                      "nothing is cleared");
        return;
    }
    fuzz::require(result == HISTORY_OK && keys.size() == triples.size(), "every active triple is cleared");
    for (std::size_t i = 0; i < triples.size(); ++i)
    {
        FaultEvent cleared = event;
        cleared.module = std::get<1>(triples[i]);
        cleared.parameter = std::get<2>(triples[i]);
        m_model.write(cleared, FAULT_INACTIVE);
        fuzz::require(keys[i] == m_model.size(), "the keys are those of the rows");
    }
    end();
}

void Subject::endCycle()
{
    fuzz::require(m_recorder->endCycle(kTimeout) == HISTORY_OK, "the cycle ends");
    m_model.endCycle();
}

std::unique_ptr<File> file;

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    fuzz::silenceLog();
    file = std::make_unique<File>();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    fuzz::Input input(data, size);
    Subject subject(*file, input);
    for (std::size_t i = 0; i < kMaxCalls && !input.isAtEnd(); ++i)
    {
        subject.call();
    }
    return 0;
}
