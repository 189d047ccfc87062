#pragma once

#include <tool/terminal/TextTable.h>

#include <fdb/records/FaultStatus.h>

namespace tool
{

/// The word for a status, in the colour in which a terminal shows it.
TextTable::Cell statusCell(faultStatus_t status);

/// The same with the word that the fault table holds.
TextTable::Cell storedStatusCell(faultStatus_t status);

} // namespace tool
