#include "FuzzSupport.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>

namespace fuzz
{

void require(bool holds, char const* what)
{
    if (!holds)
    {
        static_cast<void>(std::fprintf(stderr, "FAILED: %s\n", what));
        std::abort();
    }
}

void silenceLog()
{
    std::cout.rdbuf(nullptr);
}

MemoryDir::MemoryDir()
{
    std::string const parent =
        std::filesystem::is_directory("/dev/shm") ? "/dev/shm" : std::filesystem::temp_directory_path().string();
    m_path = parent + "/firaim-fuzz-XXXXXX";
    require(mkdtemp(m_path.data()) != nullptr, "there is a temporary directory");
}

MemoryDir::~MemoryDir()
{
    std::error_code ignored; // Leftover files are not a finding.
    std::filesystem::remove_all(m_path, ignored);
}

std::string readFile(std::string const& path)
{
    std::ifstream file(path, std::ios::binary);
    require(file.is_open(), "the file can be read");
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

void writeFile(std::string const& path, std::string_view bytes)
{
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    require(static_cast<bool>(file.flush()), "the file can be written");
}

void removeDatabase(std::string const& path)
{
    for (char const* suffix : {"", "-journal", "-wal", "-shm"})
    {
        static_cast<void>(std::remove((path + suffix).c_str())); // Most of these files do not exist.
    }
}

std::vector<Cells> rawRows(sqlite3* db, std::string const& sql)
{
    std::vector<Cells> rows;
    sqlite3_stmt* statement = nullptr;
    require(sqlite3_prepare_v2(db, sql.c_str(), -1, &statement, nullptr) == SQLITE_OK, "the statement compiles");
    while (sqlite3_step(statement) == SQLITE_ROW)
    {
        Cells row;
        for (int i = 0; i < sqlite3_column_count(statement); ++i)
        {
            auto const* const cell = reinterpret_cast<char const*>(sqlite3_column_text(statement, i));
            auto const size = static_cast<std::size_t>(sqlite3_column_bytes(statement, i));
            row.push_back(cell != nullptr ? std::optional(std::string(cell, size)) : std::nullopt);
        }
        rows.push_back(std::move(row));
    }
    require(sqlite3_finalize(statement) == SQLITE_OK, "the statement runs");
    return rows;
}

std::size_t Input::byte()
{
    std::string const next = bytes(1);
    return next.empty() ? 0 : static_cast<unsigned char>(next.front());
}

std::uint64_t Input::number()
{
    std::string const next = bytes(sizeof(std::uint64_t));
    std::uint64_t number = 0;
    std::memcpy(&number, next.data(), next.size());
    return number;
}

std::string Input::bytes(std::size_t size)
{
    std::string next(m_rest.substr(0, size));
    m_rest.remove_prefix(next.size());
    return next;
}

std::string Input::text()
{
    constexpr std::size_t kLong = 0xf0;
    constexpr std::size_t kRepetitions = 300;
    std::size_t const length = byte();
    if (length < kLong)
    {
        return bytes(length % 8);
    }
    std::string const unit = bytes(4);
    std::string text;
    for (std::size_t i = 0; i < (length - kLong) * kRepetitions; ++i)
    {
        text += unit;
    }
    return text;
}

std::vector<std::string_view> split(std::string_view text, char separator)
{
    std::vector<std::string_view> pieces;
    for (std::size_t end = text.find(separator); end != std::string_view::npos; end = text.find(separator))
    {
        pieces.push_back(text.substr(0, end));
        text.remove_prefix(end + 1);
    }
    pieces.push_back(text);
    return pieces;
}

} // namespace fuzz
