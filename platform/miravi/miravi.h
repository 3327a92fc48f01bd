/// miravi: the unit's restart log, "$RU_DIR/log/miravi.log".
#pragma once

#include <string_view>

/// Appends one line to the log: time (UTC, ISO 8601, milliseconds), category, text; control characters in the text
/// are written as escapes, so that a record stays one line. The file is capped at 1 MiB: it is then moved to
/// "miravi.log.1", replacing an earlier one, and begun anew. Several processes and threads may write at once; a line is
/// written whole. A log that can't be written is ignored: the unit runs on.
void miravi_log(std::string_view category, std::string_view text);
