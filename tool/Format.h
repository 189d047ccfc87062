#pragma once

#include <string>
#include <vector>

/// The file format as the library's own tables describe it.
namespace tool
{

/// What a column holds.
enum class content_t
{
    KEY,
    NUMBER,
    TEXT,
    STATUS ///< a text that is one of `words`, which holds what is written for a number that is none, too
};

struct column_t
{
    std::string name;
    std::string sqlType; ///< without what makes it a key
    content_t content;
    unsigned int bits = 0;          ///< of a number
    std::vector<std::string> words; ///< of a status
};

struct tableFormat_t
{
    std::string name;
    std::vector<column_t> columns; ///< in the order of the file; the key is the first
    std::string createStatement;   ///< as sqlite_master holds it
};

tableFormat_t const& faultFormat();
tableFormat_t const& statisticFormat();
tableFormat_t const& versionFormat();

/// The three, in the order in which they are created.
std::vector<tableFormat_t const*> const& allFormats();

/// Positions of columns in the formats above.
namespace faultColumn
{
constexpr int ENTRY_ID = 0;
constexpr int TIME_STAMP = 6;
} // namespace faultColumn

namespace statisticColumn
{
constexpr int TIME_FIRST = 3;
constexpr int TIME_LAST = 4;
} // namespace statisticColumn

} // namespace tool
