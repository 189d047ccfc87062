#pragma once

#include "DiskModelVfs.h"
#include "TestSupport.h"

#include <sqlite3.h>

#include <cstddef>
#include <filesystem>
#include <string>

// Runs with sanitizers or in the emulator look for errors in the code, for which a part of the cut points is enough.
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

/// Replaces the content of `directory` by `files`, a state of the disk.
inline void layOut(DiskModel::Files const& files, TempDir const& directory)
{
    // Empty the directory instead of creating a new one, which is expensive on some file systems.
    for (auto const& entry : std::filesystem::directory_iterator(directory.path()))
    {
        std::filesystem::remove(entry.path());
    }
    for (auto const& [name, bytes] : files)
    {
        writeFile(directory.file(name), bytes);
    }
}

/// Returns the result of SQLite's integrity check. A damaged file does not fail the test.
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
