#pragma once

#include "Sqlite.h"
#include "Times.h"

#include <fdb/FaultDb.h>

#include <optional>
#include <string>

namespace tool
{

/// A fault as it is asked for: texts as they are to be stored, and what was left open absent.
struct FaultRequest
{
    Fault fault;                             ///< key and times play no part
    std::optional<std::int64_t> time;        ///< now unless given
    std::optional<unsigned long long> stamp; ///< the time as it is to be stored; goes before `time`
    std::optional<unsigned int> startup;     ///< that of the newest fault unless given
};

/// Records faults through the library, as an application does: each fault with the statistic of its code, both or none
/// of them. There is one of these in the process.
class Recorder
{
public:
    /// Opens the fault database at `path` for writing. Throws a Problem when it is none or cannot be written.
    Recorder(std::string const& path, TimeStyle const& style);
    ~Recorder();
    Recorder(Recorder const&) = delete;
    Recorder& operator=(Recorder const&) = delete;

    /// What is recorded between the two is on the storage after the second, or not at all. Throws a Problem; nothing
    /// of the transaction is then stored, unless storage failed in the last steps of the commit.
    void begin();
    /// Does nothing without a transaction.
    void commit();
    /// Ends the transaction, if there is one, without having done anything.
    void rollBack();

    /// Records a fault and counts it in the statistic of its code, inside a transaction; returns its key. The first
    /// active fault of a code begins its statistic; a count of 65535 stays. An inactive fault counts for nothing and
    /// marks the statistic as inactive. Throws std::invalid_argument, before anything is written, for a time that
    /// cannot be stored. After any other failure nothing of the
    /// transaction is stored.
    unsigned long long record(FaultRequest const& request);

    /// From now on a signal makes statements fail, and with them the transaction.
    void endOnSignal();

    /// The statistic of a code; none when there is none.
    std::optional<FaultStatistic> statisticOf(unsigned int code);
    /// The fault with that key; none when there is none.
    std::optional<Fault> faultWith(unsigned long long key);

    FaultDb& db() { return m_db; }
    /// A statement on the connection of the library, which sees what the transaction has done.
    Statement prepare(std::string const& sql) const;

private:
    Fault complete(FaultRequest const& request);
    std::optional<Fault> newestFault();
    void keepStatistic(Fault const& fault);
    void execute(char const* sql);
    unsigned long long stampFor(FaultRequest const& request, std::optional<Fault> const& newest,
                                std::int64_t now) const;
    static int onCommit(void* self);
    static int onStatement(unsigned int, void* self, void*, void*);
    void require(int result, char const* action) const;

    std::string const m_path;
    TimeStyle const m_style;
    FaultDb& m_db;
    short m_connection = -1;
    sqlite3* m_sqlite = nullptr; ///< the same connection; the library's
    Patience m_patience = {kPatience};
    bool m_isInTransaction = false;
    bool m_isCommitting = false;
};

} // namespace tool
