#pragma once

/// Result codes of the connection layer and of FaultDb. Operations return them as a plain int; operations that
/// read whole tables return the number of records instead of RESULT_OK.
enum ResultCode : int
{
    RESULT_OK = 0,
    /// The operation cannot run in the present state: no database open, one open already, an invalid handle.
    RESULT_INVALID_STATE = -1,
    /// A statement, a query or a file operation failed, or a single record was not found.
    RESULT_FAILED = -2,
    /// FaultDb::createDb: the file exists and overwriting was not asked for.
    RESULT_FILE_EXISTS = -3,
    /// FaultDb::openDb: the file has another format version and compatible mode was not asked for.
    RESULT_VERSION_MISMATCH = -5
};
