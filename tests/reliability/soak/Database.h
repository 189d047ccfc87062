#pragma once

#include <functional>
#include <string>

struct sqlite3;
struct sqlite3_stmt;

namespace soak
{

/// Access to a file through SQLite, without the library. A failing statement is a Violation.
class Database
{
public:
    explicit Database(std::string const& path);
    ~Database();
    Database(Database const&) = delete;
    Database& operator=(Database const&) = delete;

    /// The cells of the present row.
    class Row
    {
    public:
        explicit Row(sqlite3_stmt* statement) : m_statement(statement) {}
        std::string text(int column) const;
        unsigned long long number(int column) const;

    private:
        sqlite3_stmt* m_statement;
    };

    void forEach(std::string const& sql, std::function<void(Row const&)> const& visit);
    void run(std::string const& sql);
    /// The first cell of the only row.
    std::string value(std::string const& sql);

private:
    [[noreturn]] void fail(std::string const& what) const;

    std::string m_path;
    sqlite3* m_handle = nullptr;
};

} // namespace soak
