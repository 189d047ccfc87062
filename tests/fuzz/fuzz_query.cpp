// Compares queries on fault tables of any content with a reference filter over all decoded rows. Also parses texts of
// positions: each is refused, or the position has the same text.
//
// Input: a length and the text of a position, the query, then the rows of the table. The first byte of a row selects
// its key, the second the number of further rows like it, the third the number of cells with any content.

#include "FuzzSupport.h"
#include "PlainFilter.h"

#include <history/FaultReader.h>
#include <history/FaultRecorder.h>

#include <cstring>
#include <limits>
#include <map>
#include <memory>

using namespace firaim;

namespace
{

constexpr std::size_t kColumns = 16;
constexpr std::size_t kMaxRows = 24; ///< more rows than the first batch of a cursor
constexpr std::uint32_t kCodes[] = {0, 0x0101, 0xfffffff0, 7};
constexpr char const* kTexts[] = {"", "a", "Module", "n/a", "mODULE b", "\xc3\x84\xff", "it's", "0"};

std::string knownOrOwnText(fuzz::Input& input)
{
    std::size_t const choice = input.byte();
    return choice < 192 ? kTexts[choice % std::size(kTexts)] : input.text();
}

std::int64_t key(fuzz::Input& input)
{
    std::size_t const choice = input.byte();
    switch (choice)
    {
    case 255:
        return static_cast<std::int64_t>(input.number());
    case 254:
        return std::numeric_limits<std::int64_t>::max();
    case 253:
        return std::numeric_limits<std::int64_t>::min();
    default:
        return static_cast<std::int64_t>(choice) - 20;
    }
}

/// A time within the range of the rows' times, or any time.
std::int64_t time(fuzz::Input& input)
{
    std::size_t const choice = input.byte();
    return choice == 255 ? static_cast<std::int64_t>(input.number())
                         : 1'772'366'400'000 + static_cast<std::int64_t>(choice);
}

FaultQuery readQuery(fuzz::Input& input)
{
    FaultQuery query;
    std::size_t const given = input.byte();
    std::size_t const more = input.byte();
    query.order = (given & 1U) != 0 ? FaultQuery::OLDEST_FIRST : FaultQuery::NEWEST_FIRST;
    query.isActiveOnly = (given & 2U) != 0;
    query.timeUnit = static_cast<TimeUnit>(more / 8 % 5);
    for (std::size_t i = 0; i < more % 2 + more / 64; ++i)
    {
        std::size_t const choice = input.byte();
        query.codes.push_back(choice < 240 ? kCodes[choice % std::size(kCodes)]
                                           : static_cast<std::uint32_t>(input.number()));
    }
    for (std::size_t i = 0; i < more / 2 % 2; ++i)
    {
        query.modules.push_back(knownOrOwnText(input));
        query.modules.push_back(knownOrOwnText(input));
    }
    if ((more & 4U) != 0)
    {
        query.startups = {static_cast<unsigned int>(input.byte() % 4), static_cast<unsigned int>(input.number())};
    }
    if ((given & 4U) != 0)
    {
        query.since = time(input);
    }
    if ((given & 8U) != 0)
    {
        query.until = time(input);
    }
    if ((given & 16U) != 0)
    {
        query.text = knownOrOwnText(input);
    }
    if ((given & 32U) != 0)
    {
        query.afterKey = key(input);
    }
    if ((given & 64U) != 0)
    {
        query.beforeKey = key(input);
    }
    if ((given & 128U) != 0)
    {
        query.limit = input.byte();
    }
    return query;
}

/// The fault table, written through SQLite and read through the library. Both connections stay open; `fill` replaces
/// all rows.
class Table
{
public:
    Table();
    ~Table();
    Table(Table const&) = delete;
    Table& operator=(Table const&) = delete;

    void fill(fuzz::Input& input);
    std::vector<fuzz::Cells> rows() { return fuzz::rawRows(m_db, "SELECT * FROM FdbFaultTbl"); }
    FaultReader& reader() { return m_reader; }

private:
    void exec(char const* sql);
    void bindSound(std::size_t kind);
    void bindAny(int column, fuzz::Input& input);
    void bind(int column, std::string const& text);

