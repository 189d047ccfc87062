#pragma once

#include "SoundFile.h"

#include <functional>
#include <vector>

/// A database with the files beside it; an empty text means that there is no such file.
struct FileBytes
{
    std::string database;
    std::string journal;
    std::string log;
};

/// A file that something happened to, and the pages that this cost.
struct DamagedFile
{
    std::string name;       ///< unique in the set; a file name without its ending
    std::string damage;     ///< what was done, as a sentence
    SoundFile const* sound; ///< the file before
    std::function<FileBytes()> make;
    /// The pages of the sound file that are not as they were, once the journal or the log is taken into account.
    std::set<PageNumber> lostPages;
    /// Whether nobody can tell some rows of sound pages from rows that do not belong to the file.
    bool isAmbiguous = false;
    bool mayBeComplete = false;   ///< whether the lost pages have all that they are read for
    bool hasForeignRows = false;  ///< whether rows of another file are as good as those of this one
    bool hasOtherVersion = false; ///< whether the format version is not the one that the library writes
};

using DamagedSet = std::vector<DamagedFile>;

/// For each page, a file in which it is overwritten.
DamagedSet pagesOfJunk(SoundFile const& sound);
DamagedSet pagesOfZeros(SoundFile const& sound);
DamagedSet pagesOfOthers(SoundFile const& sound); ///< with another page of the file

/// For each page, the file that ends before it; and some files that end within a page.
DamagedSet cutFiles(SoundFile const& sound);

/// Files whose first page is damaged in part.
DamagedSet damagedFirstPages(SoundFile const& sound);

/// Files made to mislead a reader of pages: loops, overlapping cells, lengths beyond the page.
DamagedSet craftedPages();
/// A schema that lies, free pages with removed rows, keys far apart.
DamagedSet craftedFiles();

/// Files beside a hot journal, or beside a log with committed rows.
DamagedSet unfinishedFiles();
DamagedSet smallUnfinishedFiles();

/// Small files of all these kinds.
DamagedSet smallFiles();

/// The sound files themselves.
DamagedSet undamagedFiles();

/// All of the above but the small files.
DamagedSet damagedSet();

/// Writes the file to `path`, and the files beside it.
void writeWithSidecars(FileBytes const& bytes, std::string const& path);

/// A file whose bytes are `bytes`; the pages that differ from those of the sound file are lost.
DamagedFile changedFile(SoundFile const& sound, std::string const& what, std::string const& damage,
                        std::string const& bytes);
