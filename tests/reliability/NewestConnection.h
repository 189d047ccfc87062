#pragma once

struct sqlite3;

/// Finds the connection that this process has opened last, of those that were opened while the object lives: tests
/// change settings of connections that the library does not hand out. At most one object.
class NewestConnection
{
public:
    NewestConnection();
    ~NewestConnection();
    NewestConnection(NewestConnection const&) = delete;
    NewestConnection& operator=(NewestConnection const&) = delete;

    /// Null before there was a connection. The connection may have been closed since.
    sqlite3* get() const;
};
