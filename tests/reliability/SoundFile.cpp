#include "SoundFile.h"

#include "TestSupport.h"

#include <history/FaultRecorder.h>

#include <random>
#include <stdexcept>

namespace
{

using firaim::FaultEvent;

/// Words of the seed's own, `size` bytes long.
std::string wordsOf(unsigned int seed, std::size_t size)
{
    std::mt19937 random(seed);
    std::string text = std::to_string(seed) + " ";
    while (text.size() < size)
    {
        text += static_cast<char>('a' + random() % 26);
        text += random() % 6 == 0 ? " " : "";
    }
    return text.substr(0, size);
}

/// Event number `index`, with a description of `size` bytes. All its members depend on the index.
FaultEvent eventOf(unsigned int index, std::size_t size)
{
    constexpr unsigned long long kFirstTime = 1900000000000ULL;
    constexpr unsigned int kCodes[] = {0x0101, 0x0204, 0x0301, 0x0401, 0x0402, 0x0501, 0x0502, 5000, 5001};
    FaultEvent event;
    event.code = kCodes[index % std::size(kCodes)];
    event.status = index % 3 == 0 ? FAULT_INACTIVE : FAULT_ACTIVE;
    event.module = "module " + std::to_string(index % 7);
    event.parameter = "parameter " + std::to_string(index);
    event.description = wordsOf(index, size);
    event.signalsFile = "signals-" + std::to_string(index);
    event.configBackup = "backup-" + std::to_string(index);
    event.time = kFirstTime + index * 1009ULL;
    event.upTime = index;
    event.lifeTime = 100000 + index;
    event.startupId = 1 + index / 100;
    event.codeName = "FC_" + std::to_string(event.code);
    event.systemTimeText = "system time " + std::to_string(index);
    return event;
}

void requireThat(bool holds, std::string const& what)
{
    if (!holds)
    {
        throw std::runtime_error(what);
    }
}

/// Records the events with the library, runs `sql` on the file and returns the bytes of the file.
std::string recorded(std::vector<FaultEvent> const& events, std::string const& sql = "")
{
    TempDir const dir;
    std::string const path = dir.file("sound.db");
    firaim::FaultRecorder recorder;
    std::vector<firaim::Receipt> receipts;
    requireThat(recorder.open(path) == firaim::HISTORY_OK, recorder.lastProblem());
    requireThat(recorder.recordAll(events, receipts) == firaim::HISTORY_OK, recorder.lastProblem());
    requireThat(recorder.close() == firaim::HISTORY_OK, recorder.lastProblem());
    RawDb(path).exec(sql);
    return readFile(path);
}

std::vector<FaultEvent> shortEvents(unsigned int count, std::size_t shortest, std::size_t spread)
{
    std::vector<FaultEvent> events;
    for (unsigned int i = 1; i <= count; ++i)
    {
        events.push_back(eventOf(i, shortest + i * 31 % spread));
    }
    return events;
}

/// Texts of up to three overflow pages, some short ones among them, and one text in several rows.
std::vector<FaultEvent> longEvents()
{
    constexpr unsigned int kCount = 66;
    constexpr unsigned int kSharedSeed = 1000;
    std::vector<FaultEvent> events;
    for (unsigned int i = 1; i <= kCount; ++i)
    {
        events.push_back(eventOf(i, i % 4 == 0 ? 150 : 2000 + i * 977 % 10000));
        if (i % 10 == 7)
        {
            events.back().description = wordsOf(kSharedSeed, 9000);
        }
    }
    return events;
}

} // namespace

