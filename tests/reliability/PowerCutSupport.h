#pragma once

#include "DiskModelVfs.h"
#include "TestSupport.h"

#include <sqlite3.h>

#include <cstddef>
#include <filesystem>
#include <string>

// Sanitizers and emulators look for errors of the code, which the cut points in between do not bring to light.
#if defined(FIRAIM_TEST_IS_EMULATED)
constexpr std::size_t kCutStride = 5;
#elif defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr std::size_t kCutStride = 3;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
constexpr std::size_t kCutStride = 3;
#else
constexpr std::size_t kCutStride = 1;
#endif
#else
constexpr std::size_t kCutStride = 1;
#endif

/// Makes a state of the disk real: `directory` holds `files` and nothing else.
inline void layOut(DiskModel::Files const& files, TempDir const& directory)
{
    // Emptied and not made anew: on some file systems a directory costs more than all the rest.
    for (auto const& entry : std::filesystem::directory_iterator(directory.path()))
    {
        std::filesystem::remove(entry.path());
    }
    for (auto const& [name, bytes] : files)
    {
        writeFile(directory.file(name), bytes);
    }
}

/// What SQLite itself says of the file. A failing check is an answer here, not a failing test.
inline bool isWhole(std::string const& path)
{
    auto const isOk = [](void* whole, int, char** cells, char**)
    {
        *static_cast<bool*>(whole) = cells[0] != nullptr && std::string(cells[0]) == "ok";
        return 0;
    };
    bool whole = false;
    sqlite3* db = nullptr;
    int const opened = sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READWRITE, nullptr);
    int const checked = sqlite3_exec(db, "PRAGMA integrity_check", isOk, &whole, nullptr);
    return sqlite3_close(db) == SQLITE_OK && opened == SQLITE_OK && checked == SQLITE_OK && whole;
}
