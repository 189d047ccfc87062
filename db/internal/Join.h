#pragma once

#include <initializer_list>
#include <string>
#include <string_view>

/// All of `parts` in their order. Chains of operator+ take several times the code.
std::string join(std::initializer_list<std::string_view> parts);
