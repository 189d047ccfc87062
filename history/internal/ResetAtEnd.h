#pragma once

#include <db/internal/Sqlite.h>

namespace firaim
{

/// Resets a statement at the end of a scope, also after an exception.
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
