#pragma once

#include <tool/formats/Findings.h>

#include <db/internal/Sqlite.h>

#include <cstdint>
#include <functional>
#include <string>

namespace tool
{

/// SQLite's own check of a file.
class IntegrityCheck
{
public:
    struct Scope
    {
        bool isQuick = false;   ///< without comparing indexes and constraints
        bool isByTable = false; ///< table by table, so that each lock is shorter; does not see unused pages
        /// The schema is not the library's: what it asks SQLite to evaluate may never end.
        bool isLimited = false;
    };

    /// Hands each problem to `take`, as kIntegrity, or as kMedium when the storage does not return a page; calls `tick`
    /// now and then. Uses the progress handler of `connection`, which must outlive this object and serves nothing else.
    IntegrityCheck(sqlite::Connection const& connection,
                   std::function<void(FindingKind const&, std::string const&)> take, std::function<void()> tick);
    ~IntegrityCheck();
    IntegrityCheck(IntegrityCheck const&) = delete;
    IntegrityCheck& operator=(IntegrityCheck const&) = delete;

    /// Checks a file of `size` bytes. Throws sqlite::Error when SQLite cannot go on.
    void run(Scope const& scope, std::uint64_t size);

private:
    static int onProgress(void* self);
    void check(std::string const& pragma);
    void report(std::string const& lines);
    void reportCounts();

    sqlite::Connection const& m_connection;
    std::function<void(FindingKind const&, std::string const&)> const m_take;
    std::function<void()> const m_tick;
    double m_limit = 0; ///< processor time in seconds; 0: none
    double m_begin = 0;
    bool m_isOverdue = false;
    std::uint64_t m_outside = 0; ///< references to pages that do not exist
    std::uint64_t m_unused = 0;  ///< pages that nothing uses
};

} // namespace tool
