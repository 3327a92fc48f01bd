/// One function per family of procedures, each in a file of its own: it enters the family's commands into the table.
#pragma once

namespace VornClient {

class CommandTable;

void addConnectionCommands(CommandTable& table);
void addMmiCommands(CommandTable& table);
void addTimeCommands(CommandTable& table);
void addLinkSupervisionCommands(CommandTable& table);
void addDeepSleepCommands(CommandTable& table);
void addOamStateCommands(CommandTable& table);
void addFaultCommands(CommandTable& table);
void addSoftwareCommands(CommandTable& table);
void addProductDataCommands(CommandTable& table);
void addHwLogCommands(CommandTable& table);
void addFruDescriptionCommands(CommandTable& table);
void addCapabilityCommands(CommandTable& table);
void addTemperatureCommands(CommandTable& table);
void addRestartCommands(CommandTable& table);
void addVisualIndicationCommands(CommandTable& table);
void addMaintenanceStateCommands(CommandTable& table);
void addHereIAmCommands(CommandTable& table);
void addOpticalIndicatorCommands(CommandTable& table);
void addPanelCommands(CommandTable& table);
void addRhuneCommands(CommandTable& table);
void addSignalCommands(CommandTable& table);
void addSessionCommands(CommandTable& table);

} // namespace VornClient
