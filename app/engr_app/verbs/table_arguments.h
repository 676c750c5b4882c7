// Options of verbs that print a table.
#pragma once

#include "terminal/table.h"

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace engr_app {

/**
 * Declares --sort, --filter, --fields, --no-header and --csv, which go with no --json.
 *
 * @param view     is filled while the command line is parsed
 * @param columns  that the table may have; others are refused, but for GATEWAY, which there is
 *                 with several gateways
 */
void declare_table(CLI::App &parser, table_view &view, std::vector<std::string> columns);

} // namespace engr_app
