#include <fdb/tables/SqlTblUtil.h>

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
    std::stringstream stream;
    stream.exceptions(std::ios::badbit);  // An allocation failure passes on; it says nothing about the text.
    stream.imbue(std::locale::classic()); // The application's locale must not decide what a file says.
    stream << *cell;
    T value = 0;
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