SoundFile::SoundFile(std::string const& nameOfFile, std::string const& content)
    : name(nameOfFile), bytes(content), pageSize(pageSizeOf(content))
{
    TempDir const dir;
    std::string const path = dir.file("sound.db");
    writeFile(path, bytes);
    RawDb raw(path);
    requireThat(raw.value("PRAGMA integrity_check") == "ok", nameOfFile + " is not sound");
    roots["sqlite_schema"] = 1;
    for (RawDb::Row const& row : raw.rows("SELECT name, rootpage FROM sqlite_master WHERE type = 'table'"))
    {
        roots[*row[0]] = static_cast<PageNumber>(std::stoul(*row[1]));
    }
    faultPages = tablePages(bytes, rootOf("FdbFaultTbl"));
    statisticPages = tablePages(bytes, rootOf("FdbFaultStatisticTbl"));
    faults = storedRows(raw.handle(), "FdbFaultTbl");
    statistics = storedRows(raw.handle(), "FdbFaultStatisticTbl");
    lastKey = std::stoll(raw.value("SELECT seq FROM sqlite_sequence WHERE name='FdbFaultTbl'"));
    requireThat(faultPages.rows.size() == faults.size(), nameOfFile + ": the walk misses rows");
}

PageNumber SoundFile::rootOf(std::string const& table) const
{
    return roots.at(table);
}

std::set<PageNumber> SoundFile::pagesOfTables() const
{
    std::set<PageNumber> pages;
    for (auto const& [table, root] : roots)
    {
        std::set<PageNumber> const ofTable = tablePages(bytes, root).all();
        pages.insert(ofTable.begin(), ofTable.end());
    }
    return pages;
}

std::set<PageNumber> SoundFile::pagesToDamage() const
{
    constexpr PageNumber kEvery = 8;
    bool const areAll = this != &threeLevels();
    std::set<PageNumber> pages;
    for (PageNumber page = 1; page <= pageCount(); ++page)
    {
        if (areAll || page % kEvery == 0 || page < kEvery || faultPages.interior.count(page) != 0)
        {
            pages.insert(page);
        }
    }
    return pages;
}

SoundFile const& SoundFile::plain()
{
    static SoundFile const file("plain", recorded(shortEvents(480, 450, 200)));
    return file;
}

SoundFile const& SoundFile::longTexts()
{
    static SoundFile const file("long-texts", recorded(longEvents()));
    return file;
}

SoundFile const& SoundFile::threeLevels()
{
    static SoundFile const file("three-levels", recorded(shortEvents(200, 20, 40), "PRAGMA page_size=512; VACUUM"));
    return file;
}

SoundFile const& SoundFile::small()
{
    constexpr std::size_t kLong = 900;
    std::vector<FaultEvent> events = shortEvents(14, 20, 40);
    events.push_back(eventOf(15, kLong));
    static SoundFile const file("small", recorded(events, "PRAGMA page_size=512; VACUUM"));
    return file;
}

SoundFile const& SoundFile::withRemovedRows()
{
    // The statistics refer to the newest rows, so these stay.
    static SoundFile const file("removed-rows", recorded(shortEvents(400, 150, 120),
                                                         "PRAGMA secure_delete=OFF; DELETE FROM FdbFaultTbl WHERE "
                                                         "EntryId BETWEEN 100 AND 220 OR EntryId % 7 = 0 AND "
                                                         "EntryId < 380"));
    return file;
}

SoundFile const& SoundFile::withLargestKey()
{
    static SoundFile const file("largest-key",
                                recorded(shortEvents(200, 150, 120), "UPDATE FdbFaultTbl SET EntryId="
                                                                     "9223372036854775807 WHERE EntryId=200;"
                                                                     "UPDATE FdbFaultStatisticTbl SET FaultEntryId="
                                                                     "9223372036854775807 WHERE FaultEntryId=200;"
                                                                     "UPDATE sqlite_sequence SET "
                                                                     "seq=9223372036854775807 WHERE seq=200"));
    return file;
}

std::string settledBySqlite(std::string const& database, std::string const& journal, std::string const& log)
{
    TempDir const dir;
    std::string const path = dir.file("settled.db");
    writeFile(path, database);
    for (auto const& [suffix, content] : {std::pair("-journal", journal), std::pair("-wal", log)})
    {
        if (!content.empty())
        {
            writeFile(path + suffix, content);
        }
    }
    {
        RawDb raw(path);
        raw.value("SELECT count(*) FROM sqlite_master"); // Rolls back.
        raw.rows("PRAGMA wal_checkpoint(TRUNCATE)");
    }
    return readFile(path);
}
