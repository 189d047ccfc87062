#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <random>
#include <string>
#include <vector>

// A model of a disk that can lose power: its operations, and the states in which a power cut after any of them may
// leave it.
//
// Programs read the page cache; a power cut leaves another state:
// - A write, and a change of a file's length, is pending until the file is synchronised. Until then each sector of 512
//   bytes holds, independently of every other one, its synchronised content or the content after any of the pending
//   writes that touched it, and the length is the synchronised one or any of the pending ones. So writes may be torn
//   and reordered between two synchronisations. Within a sector nothing is torn, and a later content includes all
//   earlier writes, as the cache writes whole sectors in their present state.
// - A file that has grown without its data holds zeros, old data or junk there, as file systems differ in that.
// - A created or removed directory entry is pending until the directory is synchronised. Until then each name refers,
//   independently of every other one, to the file that it referred to at the synchronisation or after any of the
//   pending operations, or to none. A removed file keeps its content as long as its name may return.
// - Synchronising a file does not make its directory entry durable, as POSIX does not promise that; synchronising a
//   directory makes no content durable.
// - The file of a write-ahead log's shared memory is written through mappings, and nothing ever synchronises it. After
// a
//   power cut it is missing or empty, or holds junk, an earlier content or the latest one. This alone does not make a
//   change pending: whoever opens the database first empties the file.
// - Synchronised content is never lost. An unfinished synchronisation promises nothing.
//
// The model is strict enough: the states include everything that ext2, FAT or a journalling file system in its weakest
// mode may do. It is not stricter than real disks: a write damages no byte outside the sectors that it touches, which
// SQLite's unix VFS reports as SQLITE_IOCAP_POWERSAFE_OVERWRITE and relies on, and the device does not lie about
// synchronisation.

/// One change of the disk, or one synchronisation.
struct DiskOperation
{
    enum Kind
    {
        CREATE,
        REMOVE,
        WRITE,
        TRUNCATE,
        SHARE,
        SYNC_FILE,
        SYNC_DIRECTORY
    };

    Kind kind = SYNC_DIRECTORY;
    int file = -1;            ///< number of the file, never used again
    std::string name = {};    ///< CREATE, REMOVE: name of the directory entry
    std::size_t position = 0; ///< WRITE: offset in the file; TRUNCATE: the new length
    std::string bytes = {};   ///< WRITE: the data; SHARE: the whole content of the shared memory
};

/// The disk after some of the recorded operations, and its possible states if the power fails then.
class DiskModel
{
public:
    /// Content of the files, by name.
    using Files = std::map<std::string, std::string>;

    void apply(DiskOperation const& operation);
    /// Makes all pending changes durable, as after a long time without a power cut.
    void synchronise();

    /// Returns true when changes are pending, that is, when there is more than one state.
    bool isPending() const;

    /// The state in which all pending changes are lost.
    Files synchronised() const;
    /// The state in which all pending changes are kept, which is also the state that programs read.
    Files current() const;
    /// A state with a random choice of the pending changes. The same seed gives the same state.
    Files anyState(std::uint64_t seed) const;

private:
    /// The number of a file, or none.
    using Entry = std::optional<int>;

    class File
    {
    public:
        void write(std::size_t position, std::string const& bytes);
        void truncate(std::size_t length);
        void share(std::string const& bytes);
        void synchronise();
        bool isShared() const { return !m_sharedContents.empty(); }
        bool isPending() const { return !m_sectors.empty() || !m_lengths.empty(); }
        std::string const& synchronised() const { return m_synchronised; }
        std::string const& current() const { return m_current; }
        std::string anyState(std::mt19937_64& random) const;

    private:
        std::string anySharedState(std::mt19937_64& random) const;
        void rememberSectors(std::size_t begin, std::size_t end);
        std::string resized(std::size_t length, std::mt19937_64& random) const;

        std::string m_synchronised;
        std::string m_current;
        std::map<std::size_t, std::vector<std::string>> m_sectors; ///< pending contents by sector, oldest first
        std::vector<std::size_t> m_lengths;                        ///< pending lengths, oldest first
        std::vector<std::string>
            m_sharedContents; ///< some contents of shared memory, oldest first; none in other files
    };

    void setEntry(std::string const& name, Entry entry);

    std::map<int, File> m_files;
    std::map<std::string, int> m_synchronisedNames;
    std::map<std::string, int> m_currentNames;
    std::map<std::string, std::vector<Entry>> m_pendingNames; ///< oldest first
};
