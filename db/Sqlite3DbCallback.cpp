#include <db/Sqlite3DbCallback.h>

Sqlite3DbCallback::~Sqlite3DbCallback() = default;
