#pragma once

#include "Workloads.h"

#include <memory>
#include <string>

std::unique_ptr<Workload> recordFault(std::string const& folder);
std::unique_ptr<Workload> recordFaultDurably(std::string const& folder);
std::unique_ptr<Workload> recordIntoFile(std::string const& path);
std::unique_ptr<Workload> updateFault(std::string const& folder);
std::unique_ptr<Workload> updateStatistic(std::string const& folder);
std::unique_ptr<Workload> renumber(std::string const& folder, unsigned int rows);
