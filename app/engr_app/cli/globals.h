// The options that all verbs have.
#pragma once

namespace CLI {
class App;
}

namespace engr_app {

struct global_options;

/** Declares the options; `options` is filled by the parser and must live as long. */
void declare_globals(CLI::App &whole, global_options &options);

} // namespace engr_app
