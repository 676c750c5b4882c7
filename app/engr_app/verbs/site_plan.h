// The verbs of `site` that work with a plan.
#pragma once

#include "verbs/verb.h"

namespace engr_app {

verb_work declare_site_plan(CLI::App &parser);
verb_work declare_site_apply(CLI::App &parser);
verb_work declare_site_export(CLI::App &parser);
verb_work declare_site_schema(CLI::App &parser);

} // namespace engr_app
