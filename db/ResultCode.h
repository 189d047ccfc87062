#pragma once

/// Result codes of the connection layer and of FaultDb, returned as a plain int. Operations that read whole tables
/// return the number of records instead of RESULT_OK.
enum ResultCode : int
{
    RESULT_OK = 0,
    /// Not possible in this state: no database is open, one is open already, or the handle is invalid.
    RESULT_INVALID_STATE = -1,
    /// A statement, a query or a file operation failed, or a single record was not found.
    RESULT_FAILED = -2,
    /// FaultDb::createDb: the file exists, and `overwrite` is false.
    RESULT_FILE_EXISTS = -3,
    /// FaultDb::openDb: the file has another format version, and `compatibleMode` is false.
    RESULT_VERSION_MISMATCH = -5
};
