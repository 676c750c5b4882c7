// config: the two configuration files pushed, and one read back.
#include "base/json_text.h"
#include "files/input_file.h"
#include "files/output_file.h"
#include "gateway/configuration.h"
#include "gateway/request.h"
#include "verbs/consent.h"
#include "verbs/verb.h"

#include <algorithm>
#include <memory>
#include <utility>

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace engr_app {
namespace {

namespace frame_type = lan_client::frame_type;

struct config_arguments {
    std::string kind;
    std::string file;
    bool force = false;
    consent asked;
};

int push(gateway_session &session, config_arguments &given) {
    std::string text = checked_configuration(file_text(given.file), given.file);
    const std::size_t size = text.size();
    const bool cloud = given.kind == "cloud";
    given.asked.require(session, cloud ? "Store the cloud configuration, which ends engineering,"
                                       : "Replace the app configuration");
    progress_bar bar = session.out().bar("configuration", size);
    // The bar counts the text; what the frame adds is too little to show.
    const auto moved = [&bar, size](std::size_t sent, std::size_t) {
        bar.show(std::min(sent, size));
    };
    lan_client::request request =
        configuration_request(cloud ? configuration_kind::cloud : configuration_kind::app,
                              std::move(text), session.answer_time());
    request.on_sent = moved;
    ask_one(session, std::move(request));
    bar.finish();
    return print_result(session,
                        fmt::format("{} has the {} configuration ({} bytes){}",
                                    session.chosen().name(), given.kind, size,
                                    cloud ? " and has taken it over: this ends engineering" : ""),
                        {{"kind", given.kind}, {"bytes", size}, {"engineering_ended", cloud}});
}

int pull(gateway_session &session, const config_arguments &given) {
    const std::string path = given.file.empty() ? "" : session.output_path(given.file);
    if (!path.empty()) {
        check_output_path(path, given.force);
    }
    const std::string text = ask_one(session, {.type = frame_type::read_app_cfg});
    if (!path.empty()) {
        write_file(path, text);
        return print_result(session,
                            fmt::format("the app configuration of {}, {} bytes, is in {}",
                                        session.chosen().name(), text.size(), path),
                            {{"file", path}, {"bytes", text.size()}});
    }
    if (session.out().json()) {
        session.out().document({{"bytes", text.size()}, {"config", payload_json(text)}});
    } else {
        session.out().text(text.ends_with('\n') ? text.substr(0, text.size() - 1) : text);
    }
    return exit_success;
}

verb_work declare_config_push(CLI::App &parser) {
    const auto given = std::make_shared<config_arguments>();
    parser.add_option("KIND", given->kind, "Which configuration: app or cloud")
        ->required()
        ->check(CLI::IsMember({"cloud", "app"}));
    parser.add_option("FILE", given->file, "The configuration; - reads it from standard input")
        ->required();
    given->asked.declare(parser, [arguments = given.get()] {
        return arguments->kind == "cloud" ? asked_runs::any : asked_runs::with_all;
    });
    return with_arguments(given, push);
}

verb_work declare_config_pull(CLI::App &parser) {
    const auto given = std::make_shared<config_arguments>();
    parser.add_option("KIND", given->kind, "Which configuration: only app can be read back")
        ->required()
        ->check(CLI::IsMember({"app"}));
    parser.add_option("FILE", given->file,
                      "Where to write it, whole or not at all; when left out, to standard output");
    parser.add_flag("--force", given->force, "Overwrite FILE");
    return with_arguments(given, pull);
}

} // namespace

verb_work declare_config(CLI::App &parser) {
    parser.footer("A configuration is a text that ends with }, such as a JSON object; an empty "
                  "one is taken, too.\nThe cloud configuration comes last: when the gateway has "
                  "it, engineering is "
                  "over. Only the\napp configuration can be read back.\n\n"
                  "Examples:\n"
                  "  engr_app config push app app.config\n"
                  "  engr_app config pull app copy.config\n"
                  "  engr_app config push cloud cloud.config");
    return add_subverbs(parser, {{"push", "give the gateway a configuration", declare_config_push},
                                 {"pull", "read the app configuration back", declare_config_pull}});
}

} // namespace engr_app
