// The local keys of many gateways in one file.
#pragma once

#include <map>
#include <string>

namespace engr_app {

class console;

/**
 * Reads a JSON object {"ID": "KEY"}, or lines "ID KEY" with # comments; an address may stand for an
 * id. Warns when others may read the file.
 *
 * @throws failure of wrong usage, which never quotes a key
 */
[[nodiscard]] std::map<std::string, std::string> read_key_file(const std::string &path,
                                                               console &out);

} // namespace engr_app
