#pragma once

/// Looks at SQL text without compiling it, for the connection layer's source files only. Compiling is not harmless:
/// many PRAGMA statements act while they are compiled.
namespace sqlScan
{

/// Whether `sql` holds nothing to run: blanks, semicolons, comments.
bool isBlank(char const* sql);

/// Whether `sql` may hold more than one statement, and must not be compiled to find out. False for a single statement;
/// false, too, for a statement with others inside it, as CREATE TRIGGER has, whose end only the compiler finds.
bool holdsSeveralStatements(char const* sql);

} // namespace sqlScan
