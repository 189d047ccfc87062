// Compares the conversion of a cell to a number with the standard stream extraction in the classic locale.
//
// Input: the text of the cell. An empty input means NULL.

#include "FuzzSupport.h"

#include <fdb/tables/SqlTblUtil.h>

#include <cstring>
#include <limits>
#include <locale>
#include <memory>
#include <sstream>

namespace
{

/// A locale whose number format differs from the classic one.
class Grouping : public std::numpunct<char>
{
    char do_thousands_sep() const override { return '.'; }
    std::string do_grouping() const override { return "\3"; }
};

template <class T>
void compare(char* cell)
{
    constexpr T kUntouched = std::numeric_limits<T>::max() / 3;
    T converted = kUntouched;
    int const result = SqlTblUtil::setValueFromSqlResult(&cell, &converted);

    T extracted = 0;
    bool isNumber = false;
    if (cell != nullptr)
    {
        std::istringstream stream(cell);
        stream.imbue(std::locale::classic());
        isNumber = static_cast<bool>(stream >> extracted);
    }
    fuzz::require(result == (isNumber ? 0 : -1), "the result says whether the stream extracts a number");
    fuzz::require(converted == (isNumber ? extracted : kUntouched), "the value is the stream's, or is left alone");
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    fuzz::silenceLog();
    std::locale::global(std::locale(std::locale::classic(), new Grouping));
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    // Allocate exactly the size of the text, so that the address sanitizer detects every read beyond it.
    std::unique_ptr<char[]> cell;
    if (size > 0)
    {
        std::size_t const length = strnlen(reinterpret_cast<char const*>(data), size);
        cell = std::make_unique<char[]>(length + 1);
        std::memcpy(cell.get(), data, length);
    }
    compare<unsigned short>(cell.get());
    compare<unsigned int>(cell.get());
    compare<unsigned long long>(cell.get());
    return 0;
}
