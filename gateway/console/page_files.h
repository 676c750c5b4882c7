// The files of the page, which are part of the program; the build makes the other half from page/.
#pragma once

#include "console/web_server.h"

#include <span>

namespace console {

/** The page and what it loads. */
std::span<const web_file> page_files();

} // namespace console
