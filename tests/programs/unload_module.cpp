// A plug-in of an application. It uses the libraries in every way that could leave something behind, such as
// singletons, threads and thread-local memory.

#include <db/LogUtil.h>
#include <fdb/FaultDb.h>
#include <history/FaultReader.h>
#include <history/FaultRecorder.h>

namespace
{

bool useFacade(char const* path)
{
    FaultDb* const db = FaultDb::getInstance();
    Fault fault;
    fault.FaultCode = FC_BUS_OFF;
    FaultTbl faults;
    return db->createDb(path, true) == RESULT_OK && db->openDb(path, false) == RESULT_OK &&
           db->insert(fault) == RESULT_OK && db->getFaultTbl(faults) == 1 && db->closeDb() == RESULT_OK;
}

bool useRecorder(char const* path)
{
    firaim::FaultRecorder recorder;
    firaim::FaultEvent event;
    event.code = FC_BUS_OFF;
    return recorder.open(path) == firaim::HISTORY_OK && recorder.raise(event).result == firaim::HISTORY_OK &&
           recorder.post(event) == firaim::HISTORY_QUEUED && recorder.close() == firaim::HISTORY_OK;
}

bool useReader(char const* path)
{
    firaim::FaultReader reader;
    firaim::Counts counts;
    Fault fault;
    if (reader.open(path) != firaim::HISTORY_OK || reader.counts(counts) != firaim::HISTORY_OK)
    {
        return false;
    }
    firaim::FaultFollower follower = reader.follow({});
    return counts.faults == 3 && reader.faults().next(fault) == firaim::HISTORY_OK &&
           follower.next(fault, std::chrono::seconds(0)) == firaim::HISTORY_OK;
}

} // namespace

/// Returns true when all operations on the file at `path` have succeeded.
extern "C" bool useLibraries(char const* path)
{
    LogUtil::write(LogUtil::SEVERITY_INFO, "TEST", "useLibraries", "begins");
    return useFacade(path) && useRecorder(path) && useReader(path);
}
