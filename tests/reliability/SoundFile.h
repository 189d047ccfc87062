#pragma once

#include "StoredRows.h"
#include "TablePages.h"

#include <string>

/// A sound fault database, and the truth about it: its rows, and the pages on which they lie.
///
/// The files below are recorded by the library, with the same content in every run. No two rows are equal, and the
/// statistics agree with the faults.
struct SoundFile
{
    SoundFile(std::string const& nameOfFile, std::string const& content);

    /// About 100 pages of 4 KiB, without overflow pages.
    static SoundFile const& plain();
    /// About 100 pages of 4 KiB; most rows have overflow pages, and several rows share one long text.
    static SoundFile const& longTexts();
    /// A tree of three levels, of pages of 512 bytes. Most of its pages are leaves like others, and only a part of
    /// these is damaged in turn.
    static SoundFile const& threeLevels();
    /// As `plain`, with free pages that still hold the rows that were removed.
    static SoundFile const& withRemovedRows();
    /// A few pages of 512 bytes, with and without overflow pages: the damage of one byte matters more.
    static SoundFile const& small();
    /// A file whose newest row has the largest key that there is, far from all others.
    static SoundFile const& withLargestKey();

    PageNumber pageCount() const { return static_cast<PageNumber>(bytes.size() / pageSize); }
    std::string page(PageNumber page) const { return bytes.substr((page - 1) * pageSize, pageSize); }
    /// The interior page of a table from which all its pages can be reached; the leaf in a table of one page.
    PageNumber rootOf(std::string const& table) const;
    /// The tables' pages; all others are free.
    std::set<PageNumber> pagesOfTables() const;

    /// The pages to damage, one in each file.
    std::set<PageNumber> pagesToDamage() const;

    std::string name;
    std::string bytes;
    std::size_t pageSize;
    std::map<std::string, PageNumber> roots; ///< by name of the table; the schema is one, too
    TablePages faultPages;
    TablePages statisticPages;
    StoredRows faults;
    StoredRows statistics;
    long long lastKey = 0; ///< of the faults, as sqlite_sequence has it
};

/// The file after SQLite has opened it beside its journal or log, and has rolled back or checkpointed.
std::string settledBySqlite(std::string const& database, std::string const& journal, std::string const& log);
