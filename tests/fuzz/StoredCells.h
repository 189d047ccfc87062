#pragma once

#include "FuzzSupport.h"

#include <fdb/records/Fault.h>
#include <fdb/records/FaultStatistic.h>

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

/// The text that a literal with `text` between its quotes stands for; none when it would end before.
std::optional<std::string> stored(std::string_view text);

/// The cells of the row that a record is stored as under `key`.
fuzz::Cells cellsOf(Fault const& f, std::size_t key);
fuzz::Cells cellsOf(FaultStatistic const& s, std::size_t key);
