#include "DamagedSet.h"

#include "TestSupport.h"

#include <history/FaultRecorder.h>

#include <stdexcept>

namespace
{

constexpr std::size_t kLogHeaderSize = 32;
constexpr std::size_t kFrameHeaderSize = 24;

/// A transaction that has written pages and was not committed: only the journal has the rows as they were.
FileBytes interrupted(SoundFile const& sound)
{
    TempDir const dir;
    std::string const path = dir.file("interrupted.db");
    writeFile(path, sound.bytes);
    RawDb raw(path);
    raw.exec(
        "PRAGMA journal_mode=PERSIST; PRAGMA cache_size=1; BEGIN;"
        "UPDATE FdbFaultTbl SET Parameter='torn', Description=hex(zeroblob(400)) WHERE EntryId BETWEEN 221 AND 260;"
        "DELETE FROM FdbFaultTbl WHERE EntryId < 60;"
        "UPDATE FdbFaultTbl SET EntryId=EntryId + 100000 WHERE EntryId BETWEEN 261 AND 300");
    FileBytes bytes = {readFile(path), readFile(path + "-journal"), ""};
    raw.exec("ROLLBACK");
    return bytes;
}

constexpr char kLogMode[] = "PRAGMA journal_mode=WAL; PRAGMA wal_autocheckpoint=0;";

FileBytes bytesWithLog(std::string const& path)
{
    return {readFile(path), "", readFile(path + "-wal")};
}

/// A file in write-ahead-log mode; the log holds the changes of the statements.
FileBytes withLog(SoundFile const& sound, std::string const& sql)
{
    TempDir const dir;
    std::string const path = dir.file("logged.db");
    writeFile(path, sound.bytes);
    RawDb raw(path); // Closing it takes the log into the file.
    raw.exec(kLogMode + sql);
    return bytesWithLog(path);
}

void recordMore(firaim::FaultRecorder& recorder, std::string const& path)
{
    bool isDone = recorder.open(path) == firaim::HISTORY_OK;
    for (unsigned int i = 1; i <= 40; ++i)
    {
        firaim::FaultEvent event;
        event.code = 0x0402;
        event.module = "log";
        event.parameter = std::to_string(i);
        event.description = "in the log " + std::to_string(i);
        event.time = 1950000000000ULL + i;
        event.upTime = i;
        event.systemTimeText = "now";
        isDone = isDone && recorder.record(event).result == firaim::HISTORY_OK;
    }
    if (!isDone)
    {
        throw std::runtime_error(recorder.lastProblem());
    }
}

/// A file whose last rows are in the log: the recorder takes the log into the file only when it closes.
FileBytes recordedIntoLog()
{
    TempDir const dir;
    std::string const path = dir.file("logged.db");
    writeFile(path, SoundFile::plain().bytes);
    RawDb(path).exec(kLogMode);
    firaim::FaultRecorder recorder;
    recordMore(recorder, path);
    return bytesWithLog(path);
}

/// Rows are changed in place, so that the log does not have the first page.
FileBytes changedInLog()
{
    return withLog(SoundFile::plain(), "UPDATE FdbFaultTbl SET LoggerLifeTime=LoggerLifeTime+1 WHERE EntryId<90");
}

std::set<PageNumber> pagesInLog(FileBytes const& bytes)
{
    std::size_t const pageSize = pageSizeOf(bytes.database);
    std::set<PageNumber> pages;
    for (std::size_t frame = kLogHeaderSize; frame < bytes.log.size(); frame += kFrameHeaderSize + pageSize)
    {
        pages.insert(static_cast<PageNumber>(numberAt(bytes.log, frame, 4)));
    }
    return pages;
}

std::string settled(FileBytes const& bytes)
{
    return settledBySqlite(bytes.database, bytes.journal, bytes.log);
}

DamagedFile unfinished(SoundFile const& sound, std::string const& what, std::string const& damage,
                       FileBytes const& bytes, std::set<PageNumber> const& lost = {})
{
    return {what, damage, &sound, [bytes] { return bytes; }, lost};
}

FileBytes withoutPage(FileBytes bytes, PageNumber page)
{
    std::size_t const size = pageSizeOf(bytes.database);
    bytes.database.replace((page - 1) * size, size, size, '\x55');
    return bytes;
}

/// The pages that differ from the sound file after SQLite has rolled back.
std::set<PageNumber> lostInSpiteOfJournal(SoundFile const& sound, FileBytes const& bytes)
{
    return changedFile(sound, "", "", settled(bytes)).lostPages;
}

DamagedSet besideJournals()
{
    SoundFile const& sound = SoundFile::withRemovedRows();
    FileBytes const bytes = interrupted(sound);
    DamagedSet files = {
        unfinished(sound, "journal", "a transaction was interrupted", bytes),
        unfinished(sound, "journal-first-page", "the first page is lost beside a hot journal", withoutPage(bytes, 1))};
    for (PageNumber const page : {2U, 9U, 15U, 33U, sound.pageCount()})
    {
        FileBytes const damaged = withoutPage(bytes, page);
        files.push_back(unfinished(sound, "journal-page-" + std::to_string(page),
                                   "page " + std::to_string(page) + " is lost beside a hot journal", damaged,
                                   lostInSpiteOfJournal(sound, damaged)));
    }
    FileBytes ended = {SoundFile::plain().bytes, std::string(512, '\0') + bytes.journal.substr(512), ""};
    files.push_back(unfinished(SoundFile::plain(), "journal-ended", "the journal has ended", ended));
    return files;
}

DamagedSet besideLogs()
{
    static FileBytes const recorded = recordedIntoLog();
    static FileBytes const changed = changedInLog();
    static SoundFile const afterRecording("log", settled(recorded));
    static SoundFile const afterChange("changed-log", settled(changed));
    FileBytes torn = recorded;
    torn.log.resize(torn.log.size() * 6 / 10);
    static SoundFile const afterTear("torn-log", settled(torn));
    PageNumber const page = *std::next(afterRecording.faultPages.leaves.begin(), 10);
    PageNumber const logged = *std::next(pagesInLog(changed).begin());
    return {
        unfinished(afterRecording, "log", "the newest rows are in the log", recorded),
        unfinished(afterRecording, "log-first-page", "the first page is lost beside a log that has it",
                   withoutPage(recorded, 1)),
        unfinished(afterRecording, "log-leaf", "a leaf is lost beside a log that does not have it",
                   withoutPage(recorded, page), {page}),
        unfinished(afterChange, "log-change", "rows were changed in the log", changed),
        unfinished(afterChange, "log-change-first-page", "the first page is lost beside a log without it",
                   withoutPage(changed, 1), {1}),
        unfinished(afterChange, "log-change-leaf", "a leaf is lost beside a log that has it",
                   withoutPage(changed, logged)),
        unfinished(afterTear, "log-torn", "the log ends within a frame", torn),
    };
}

/// Nothing in a log names its file, so that pages of the other file may hide some of this one.
DamagedFile besideForeignLog()
{
    FileBytes bytes = withLog(SoundFile::withLargestKey(), "UPDATE FdbFaultTbl SET Parameter='foreign'");
    std::set<PageNumber> const lost = pagesInLog(bytes);
    bytes.database = SoundFile::plain().bytes;
    DamagedFile file =
        unfinished(SoundFile::plain(), "log-of-another-file", "the log belongs to another file", bytes, lost);
    file.isAmbiguous = true;
    file.hasForeignRows = true;
    return file;
}

} // namespace

DamagedSet smallUnfinishedFiles()
{
    SoundFile const& sound = SoundFile::small();
    FileBytes const journaled = interrupted(sound);
    FileBytes const logged = withLog(sound, "UPDATE FdbFaultTbl SET LoggerLifeTime=LoggerLifeTime+1");
    DamagedSet files;
    for (FileBytes const& bytes : {journaled, logged})
    {
        std::string const name = bytes.log.empty() ? "small-journal" : "small-log";
        files.push_back(unfinished(sound, name, "a small file with changes beside it", bytes));
        for (PageNumber const page : {1U, 2U, 7U})
        {
            files.push_back(unfinished(sound, name + "-" + std::to_string(page), "the same without a page",
                                       withoutPage(bytes, page)));
        }
    }
    return files;
}

DamagedSet unfinishedFiles()
{
    DamagedSet all;
    for (DamagedSet const& files : {besideJournals(), besideLogs(), DamagedSet{besideForeignLog()}})
    {
        all.insert(all.end(), files.begin(), files.end());
    }
    return all;
}
