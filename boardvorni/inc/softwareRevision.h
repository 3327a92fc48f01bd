/// Names and revisions of software, as the unit's slots have them.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

/// A number by which revisions are compared: "P9Z" is below "R1A", "R1B" below "R1AA", "R9A" below "R10A".
///
/// A revision is a letter P or R, one to four digits, up to four capital letters, up to four digits; what follows isn't
/// looked at. A text of another form gives -1, which is below every revision. `mode` tells what a revision without
/// letters counts as: 'F' nothing, it gives -1; 'H' the one with the highest letters (ZZZZ); 'L' the one with the
/// lowest (A); any other below all of these.
std::int64_t revisionOrderValue(std::string_view revision, char mode);

/// "ABC1_R1A"; without the '_' where one of the two is empty.
std::string softwareName(std::string_view productNumber, std::string_view revision);
