#include "Stage.h"
#include "Database.h"
#include "Violation.h"
#include "reliability/SmallStorage.h"

#include <history/FaultRecorder.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/statvfs.h>

namespace soak
{

namespace
{

constexpr unsigned int kKib = 24 * 1024;

} // namespace

Stage::Stage()
{
    int const error = mountSmall(m_root.path().c_str(), kKib);
    m_refusal = error == 0 ? "" : std::strerror(error);
    makeFolder(m_root.file("now"), false);
}

Stage::~Stage()
{
    if (isSmall())
    {
        static_cast<void>(umount2(m_root.path().c_str(), MNT_DETACH)); // Otherwise the empty folder stays.
    }
}

void Stage::makeFolder(std::string const& path, bool isWal) const
{
    std::filesystem::create_directory(path);
    if (!isWal)
    {
        return; // The recorders make the file, at the same time.
    }
    std::string const file = path + "/faults.db";
    firaim::FaultRecorder recorder;
    firaim::RecorderOptions options;
    options.journal = firaim::RecorderOptions::WRITE_AHEAD_LOG;
    if (recorder.open(file, options) != firaim::HISTORY_OK)
    {
        throw Violation(recorder.lastProblem());
    }
    static_cast<void>(recorder.close()); // Nothing was recorded.
    if (Database(file).value("PRAGMA journal_mode") != "wal")
    {
        throw Violation(file + " got no write-ahead log");
    }
}

void Stage::pull(bool isWal)
{
    std::string const now = m_root.file("now");
    std::string const next = m_root.file("next");
    std::string const pulled = m_root.file("pulled");
    makeFolder(next, isWal);
    if (renameat2(AT_FDCWD, now.c_str(), AT_FDCWD, next.c_str(), RENAME_EXCHANGE) == 0)
    {
        std::filesystem::rename(next, pulled);
        return;
    }
    std::filesystem::rename(now, pulled);
    std::filesystem::rename(next, now);
}

void Stage::removePulled()
{
    std::filesystem::remove_all(m_root.file("pulled"));
}

void Stage::fill()
{
    fillUp(m_root.file("ballast"));
}

void Stage::free()
{
    std::filesystem::remove(m_root.file("ballast"));
}

bool Stage::hasRoom() const
{
    struct statvfs status = {};
    return statvfs(m_root.path().c_str(), &status) == 0 && status.f_bavail > status.f_blocks / 4;
}

std::string Stage::keep() const
{
    char const* const base = std::getenv("TMPDIR");
    std::string folder = std::string(base != nullptr ? base : "/tmp") + "/firaim-soak-XXXXXX";
    if (mkdtemp(folder.data()) == nullptr)
    {
        return "nowhere, as no folder could be made";
    }
    std::error_code error; // Processes may remove files meanwhile.
    std::filesystem::copy(m_root.path(), folder, std::filesystem::copy_options::recursive, error);
    return folder;
}

} // namespace soak
