/// The interactive mode: commands from the terminal, signals printed above the line as they arrive.
#pragma once

#include "vornclient/command.h"

namespace VornClient {

/// Runs until "quit" or the end of the input. Connects first where `connects`.
void runInteractive(CommandContext& context, bool connects);

} // namespace VornClient
