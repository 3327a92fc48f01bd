/// The unit's log files: lines appended to "$RU_DIR/log/<name>.log". The platform's logs stand on it.
#pragma once

#include <initializer_list>
#include <string_view>

/// Appends one line: time (UTC, ISO 8601, milliseconds) and the fields, a blank between them; control characters in a
/// field are written as escapes, so that a record stays one line, and a line of more than 64 KiB is cut. The file is
/// capped at 1 MiB: it is then moved to "<name>.log.1", replacing an earlier one, and begun anew. Several processes and
/// threads may write at once; a line is written whole. A log that can't be written is ignored: the unit runs on. Leaves
/// errno as it is.
void unitLogWrite(const char* name, std::initializer_list<std::string_view> fields) noexcept;
