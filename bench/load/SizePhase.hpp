// The size of the program: lcfd stripped, as it would be installed.
#pragma once

#include <string>

#include "Support.hpp"

namespace load {

// Strips a copy of `lcfd` and reports its size against the target; a note when strip failed.
void measureSize(const std::string& lcfd, Report& report);

}  // namespace load
