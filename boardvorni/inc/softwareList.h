/// The software component list on its way to a client: a text in tags, which is searched for them and never parsed.
#pragma once

#include <string>

/// Marks every software list in this part of a list as preinstalled, for a unit with a manipulated product number.
///
/// The mark goes one position before the tag, thus in front of the newline that ends the line before. Throws
/// std::out_of_range where the part begins with the tag, and leaves the part as it is; a tag that is split over two
/// parts isn't found.
void markPreinstalled(std::string& part);

/// Rewrites the whole list for a GSM client on an IRU: a list without preinstalled software gets a fixed one, and the
/// first two product numbers and the first revision become those of the running software.
///
/// runningSoftware: product number, '_', revision, with a '%' for the product number's '/'. Without a '_' there is no
/// revision, and an empty text empties the numbers.
/// Throws std::out_of_range, and leaves the list as it is, where it has neither preinstalled software nor "<LmcList>".
void rewriteForGsmIru(std::string& list, const std::string& runningSoftware);

/// Takes the next part that goes to a GSM client on an IRU off the list: at most 255 bytes.
std::string takePart(std::string& list);
