#include <db/SqlScan.h>

#include <sqlite3.h>

#include <cstring>
#include <string>

namespace
{

bool isSpace(char c)
{
    return c == ' ' || c == '\t' || c == '\n' || c == '\f' || c == '\r';
}

/// Behind the comment that begins at `sql`; `sql` itself when none does. One that is not closed reaches to the end.
char const* skipComment(char const* sql)
{
    char const* end = sql;
    if (std::strncmp(sql, "--", 2) == 0)
    {
        end = std::strchr(sql, '\n');
    }
    else if (std::strncmp(sql, "/*", 2) == 0)
    {
        end = std::strstr(sql + 2, "*/");
        end = end != nullptr ? end + 2 : nullptr;
    }
    return end != nullptr ? end : sql + std::strlen(sql);
}

/// Behind the literal, name, comment or single character that begins at `sql`.
char const* skipToken(char const* sql)
{
    if (char const* const behindComment = skipComment(sql); behindComment != sql)
    {
        return behindComment;
    }
    if (std::strchr("'\"`[", *sql) == nullptr)
    {
        return sql + 1;
    }
    // A doubled quote inside reads as two neighbours, which ends at the same place.
    char const* const end = std::strchr(sql + 1, *sql == '[' ? ']' : *sql);
    return end != nullptr ? end + 1 : sql + std::strlen(sql);
}

} // namespace

bool sqlScan::isBlank(char const* sql)
{
    while (*sql != '\0')
    {
        char const* const behind = isSpace(*sql) || *sql == ';' ? sql + 1 : skipComment(sql);
        if (behind == sql)
        {
            return false;
        }
        sql = behind;
    }
    return true;
}

bool sqlScan::holdsSeveralStatements(char const* sql)
{
    char const* end = sql;
    while (*end != '\0' && *end != ';')
    {
        end = skipToken(end);
    }
    if (*end == '\0' || isBlank(end))
    {
        return false;
    }
    return sqlite3_complete(std::string(sql, end + 1).c_str()) != 0;
}
