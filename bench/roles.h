/// The partner processes: this program, started with "--role NAME ARGUMENT...".
#pragma once

#include <string>
#include <vector>

namespace Bench {

void playRole(const std::vector<std::string>& words);

} // namespace Bench
