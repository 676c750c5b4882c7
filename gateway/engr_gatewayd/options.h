// The daemon's command line.
#pragma once

#include "console/place.h"

#include <optional>
#include <string>

namespace gatewayd {

/** Exit statuses. */
constexpr int exit_failed = 1; /**< the gateway could not run */
constexpr int exit_usage = 2;  /**< wrong usage, or a file that cannot be read */

/** The options of the command line. */
struct options {
    std::string interface = "lo";
    std::string address; /**< empty: the interface's */
    std::string data_dir;
    std::string site;     /**< file, or empty */
    std::string scenario; /**< file, or empty */
    std::string trace;    /**< file, or empty */
    std::string record;   /**< file, or empty */
    bool records_secrets = false;
    int mode = 0;
    bool access_point = false;
    std::optional<int> log_level; /**< none: the file has the usual ones, and none is shown */
    std::optional<console::place> console; /**< where it is served; none: there is none */
    bool is_quiet = false;                 /**< what apps do is not shown */
    bool waits_for_address = false; /**< goes on trying while the address is taken at the start */
};

/** The address that is served at the moment; empty when there is none. */
std::string served_address(const options &chosen);

/** Result of parsing: the options, or the exit status of a program that ends at once. */
struct parsed_options {
    options chosen;
    bool ends = false;
    int status = 0;
};

/** Reads the command line and checks it. Help, version and complaints are printed. */
parsed_options parse_options(int count, char **arguments);

} // namespace gatewayd
