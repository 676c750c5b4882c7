// Environment, configuration file, and the gateway in use.
#include "cli/settings.h"

#include "base/failure.h"
#include "base/suggestion.h"
#include "cli/usage.h"
#include "files/known_gateways.h"
#include "files/user_paths.h"
#include "gateway/session.h"
#include "terminal/console.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

namespace engr_app {
namespace {

using values = std::vector<std::string>;

constexpr const char *gateway_setting = "gateway";

// A person knows what was chosen on the same working day.
constexpr int64_t forgotten_after_s = 8 * 60 * 60;

// The options that may be set, and the environment variable of each, if it has one.
constexpr std::pair<const char *, const char *> settings[] = {
    {gateway_setting, "ENGR_GATEWAY"},
    {"interface", "ENGR_INTERFACE"},
    {"key-file", nullptr},
    {"listen", nullptr},
    {"timeout", nullptr},
};

std::vector<std::string> setting_names() {
    std::vector<std::string> names;
    for (const auto &[name, variable] : settings) {
        names.emplace_back(name);
    }
    return names;
}

// Reads the file as lines NAME = VALUE or NAME = [VALUE, VALUE].
std::map<std::string, values> configured(const std::string &path, console &out) {
    std::map<std::string, values> found;
    std::error_code ignored;
    if (path.empty() || !std::filesystem::exists(path, ignored)) {
        return found;
    }
    std::vector<CLI::ConfigItem> items;
    try {
        items = CLI::ConfigTOML().from_file(path);
    } catch (const CLI::FileError &) {
        out.notice(path + " can't be read and is not used");
    }
    const std::vector<std::string> known = setting_names();
    for (const CLI::ConfigItem &item : items) {
        const std::string name = item.fullname();
        if (item.name == "++" || item.name == "--") {
            continue; // the bounds of a section
        }
        if (std::ranges::count(known, name) > 0) {
            found[name] = item.inputs;
        } else {
            out.notice(
                fmt::format("{}: unknown setting '{}'{}", path, name, did_you_mean(name, known)));
        }
    }
    return found;
}

values from_environment(const char *variable) {
    const char *value = variable == nullptr ? nullptr : std::getenv(variable);
    values all = CLI::detail::split(value == nullptr ? "" : value, ',');
    std::erase(all, "");
    return all;
}

// The same checks as on the command line.
void set_option(CLI::App &whole, CLI::Option &option, const values &given) {
    try {
        option.add_result(given);
        option.run_callback();
    } catch (const CLI::ParseError &problem) {
        option.clear();
        const std::string what = usage_problem(whole, problem);
        const std::string name = option.get_name() + ": ";
        throw wrong_usage(what.starts_with(name) ? what.substr(name.size()) : what);
    }
}

// Returns what has set the option; empty when nothing has.
std::string fill(CLI::App &whole, const char *name, const char *variable, const std::string &path,
                 const std::map<std::string, values> &from_file, console &out) {
    CLI::Option &option = *whole.get_option(std::string("--") + name);
    if (option.count() > 0) {
        return "";
    }
    if (const values given = from_environment(variable); !given.empty()) {
        try {
            set_option(whole, option, given);
        } catch (const failure &wrong) {
            throw wrong_usage(fmt::format("{}: {}", variable, wrong.what()));
        }
        return variable;
    }
    const auto found = from_file.find(name);
    if (found == from_file.end()) {
        return "";
    }
    try {
        set_option(whole, option, found->second);
    } catch (const failure &wrong) {
        out.notice(fmt::format("{}: {} is not used: {}", path, name, wrong.what()));
        return "";
    }
    return path;
}

void use_chosen_gateway(global_options &options, console &out) {
    const gateway_in_use chosen = chosen_by_use(out);
    if (chosen.name.empty()) {
        return;
    }
    options.gateways = {chosen.name};
    options.gateways_from = "engr_app use";
    if (chosen.age_s > forgotten_after_s) {
        out.progress(fmt::format("this is for gateway {}, which is still in use; engr_app use "
                                 "chooses another",
                                 chosen.name));
    }
}

} // namespace

void apply_settings(CLI::App &whole, global_options &options, bool for_gateway, console &out) {
    const std::string path = config_path();
    const std::map<std::string, values> from_file = configured(path, out);
    for (const auto &[name, variable] : settings) {
        const bool chooses_gateway = name == std::string(gateway_setting);
        if (chooses_gateway && (!for_gateway || options.all || !options.gateways.empty())) {
            continue;
        }
        const std::string source = fill(whole, name, variable, path, from_file, out);
        if (chooses_gateway) {
            options.gateways_from = source;
        }
    }
    if (for_gateway && !options.all && options.gateways.empty()) {
        use_chosen_gateway(options, out);
    }
}

} // namespace engr_app
