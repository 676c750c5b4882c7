// The data directory of a gateway: where it is, and how a program enters it.
#pragma once

#include <stdexcept>
#include <string>

namespace control {

/** Control socket, lock file and log in the data directory. */
constexpr const char *socket_name = "control.sock";
constexpr const char *lock_name = "lock";

/** The data directory when none is named: below $XDG_STATE_HOME or ~/.local/state, else
 * ./engr_gateway. */
std::string default_data_dir();
/** The same in words, for help texts. */
constexpr const char *default_data_dir_help =
    "$XDG_STATE_HOME/engr_gatewayd, else ~/.local/state/engr_gatewayd, else ./engr_gateway";

/** The directory cannot be entered; the message says which and why. */
class directory_error : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

/**
 * Makes a directory the working directory, however long its name is.
 *
 * @param create  makes what is missing of it, for its owner only
 * @throws directory_error
 */
void enter_directory(const std::string &path, bool create);

} // namespace control
