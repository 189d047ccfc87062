#pragma once

#include "Workloads.h"

#include <memory>
#include <string>

std::unique_ptr<Workload> readFaults(std::string const& path);
std::unique_ptr<Workload> readFaultById(std::string const& path, unsigned int rows);
std::unique_ptr<Workload> readStatisticByCode(std::string const& path);
std::unique_ptr<Workload> countStatistics(std::string const& path);
std::unique_ptr<Workload> countActiveStatistics(std::string const& path);
