// The files that the command line names. They are opened before the daemon enters its data
// directory.
#pragma once

#include "gateway_services/scenario.h"
#include "gateway_services/site.h"
#include "options.h"
#include "session/file.h"
#include "trace_file.h"

#include <memory>
#include <string>

namespace gatewayd {

/** The files' contents, and the open trace file. */
struct input_files {
    gateway::site site;
    gateway::scenario scenario;
    std::string scenario_text;             /**< as it was read; empty: there is none */
    std::shared_ptr<trace_file> trace;     /**< none: no trace is wanted */
    std::shared_ptr<session::file> record; /**< none: the session is not recorded */
};

/** @throws gateway::usage_error that names the file and what is wrong with it */
input_files read_input_files(const options &chosen);

} // namespace gatewayd
