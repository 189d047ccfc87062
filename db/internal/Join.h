#pragma once

#include <initializer_list>
#include <string>
#include <string_view>

/// Concatenates `parts`. Chains of operator+ compile to several times the code.
std::string join(std::initializer_list<std::string_view> parts);
