#pragma once

#include <map>
#include <string>

struct sqlite3;

/// The rows of a table by key. Two rows are equal only when all cells have the same types and values.
using StoredRows = std::map<long long, std::string>;

/// The rows that SQLite reads from `table`, whose first column is the key. Throws when the table cannot be read whole.
StoredRows storedRows(sqlite3* db, std::string const& table);
