/// The form in which the simulator tells its state; keys keep the order in which they were entered.
#pragma once

#include <nlohmann/json.hpp>

namespace boardsim {

using Json = nlohmann::ordered_json;

} // namespace boardsim
