/// The figures of a run as tables.
#pragma once

#include "play.h"

#include <string>

namespace Endurance {

std::string printResult(const Result& result);

} // namespace Endurance
