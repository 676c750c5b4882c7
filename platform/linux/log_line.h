/* The form of the log's lines. */
#pragma once

#include <string>

namespace linux_port {

/** Appends `TIME LEVEL FILE:LINE FUNCTION ` for a line that is written now; directories of the file
 * are left out. */
void begin_line(std::string &text, int level, std::string_view file, int line,
                std::string_view function);

} // namespace linux_port
