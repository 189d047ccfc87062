#include <fdb/tables/SqlTblUtil.h>

#include <charconv>
#include <cstring>
#include <locale>
#include <sstream>

namespace SqlTblUtil
{

template <class T>
int setValueFromSqlResult(char** cell, T* target)
{
    if (*cell == nullptr)
    {
        return -1;
    }
    T value = 0;
    char const* const end = *cell + std::strlen(*cell);
    auto const [stop, error] = std::from_chars(*cell, end, value);
    if (error == std::errc() && stop == end)
    {
        *target = value;
        return 0;
    }
    // Not plain digits, or too many: only standard extraction decides how blanks, signs and the rest are read.
    std::stringstream stream;
    stream.exceptions(std::ios::badbit);  // Let an allocation failure pass; it says nothing about the text.
    stream.imbue(std::locale::classic()); // The application's locale must not change how a file is read.
    stream << *cell;
    stream >> value;
    if (stream.fail())
    {
        printError("[ERROR] Casting value", stream.str());
        return -1;
    }
    *target = value;
    return 0;
}

template int setValueFromSqlResult(char** cell, unsigned short* target);
template int setValueFromSqlResult(char** cell, unsigned int* target);
template int setValueFromSqlResult(char** cell, unsigned long long* target);

} // namespace SqlTblUtil
