#include "DiskModel.h"

#include <algorithm>
#include <utility>

namespace
{

constexpr std::size_t kSectorSize = 512;

/// A number below `bound`; unlike a standard distribution, it is the same with every standard library.
std::size_t pick(std::mt19937_64& random, std::size_t bound)
{
    return static_cast<std::size_t>(random() % bound);
}

} // namespace

void DiskModel::apply(DiskOperation const& operation)
{
    switch (operation.kind)
    {
    case DiskOperation::CREATE:
        m_files[operation.file] = {};
        setEntry(operation.name, operation.file);
        break;
    case DiskOperation::REMOVE:
        setEntry(operation.name, std::nullopt);
        break;
    case DiskOperation::WRITE:
        m_files.at(operation.file).write(operation.position, operation.bytes);
        break;
    case DiskOperation::TRUNCATE:
        m_files.at(operation.file).truncate(operation.position);
        break;
    case DiskOperation::SHARE:
        m_files.at(operation.file).share(operation.bytes);
        break;
    case DiskOperation::SYNC_FILE:
        m_files.at(operation.file).synchronise();
        break;
    case DiskOperation::SYNC_DIRECTORY:
        m_synchronisedNames = m_currentNames;
        m_pendingNames.clear();
        break;
    }
}

void DiskModel::synchronise()
{
    for (auto& [number, file] : m_files)
    {
        file.synchronise();
    }
    apply({DiskOperation::SYNC_DIRECTORY});
}

void DiskModel::setEntry(std::string const& name, Entry entry)
{
    m_pendingNames[name].push_back(entry);
    if (entry)
    {
        m_currentNames[name] = *entry;
    }
    else
    {
        m_currentNames.erase(name);
    }
}

bool DiskModel::isPending() const
{
    auto const isFilePending = [this](auto const& entry) { return m_files.at(entry.second).isPending(); };
    return !m_pendingNames.empty() || std::any_of(m_currentNames.begin(), m_currentNames.end(), isFilePending);
}

DiskModel::Files DiskModel::synchronised() const
{
    Files files;
    for (auto const& [name, number] : m_synchronisedNames)
    {
        files[name] = m_files.at(number).synchronised();
    }
    return files;
}

DiskModel::Files DiskModel::current() const
{
    Files files;
    for (auto const& [name, number] : m_currentNames)
    {
        files[name] = m_files.at(number).current();
    }
    return files;
}

DiskModel::Files DiskModel::anyState(std::uint64_t seed) const
{
    std::mt19937_64 random(seed);
    auto names = m_synchronisedNames;
    for (auto const& [name, entries] : m_pendingNames)
    {
        std::size_t const choice = pick(random, entries.size() + 1);
        if (choice == entries.size())
        {
            continue; // Keeps its synchronised content.
        }
        names.erase(name);
        if (entries[choice])
        {
            names[name] = *entries[choice];
        }
    }
    Files files;
    for (auto const& [name, number] : names)
    {
        File const& file = m_files.at(number);
        if (!file.isShared() || pick(random, 4) != 0)
        {
            files[name] = file.anyState(random);
        }
    }
    return files;
}

void DiskModel::File::write(std::size_t position, std::string const& bytes)
{
    std::size_t const end = position + bytes.size();
    std::size_t const oldLength = m_current.size();
    if (end > oldLength)
    {
        m_current.resize(end);
        m_lengths.push_back(end);
    }
    m_current.replace(position, bytes.size(), bytes);
    rememberSectors(std::min(position, oldLength), end); // Includes the gap after the old end, which reads as zeros.
}

void DiskModel::File::truncate(std::size_t length)
{
    std::size_t const oldLength = m_current.size();
    m_current.resize(length);
    m_lengths.push_back(length);
    if (length > oldLength)
    {
        rememberSectors(oldLength, length); // Growth reads as zeros. Cut content is kept, as the old length may return.
    }
}

void DiskModel::File::share(std::string const& bytes)
{
    constexpr std::size_t kMostContents = 4;
    m_current = bytes;
    m_sharedContents.push_back(bytes);
    if (m_sharedContents.size() > kMostContents)
    {
        m_sharedContents.erase(m_sharedContents.begin());
    }
}

/// Stores the present content of the sectors that hold the bytes from `begin` to `end`.
void DiskModel::File::rememberSectors(std::size_t begin, std::size_t end)
{
    for (std::size_t sector = begin / kSectorSize; sector * kSectorSize < end; ++sector)
    {
        std::string content = m_current.substr(sector * kSectorSize, kSectorSize);
        content.resize(kSectorSize);
        m_sectors[sector].push_back(std::move(content));
    }
}

void DiskModel::File::synchronise()
{
    m_synchronised = m_current;
    m_sectors.clear();
    m_lengths.clear();
}

/// The synchronised content at another length.
std::string DiskModel::File::resized(std::size_t length, std::mt19937_64& random) const
{
    std::string content = m_synchronised.substr(0, length);
    std::size_t const oldLength = content.size();
    content.resize(length); // Zeros.
    switch (pick(random, 3))
    {
    case 0:
        for (std::size_t i = oldLength; i < length; ++i)
        {
            content[i] = static_cast<char>(random() & 0xFF);
        }
        break;
    case 1:
        // Blocks that were in use before, so their content looks plausible.
        for (std::size_t i = oldLength; i < length && oldLength != 0; ++i)
        {
            content[i] = content[i % oldLength];
        }
        break;
    default:
        break;
    }
    return content;
}

std::string DiskModel::File::anySharedState(std::mt19937_64& random) const
{
    std::string content;
    switch (pick(random, 4))
    {
    case 0:
        return content;
    case 1:
        content.resize(m_current.size());
        std::generate(content.begin(), content.end(), [&] { return static_cast<char>(random() & 0xFF); });
        return content;
    case 2:
        return m_sharedContents[pick(random, m_sharedContents.size())];
    default:
        return m_current;
    }
}

std::string DiskModel::File::anyState(std::mt19937_64& random) const
{
    if (isShared())
    {
        return anySharedState(random);
    }
    // Disks mostly keep all or nothing of a file, or nearly so. Independent choices for each sector would hardly ever
    // give such states.
    enum Share
    {
        NOTHING,
        FEW,
        HALF,
        MOST,
        EVERYTHING,
        SHARE_COUNT
    };
    constexpr std::size_t kKeptOfTen[SHARE_COUNT] = {0, 1, 5, 9, 10};
    std::size_t const keptOfTen = kKeptOfTen[pick(random, SHARE_COUNT)];
    bool const isLatestLength = m_lengths.empty() || pick(random, 10) < keptOfTen;
    std::size_t const lengthChoice = pick(random, m_lengths.size() + 1);

    std::size_t length = m_current.size();
    if (!isLatestLength)
    {
        length = lengthChoice == m_lengths.size() ? m_synchronised.size() : m_lengths[lengthChoice];
    }
    std::string content = resized(length, random);
    for (auto const& [sector, versions] : m_sectors)
    {
        if (pick(random, 10) >= keptOfTen || sector * kSectorSize >= length)
        {
            continue;
        }
        // Choose the last content in most cases.
        std::size_t const choice = pick(random, 4) == 0 ? pick(random, versions.size()) : versions.size() - 1;
        std::size_t const count = std::min(kSectorSize, length - sector * kSectorSize);
        content.replace(sector * kSectorSize, count, versions[choice], 0, count);
    }
    return content;
}
