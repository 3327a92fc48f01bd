/// The unit's run-time directory, under which every stand-in of the platform keeps its files.
///
/// Its files are trusted, so the directory isn't taken as it is found. It is opened step by step from "/" and no step
/// follows a symbolic link. Each parent belongs to root or to the process's effective user and can't be written by
/// others, unless it is sticky. The directory itself and the folders in it belong to the effective user, and neither
/// group nor others can write to them. What is missing is made with mode 0700. If something is wrong, the functions
/// fail, and one line on standard error says what: "run-time directory: /run/ru: belongs to user 1000". Such a line is
/// written once per process and never blocks.
#pragma once

#include "uniqueFd.h"

#include <string>

/// Returns the path "$RU_DIR/<folder>", by default "/run/ru/<folder>". RU_DIR is read once per process; a relative one
/// is resolved against the working directory of that moment.
std::string ruDir(const char* folder);

/// Opens that folder for reading. Sets `error` to 0 or, if no descriptor is returned, to an errno value: ENOENT (there
/// is none), ELOOP (a symbolic link), ENOTDIR, EPERM (a wrong owner or mode), or what the system said.
UniqueFd openRuDir(const char* folder, int& error);

/// The same; makes the folder and its parents if they are missing.
UniqueFd makeAndOpenRuDir(const char* folder, int& error);

/// The same, for users that need the path. The path is returned in any case, but must not be used if `error` isn't 0.
std::string makeRuDir(const char* folder, int& error);
