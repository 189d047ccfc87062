#pragma once

#include <db/internal/Sqlite.h>

namespace firaim
{

/// Ends the run of a statement, however its reader ends.
class ResetAtEnd
{
public:
    explicit ResetAtEnd(sqlite::Statement& statement) : m_statement(statement) {}
    ~ResetAtEnd() { m_statement.reset(); }
    ResetAtEnd(ResetAtEnd const&) = delete;
    ResetAtEnd& operator=(ResetAtEnd const&) = delete;

private:
    sqlite::Statement& m_statement;
};

} // namespace firaim