    fuzz::MemoryDir m_dir;
    sqlite3* m_db = nullptr;
    sqlite3_stmt* m_insert = nullptr;
    FaultReader m_reader;
};

Table::Table()
{
    std::string const path = m_dir.file("faults.db");
    FaultRecorder recorder;
    fuzz::require(recorder.open(path) == HISTORY_OK && recorder.close() == HISTORY_OK, "a file can be created");
    fuzz::require(sqlite3_open(path.c_str(), &m_db) == SQLITE_OK, "SQLite opens the file");
    exec("PRAGMA journal_mode=MEMORY; PRAGMA synchronous=OFF");
    std::string insert = "INSERT OR REPLACE INTO FdbFaultTbl VALUES(?";
    for (std::size_t i = 1; i < kColumns; ++i)
    {
        insert += ",?";
    }
    insert += ")";
    fuzz::require(sqlite3_prepare_v2(m_db, insert.c_str(), -1, &m_insert, nullptr) == SQLITE_OK, "a row has 16 cells");
    fuzz::require(m_reader.open(path) == HISTORY_OK, "the reader is opened");
}

Table::~Table()
{
    sqlite3_finalize(m_insert);
    fuzz::require(sqlite3_close(m_db) == SQLITE_OK, "SQLite closes the file");
}

void Table::exec(char const* sql)
{
    fuzz::require(sqlite3_exec(m_db, sql, nullptr, nullptr, nullptr) == SQLITE_OK, sql);
}

void Table::bind(int column, std::string const& text)
{
    sqlite3_bind_text(m_insert, column, text.data(), static_cast<int>(text.size()), SQLITE_TRANSIENT);
}

/// Binds cells such as the library writes.
void Table::bindSound(std::size_t kind)
{
    constexpr std::int64_t kStamps[] = {1'772'366'400, 1'772'366'400'100, 1'772'366'400'100'000, 0};
    for (int column = 2; column <= static_cast<int>(kColumns); ++column)
    {
        bind(column, kTexts[(kind + static_cast<std::size_t>(column)) % std::size(kTexts)]);
    }
    sqlite3_bind_int64(m_insert, 3, kCodes[kind % std::size(kCodes)]);
    sqlite3_bind_int64(m_insert, 7, kStamps[kind / 4 % std::size(kStamps)] + static_cast<std::int64_t>(kind));
    bind(9, kind % 2 == 0 ? "ErrorActive" : "ErrorInactive");
    sqlite3_bind_int64(m_insert, 12, static_cast<std::int64_t>(kind));
    sqlite3_bind_int64(m_insert, 13, 5);
    sqlite3_bind_int64(m_insert, 15, static_cast<std::int64_t>(kind / 16 % 4));
}

void Table::bindAny(int column, fuzz::Input& input)
{
    std::size_t const type = input.byte();
    std::string text;
    std::uint64_t number = 0;
    double real = 0;
    switch (type % 6)
    {
    case 0:
        sqlite3_bind_null(m_insert, column);
        break;
    case 1:
        sqlite3_bind_int64(m_insert, column, static_cast<std::int64_t>(input.number()));
        break;
    case 2:
        number = input.number();
        std::memcpy(&real, &number, sizeof real);
        sqlite3_bind_double(m_insert, column, real);
        break;
    case 3:
        text = input.text();
        sqlite3_bind_blob(m_insert, column, text.data(), static_cast<int>(text.size()), SQLITE_TRANSIENT);
        break;
    case 4: // A word or a number with a suffix.
        text = std::string(kTexts[type / 8 % std::size(kTexts)]) + input.text();
        bind(column, text);
        break;
    default:
        bind(column, input.text());
    }
}

void Table::fill(fuzz::Input& input)
{
    exec("BEGIN; DELETE FROM FdbFaultTbl");
    for (std::size_t rows = 0; rows < kMaxRows && !input.isAtEnd();)
    {
        std::int64_t rowKey = key(input);
        std::size_t const like = input.byte();
        std::size_t const others = input.byte();
        bindSound(input.byte());
        for (std::size_t i = 0; i < others % 4; ++i)
        {
            bindAny(static_cast<int>(input.byte() % (kColumns - 1)) + 2, input);
        }
        // Add as unsigned numbers, as the key may overflow.
        for (std::size_t i = 0; i <= (like < 224 ? 0 : like - 224) && rows < kMaxRows; ++i, ++rows)
        {
            sqlite3_bind_int64(m_insert, 1, rowKey);
            fuzz::require(sqlite3_step(m_insert) == SQLITE_DONE, "the row is written");
            sqlite3_reset(m_insert);
            rowKey = static_cast<std::int64_t>(static_cast<std::uint64_t>(rowKey) + 1);
        }
    }
    exec("COMMIT");
}

void requireNext(FaultCursor& cursor, Found const& expected)
{
    Fault fault;
    fuzz::require(cursor.next(fault) == HISTORY_OK, "no fault is missing");
    fuzz::require(cursor.key() == expected.key && cursor.position() == expected.key, "the faults are in their order");
    fuzz::require(areSame(fault, expected.fault), "the fault is decoded from its cells");
}

void requireEnd(FaultCursor& cursor)
{
    Fault untouched;
    untouched.Description = "untouched";
    for (int i = 0; i < 2; ++i)
    {
        fuzz::require(cursor.next(untouched) == HISTORY_END && untouched.Description == "untouched", "the cursor ends");
    }
}

/// Requires that the query gives exactly the expected faults.
void requireAnswer(FaultReader& reader, FaultQuery const& query, std::vector<Found> const& expected)
{
    FaultCursor cursor = reader.faults(query);
    for (Found const& fault : expected)
    {
        requireNext(cursor, fault);
    }
    requireEnd(cursor);
}

/// Requires that a second cursor continues at the position at which the first one stopped.
void requireRest(FaultReader& reader, FaultQuery const& query, std::vector<Found> const& expected)
{
    std::size_t const half = expected.size() / 2;
    FaultCursor first = reader.faults(query);
    for (std::size_t i = 0; i < half; ++i)
    {
        requireNext(first, expected[i]);
    }
    FaultQuery rest = query;
    if (half > 0)
    {
        (query.order == FaultQuery::OLDEST_FIRST ? rest.afterKey : rest.beforeKey) = first.position();
        rest.limit = query.limit ? std::optional(*query.limit - half) : std::nullopt;
    }
    FaultCursor second = reader.faults(rest);
    for (std::size_t i = half; i < expected.size(); ++i)
    {
        requireNext(second, expected[i]);
    }
    requireEnd(second);
}

void requirePosition(std::string const& text)
{
    FollowPosition const untouched = {9, 8, 7, 6};
    FollowPosition position = untouched;
    bool const isOne = FollowPosition::fromText(text, position);
    fuzz::require(position.toText() == (isOne ? text : untouched.toText()), "a position comes back or is refused");
}

std::unique_ptr<Table> table;

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    fuzz::silenceLog();
    table = std::make_unique<Table>();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    fuzz::Input input(data, size);
    std::size_t const kind = input.byte();
    // Few texts are positions without the prefix, so add it for every other input.
    requirePosition((kind % 2 == 0 ? "" : "firaim1:") + input.bytes(kind / 2));
    FaultQuery query = readQuery(input);
    table->fill(input);

    std::map<std::int64_t, Fault> faults;
    for (fuzz::Cells const& cells : table->rows())
    {
        faults.emplace(std::stoll(cells[0].value()), decoded(cells));
    }
    FaultReader& reader = table->reader();
    requireRest(reader, query, filtered(faults, query));
    for (FaultQuery::Order const order : {FaultQuery::NEWEST_FIRST, FaultQuery::OLDEST_FIRST})
    {
        query.order = order;
        requireAnswer(reader, query, filtered(faults, query));
    }

    Counts counts;
    fuzz::require(reader.counts(counts) == HISTORY_OK && counts.faults == faults.size(), "every row is counted");
    if (!faults.empty() && faults.rbegin()->first >= 0)
    {
        auto const& [rowKey, fault] = *faults.rbegin();
        Fault read;
        fuzz::require(reader.fault(static_cast<unsigned long long>(rowKey), read) == HISTORY_OK && areSame(read, fault),
                      "the fault is found by its key");
    }
    return 0;
}
