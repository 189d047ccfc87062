#pragma once

#include "FuzzSupport.h"

#include <fdb/records/Fault.h>
#include <fdb/records/FaultStatistic.h>

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

/// The value of an SQL literal with `text` between its quotes; none when `text` would end the literal early.
std::optional<std::string> stored(std::string_view text);

/// The cells of the row in which a record is stored with `key`.
fuzz::Cells cellsOf(Fault const& f, std::size_t key);
fuzz::Cells cellsOf(FaultStatistic const& s, std::size_t key);
