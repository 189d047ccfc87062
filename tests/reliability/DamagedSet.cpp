#include "DamagedSet.h"

#include "TestSupport.h"

#include <algorithm>
#include <iterator>
#include <random>

namespace
{

std::string numberText(PageNumber page)
{
    std::string const digits = std::to_string(page);
    return std::string(3 - std::min<std::size_t>(digits.size(), 3), '0') + digits;
}

std::string junk(std::size_t size, unsigned int seed)
{
    std::mt19937 random(seed);
    std::string bytes(size, '\0');
    std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<char>(random()); });
    return bytes;
}

using Content = std::function<std::string(PageNumber)>;

DamagedSet overwrittenPages(SoundFile const& sound, std::string const& what, std::string const& damage,
                            Content const& content)
{
    DamagedSet files;
    for (PageNumber const page : sound.pagesToDamage())
    {
        auto const make = [&sound, page, content]
        {
            std::string bytes = sound.bytes;
            return FileBytes{bytes.replace((page - 1) * sound.pageSize, sound.pageSize, content(page)), "", ""};
        };
        files.push_back({sound.name + "-" + what + "-" + numberText(page),
                         "page " + std::to_string(page) + " " + damage,
                         &sound,
                         make,
                         {page}});
    }
    return files;
}

/// The number of another page with another content, spread over the file.
PageNumber otherPage(SoundFile const& sound, PageNumber page)
{
    PageNumber other = (page * 37 + 11) % sound.pageCount() + 1;
    while (other == page || sound.page(other) == sound.page(page))
    {
        other = other % sound.pageCount() + 1;
    }
    return other;
}

std::set<PageNumber> pagesFrom(SoundFile const& sound, PageNumber first)
{
    std::set<PageNumber> pages;
    for (PageNumber page = first; page <= sound.pageCount(); ++page)
    {
        pages.insert(page);
    }
    return pages;
}

DamagedFile cutFile(SoundFile const& sound, std::size_t size, std::string const& what)
{
    auto const whole = static_cast<PageNumber>(size / sound.pageSize);
    return {sound.name + "-cut-" + what, "the file ends after " + std::to_string(size) + " bytes", &sound,
            [&sound, size] {
                return FileBytes{sound.bytes.substr(0, size), "", ""};
            },
            pagesFrom(sound, whole + 1)};
}

/// The sound file with `content` at `offset` of its first page.
DamagedFile headerFile(SoundFile const& sound, std::string const& what, std::size_t offset, std::string const& content)
{
    std::string bytes = sound.bytes;
    bytes.replace(offset, content.size(), content);
    std::string const damage = std::to_string(content.size()) + " bytes at " + std::to_string(offset) + " are changed";
    DamagedFile file = changedFile(sound, what, damage, bytes);
    file.mayBeComplete = offset < 100; // The schema is as it was.
    return file;
}

} // namespace

void writeWithSidecars(FileBytes const& bytes, std::string const& path)
{
    writeFile(path, bytes.database);
    if (!bytes.journal.empty())
    {
        writeFile(path + "-journal", bytes.journal);
    }
    if (!bytes.log.empty())
    {
        writeFile(path + "-wal", bytes.log);
    }
}

DamagedFile changedFile(SoundFile const& sound, std::string const& what, std::string const& damage,
                        std::string const& bytes)
{
    std::set<PageNumber> lost;
    for (PageNumber page = 1; page <= sound.pageCount(); ++page)
    {
        std::size_t const offset = (page - 1) * sound.pageSize;
        if (bytes.compare(std::min(offset, bytes.size()), sound.pageSize, sound.page(page)) != 0)
        {
            lost.insert(page);
        }
    }
    return {sound.name + "-" + what, damage, &sound, [bytes] { return FileBytes{bytes, "", ""}; }, lost};
}

DamagedSet pagesOfJunk(SoundFile const& sound)
{
    return overwrittenPages(sound, "junk", "holds junk",
                            [&sound](PageNumber page) { return junk(sound.pageSize, page); });
}

DamagedSet pagesOfZeros(SoundFile const& sound)
{
    return overwrittenPages(sound, "zeros", "holds zeros",
                            [&sound](PageNumber) { return std::string(sound.pageSize, '\0'); });
}

