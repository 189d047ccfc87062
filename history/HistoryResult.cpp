#include <history/HistoryResult.h>

char const* firaim::historyResultName(int result)
{
    switch (static_cast<HistoryResult>(result))
    {
    case HISTORY_OK:
        return "OK";
    case HISTORY_UNCHANGED:
        return "UNCHANGED";
    case HISTORY_COUNTED:
        return "COUNTED";
    case HISTORY_END:
        return "END";
    case HISTORY_NOT_FOUND:
        return "NOT_FOUND";
    case HISTORY_ROWS_REMOVED:
        return "ROWS_REMOVED";
    case HISTORY_FILE_REPLACED:
        return "FILE_REPLACED";
    case HISTORY_QUEUED:
        return "QUEUED";
    case HISTORY_INVALID_STATE:
        return "INVALID_STATE";
    case HISTORY_FAILED:
        return "FAILED";
    case HISTORY_VERSION_MISMATCH:
        return "VERSION_MISMATCH";
    case HISTORY_REFUSED:
        return "REFUSED";
    case HISTORY_BUSY:
        return "BUSY";
    case HISTORY_UNKNOWN:
        return "UNKNOWN";
    case HISTORY_FOREIGN_FILE:
        return "FOREIGN_FILE";
    case HISTORY_DAMAGED:
        return "DAMAGED";
    case HISTORY_NO_FILE:
        return "NO_FILE";
    case HISTORY_BAD_PATH:
        return "BAD_PATH";
    case HISTORY_QUEUE_FULL:
        return "QUEUE_FULL";
    case HISTORY_HOT_JOURNAL:
        return "HOT_JOURNAL";
    case HISTORY_LOG_UNREADABLE:
        return "LOG_UNREADABLE";
    case HISTORY_CANCELLED:
        return "CANCELLED";
    }
    return "?";
}
