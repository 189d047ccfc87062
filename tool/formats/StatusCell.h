#pragma once

#include <tool/terminal/TextTable.h>

#include <fdb/records/FaultStatus.h>

namespace tool
{

/// The word for a status, with its colour on a terminal.
TextTable::Cell statusCell(faultStatus_t status);

/// The same, but with the word that the fault table stores.
TextTable::Cell storedStatusCell(faultStatus_t status);

} // namespace tool