DamagedSet pagesOfOthers(SoundFile const& sound)
{
    return overwrittenPages(sound, "other", "holds the content of another page",
                            [&sound](PageNumber page) { return sound.page(otherPage(sound, page)); });
}

DamagedSet cutFiles(SoundFile const& sound)
{
    DamagedSet files;
    for (PageNumber const page : sound.pagesToDamage())
    {
        files.push_back(cutFile(sound, (page - 1) * sound.pageSize, numberText(page)));
    }
    for (PageNumber const page : {0U, 1U, 3U, sound.pageCount() / 2})
    {
        files.push_back(cutFile(sound, page * sound.pageSize + 300, "within-" + numberText(page + 1)));
    }
    return files;
}

DamagedSet damagedFirstPages(SoundFile const& sound)
{
    std::string const largest(4, '\xff');
    return {headerFile(sound, "header-zeros", 0, std::string(100, '\0')),
            headerFile(sound, "header-junk", 0, junk(100, 1)),
            headerFile(sound, "header-name", 0, "another format\1"),
            headerFile(sound, "header-page-size-0", 16, std::string(2, '\0')),
            headerFile(sound, "header-page-size-1", 16, std::string("\0\1", 2)),
            headerFile(sound, "header-page-size-8192", 16, std::string("\x20\0", 2)),
            headerFile(sound, "header-page-size-1024", 16, std::string("\4\0", 2)),
            headerFile(sound, "header-versions", 18, "\x09\x09"),
            headerFile(sound, "header-reserved-8", 20, "\x08"),
            headerFile(sound, "header-reserved-255", 20, "\xff"),
            headerFile(sound, "header-fractions", 21, std::string(3, '\0')),
            headerFile(sound, "header-size-small", 28, std::string("\0\0\0\2", 4)),
            headerFile(sound, "header-size-large", 28, largest),
            headerFile(sound, "header-free-list", 32, largest + largest),
            headerFile(sound, "header-schema-format", 44, largest),
            headerFile(sound, "header-utf16", 56, std::string("\0\0\0\2", 4)),
            headerFile(sound, "header-encoding", 56, std::string("\0\0\0\7", 4)),
            headerFile(sound, "schema-zeros", 100, std::string(sound.pageSize - 100, '\0')),
            headerFile(sound, "schema-junk", 100, junk(sound.pageSize - 100, 2)),
            headerFile(sound, "schema-cells", sound.pageSize / 2, junk(sound.pageSize / 2, 3)),
            headerFile(sound, "schema-no-rows", 103, std::string(2, '\0'))};
}

DamagedSet undamagedFiles()
{
    DamagedSet files;
    for (SoundFile const* sound : {&SoundFile::plain(), &SoundFile::longTexts(), &SoundFile::threeLevels(),
                                   &SoundFile::withRemovedRows(), &SoundFile::withLargestKey()})
    {
        files.push_back(changedFile(*sound, "sound", "nothing is damaged", sound->bytes));
    }
    return files;
}

DamagedSet smallFiles()
{
    SoundFile const& small = SoundFile::small();
    DamagedSet all = {changedFile(small, "sound", "nothing is damaged", small.bytes)};
    for (DamagedSet const& files : {pagesOfJunk(small), pagesOfZeros(small), pagesOfOthers(small), cutFiles(small),
                                    damagedFirstPages(small), smallUnfinishedFiles()})
    {
        all.insert(all.end(), files.begin(), files.end());
    }
    return all;
}

DamagedSet damagedSet()
{
    DamagedSet all = undamagedFiles();
    auto const add = [&all](DamagedSet files) { std::move(files.begin(), files.end(), std::back_inserter(all)); };
    for (SoundFile const* sound : {&SoundFile::plain(), &SoundFile::longTexts(), &SoundFile::threeLevels()})
    {
        add(pagesOfJunk(*sound));
        add(pagesOfZeros(*sound));
        add(pagesOfOthers(*sound));
        add(cutFiles(*sound));
        add(damagedFirstPages(*sound));
    }
    add(pagesOfZeros(SoundFile::withRemovedRows()));
    add(craftedPages());
    add(craftedFiles());
    add(unfinishedFiles());
    return all;
}
