#pragma once

#include <tool/files/ByteCopy.h>
#include <tool/files/TemporaryFile.h>

#include <db/internal/Sqlite.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tool
{

/// A file that is to be checked at length while others write to it. The work is done on a temporary copy, where there
/// is room for one; the copy is one state of the file between two transactions.
class CheckedFile
{
public:
    enum Work
    {
        ON_COPY,
        ON_FILE
    };

    /// Examines the file at `path` and makes the copy. Calls `showShare` with the share that has been copied.
    ///
    /// Throws a Problem where there is nothing to check: no file, no database, a hot journal, not one page, or a file
    /// that stays locked.
    CheckedFile(std::string path, Work work, std::function<void(double share)> const& showShare);

    /// The file to work on: the copy, or the file itself.
    std::string const& workPath() const { return m_copy ? m_copy->path() : m_path; }
    bool isCopy() const { return m_copy != nullptr; }
    /// Why there is no copy although one was wanted; empty otherwise.
    std::string const& copyProblem() const { return m_copyProblem; }

    PageCounts const& pages() const { return m_pages; }
    /// Whether the first page is damaged so that SQLite does not take it for a database, but other pages hold faults.
    bool isFirstPageLost() const { return m_isFirstPageLost; }
    /// Why SQLite does not open the file; none if it does, or if the first page is lost.
    std::optional<sqlite::Error> const& openProblem() const { return m_openProblem; }
    /// Pages that the medium fails to give.
    std::vector<std::uint64_t> const& unreadable() const { return m_unreadable; }

private:
    std::optional<sqlite::Connection> open();
    void examineHeader();
    void makeCopy(sqlite::Connection const* connection, std::function<void(double share)> const& showShare);
    bool copyBySqlite(sqlite::Connection const& connection, std::function<void(double share)> const& showShare);

    std::string const m_path;
    PageCounts m_pages;
    bool m_isFirstPageLost = false;
    std::optional<sqlite::Error> m_openProblem;
    std::vector<std::uint64_t> m_unreadable;
    std::unique_ptr<TemporaryFile const> m_copy;
    std::string m_copyProblem;
};

} // namespace tool
