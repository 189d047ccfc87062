#pragma once

#include "DiskModelVfs.h"
#include "NewestConnection.h"
#include "TestSupport.h"

#include <history/FaultRecorder.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

/// All cells of a fault database.
struct Recorded
{
    std::string faults;
    std::map<std::uint64_t, std::string> statistics; ///< by code
    std::map<std::uint64_t, unsigned int> counts;    ///< occurrences by code

    bool operator==(Recorded const& other) const { return faults == other.faults && statistics == other.statistics; }
};

/// Reads the content through SQLite only; returns none when SQLite cannot read it. A write-ahead log stays as it is.
std::optional<Recorded> readRecorded(std::string const& path);

/// A run of recorders on the disk model: the content after each call, and the operations on the disk.
class RecorderCutRun
{
public:
    static constexpr char kFileName[] = "faults.db";
    using Journal = firaim::RecorderOptions::Journal;

    /// A call of the recorder.
    struct Call
    {
        std::string name;
        std::size_t end; ///< number of operations on the disk until its return
        Recorded before;
        Recorded after;
        std::optional<std::uint64_t> stormCode; ///< the count of this code may be stored before the row of the storm

        /// Returns true when the file may have this content if the power fails before the call has returned.
        bool allows(Recorded const& found) const;
    };

    /// Runs `pragma` on the connection of each recorder.
    explicit RecorderCutRun(Journal journal, std::string pragma = {});

    bool hasLog() const { return m_journal == firaim::RecorderOptions::WRITE_AHEAD_LOG; }

    void run();

    /// Makes the connection that was opened last copy a write-ahead log into the file as soon as it holds a few pages,
    /// so that a short run has checkpoints, also within a call.
    void checkpointEarly() const;

    std::vector<Call> const& calls() const { return m_calls; }
    std::vector<DiskOperation> const& operations() const { return m_operations; }
    std::uint64_t pruned() const { return m_pruned; }
    std::uint64_t rows() const { return m_rows; }
    /// How often a write-ahead log was begun: in a new file, or again from its beginning.
    std::size_t logStarts() const;
    /// How often the database was synchronised. With a write-ahead log, this is the end of a checkpoint.
    std::size_t databaseSynchronisations() const;

private:
    using Keys = std::vector<unsigned long long>;

    firaim::FaultEvent eventOf(std::uint64_t code, std::string const& module, faultStatus_t status = FAULT_ACTIVE);
    void open(firaim::RecorderOptions const& options);
    void close();
    void record(std::uint64_t code, std::string const& module, faultStatus_t status);
    void raise(std::uint64_t code, std::string const& module);
    void clear(std::uint64_t code, std::string const& module);
    void recordGroup();
    void endCycle();
    void clearCode(std::uint64_t code);
    void storm(std::uint64_t code);
    void mixture();
    void twoWriters();
    void changeJournal(std::string const& mode);
    void useLogInEachWay();
    void checkpoint(std::string const& mode);
    void recordBesideReader();
    void closeElsewhere();
    void recordOnInNewLog();

    void acknowledged(firaim::FaultEvent const& event, firaim::Receipt const& receipt);
    void finish(std::string const& name, std::optional<std::uint64_t> stormCode = std::nullopt);
    void expectAcknowledged();

    TempDir m_directory;
    std::string const m_path = m_directory.file(kFileName);
    DiskModelVfs& m_vfs = DiskModelVfs::getInstance();
    NewestConnection const m_newest;
    Journal const m_journal;
    std::string const m_pragma;
    firaim::FaultRecorder m_recorder;
    firaim::FaultRecorder m_second;
    firaim::FaultRecorder* m_writer = &m_recorder; ///< the recorder that the next calls use
    std::uint64_t m_keepNewest = 0;                ///< the largest value of the recorders so far
    std::uint64_t m_pruned = 0;
    std::uint64_t m_rows = 0;
    unsigned int m_number = 0;
    std::map<unsigned long long, firaim::FaultEvent> m_acknowledged; ///< acknowledged events, by key
    std::map<std::uint64_t, unsigned int> m_occurrences;             ///< acknowledged occurrences, by code
    Recorded m_content;
    std::vector<Call> m_calls;
    std::vector<DiskOperation> m_operations;
    DiskModel m_disk;
};
