#pragma once

#include "Workloads.h"

#include <memory>
#include <string>

std::unique_ptr<Workload> writeInsertText();
std::unique_ptr<Workload> writeUpdateText();
std::unique_ptr<Workload> decodeFault(std::string const& path);
