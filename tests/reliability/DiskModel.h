#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <random>
#include <string>
#include <vector>

// A disk that can lose its power: its operations, and what it may hold when the power fails after any of them.
//
// The model of the disk. What a program reads is the page cache; what survives is something else:
// - A write, and a change of a file's length, is pending until the file is synchronised. Until then each sector of 512
//   bytes holds, independently of every other one, its synchronised content or the content after any of the pending
//   writes that touched it, and the length is the synchronised one or any of the pending ones. So writes are torn and
//   reordered at will between two synchronisations; within one sector nothing is torn, and a later content never comes
//   without an earlier one, as the cache hands out whole sectors as they are at that time.
// - A file that has grown without its data shows zeros, old data, or junk there, as file systems differ in that.
// - A made or removed directory entry is pending until the directory is synchronised. Until then each name stands,
//   independently of every other one, for the file that it stood for at the synchronisation or after any of the
//   pending operations, or for none. A removed file keeps its content as long as its name may come back.
// - Synchronising a file does not make its directory entry last, as POSIX leaves it; synchronising a directory makes
//   no content last.
// - What was synchronised is never lost, and a synchronisation that was not finished has promised nothing.
//
// Not too kind: everything that ext2, FAT or a journalling file system in its weakest mode may do is among the states.
// Not impossible: a write damages no byte outside the sectors that it touches, which is what SQLite's unix VFS reports
// as SQLITE_IOCAP_POWERSAFE_OVERWRITE and builds on; the device does not lie about synchronisation.

/// One change of the disk, or one synchronisation.
struct DiskOperation
{
    enum Kind
    {
        CREATE,
        REMOVE,
        WRITE,
        TRUNCATE,
        SYNC_FILE,
        SYNC_DIRECTORY
    };

    Kind kind = SYNC_DIRECTORY;
    int file = -1;            ///< number of the file, never given out twice
    std::string name = {};    ///< CREATE, REMOVE: the entry in the directory
    std::size_t position = 0; ///< WRITE: where; TRUNCATE: the new length
    std::string bytes = {};   ///< WRITE: what
};

/// The disk after some of the recorded operations, and the states in which it may be found when the power fails then.
class DiskModel
{
public:
    /// Files by name.
    using Files = std::map<std::string, std::string>;

    void apply(DiskOperation const& operation);
    /// Makes everything last, as if the power had not failed for long.
    void synchronise();

    /// Whether anything is pending, that is, whether there is more than one state.
    bool isPending() const;

    /// Nothing pending was kept.
    Files synchronised() const;
    /// Everything pending was kept: what a program reads.
    Files current() const;
    /// A random choice among the pending things. The same seed gives the same state.
    Files anyState(std::uint64_t seed) const;

private:
    /// No file, or the number of one.
    using Entry = std::optional<int>;

    class File
    {
    public:
        void write(std::size_t position, std::string const& bytes);
        void truncate(std::size_t length);
        void synchronise();
        bool isPending() const { return !m_sectors.empty() || !m_lengths.empty(); }
        std::string const& synchronised() const { return m_synchronised; }
        std::string const& current() const { return m_current; }
        std::string anyState(std::mt19937_64& random) const;

    private:
        void rememberSectors(std::size_t begin, std::size_t end);
        std::string resized(std::size_t length, std::mt19937_64& random) const;

        std::string m_synchronised;
        std::string m_current;
        std::map<std::size_t, std::vector<std::string>> m_sectors; ///< pending contents by sector, oldest first
        std::vector<std::size_t> m_lengths;                        ///< pending lengths, oldest first
    };

    void setEntry(std::string const& name, Entry entry);

    std::map<int, File> m_files;
    std::map<std::string, int> m_synchronisedNames;
    std::map<std::string, int> m_currentNames;
    std::map<std::string, std::vector<Entry>> m_pendingNames; ///< oldest first
};
