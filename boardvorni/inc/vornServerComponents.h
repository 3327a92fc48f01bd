/// The list of all components.
#pragma once

#include <memory>
#include <vector>

class VornServerCommonData;
class VornServerComponent;

/// Builds the components in the order in which they are initialised, told of sessions and listed.
std::vector<std::unique_ptr<VornServerComponent>> makeComponents(VornServerCommonData& commonData);
