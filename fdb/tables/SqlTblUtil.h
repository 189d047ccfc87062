#pragma once

#include <db/Export.h>
#include <db/LogUtil.h>

#include <string>

/// Conversion of result cells. `printError`, which reports values that do not convert, is in db/LogUtil.h.
namespace SqlTblUtil
{

/// Converts the NUL-terminated text `*cell` to an unsigned integer and stores it in `*target`.
///
/// The rules are those of standard stream extraction in decimal: leading blanks are skipped, reading stops at the first
/// character that cannot continue the number, a minus sign makes the value wrap.
///
/// Returns 0; or -1 with `*target` unchanged:
/// - for a null text (SQL NULL), without a report
/// - for a text without digits or a number beyond the type's width, after the report "[ERROR] Casting value"
///
/// Compiled for unsigned short, unsigned int and unsigned long long.
template <class T>
FIRAIM_EXPORT int setValueFromSqlResult(char** cell, T* target);

extern template int setValueFromSqlResult(char** cell, unsigned short* target);
extern template int setValueFromSqlResult(char** cell, unsigned int* target);
extern template int setValueFromSqlResult(char** cell, unsigned long long* target);

} // namespace SqlTblUtil
