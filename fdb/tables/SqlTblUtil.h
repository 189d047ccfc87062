#pragma once

#include <db/Export.h>
#include <db/LogUtil.h>

#include <string>

/// Conversion of result cells. The report of values that do not convert, `printError`, comes with db/LogUtil.h.
namespace SqlTblUtil
{

/// Converts the NUL-terminated text `*cell` into an unsigned integer and stores it in `*target`.
///
/// The rules are those of the standard stream extraction in decimal: leading blanks are passed over, reading stops at
/// the first character that cannot continue the number, a minus sign makes the value wrap. Returns 0; -1 with `*target`
/// unchanged for a null text (SQL NULL) without a report, and for a text without digits or with a number beyond the
/// type's width after the report "[ERROR] Casting value".
/// Compiled for unsigned short, unsigned int and unsigned long long.
template <class T>
FIRAIM_EXPORT int setValueFromSqlResult(char** cell, T* target);

extern template int setValueFromSqlResult(char** cell, unsigned short* target);
extern template int setValueFromSqlResult(char** cell, unsigned int* target);
extern template int setValueFromSqlResult(char** cell, unsigned long long* target);

} // namespace SqlTblUtil
