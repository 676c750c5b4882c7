// raw: one frame of any type, for what no verb covers.
#include "base/failure.h"
#include "base/json_text.h"
#include "files/input_file.h"
#include "gateway/explain.h"
#include "gateway/session.h"
#include "support/numbers.h"
#include "verbs/consent.h"
#include "verbs/verb.h"

#include <memory>

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace engr_app {
namespace {

struct raw_arguments {
    std::string type;
    std::string payload;
    bool plain = false;
    bool hex = false;
    consent asked;
};

uint32_t parse_type(const std::string &text) {
    if (const auto number = support::whole_number<uint32_t>(text)) {
        return *number;
    }
    if (const auto *info = lan_client::find_frame_type(text)) {
        return info->number;
    }
    throw wrong_usage(fmt::format("raw: unknown frame type {}; give a number or one of the names "
                                  "that engr_app raw --help lists",
                                  text));
}

std::string read_payload(const raw_arguments &given) {
    std::string payload = given.payload;
    if (payload == "-") {
        payload = standard_input();
    }
    if (given.hex) {
        // What comes from a file or an echo ends with a line end.
        payload.erase(payload.find_last_not_of(" \r\n") + 1);
        return support::from_hex("raw --hex", payload);
    }
    return payload;
}

void show_answer(gateway_session &session, const lan_client::answer &answered, bool hex) {
    console &out = session.out();
    const std::string payload = hex ? support::to_hex(answered.payload) : answered.payload;
    if (out.json()) {
        return out.document(
            {{"type", answered.type},
             {"name", lan_client::frame_type_text(answered.type)},
             {"number", answered.number},
             {"ret", answered.ret},
             {"payload", hex ? nlohmann::json(payload) : payload_json(payload)},
             {"round_trip_ms", static_cast<double>(answered.round_trip.count()) / 1000}});
    }
    out.line(fmt::format("ret {}, {} bytes", answered.ret, answered.payload.size()));
    if (!payload.empty()) {
        out.text(payload);
    }
}

int raw(gateway_session &session, raw_arguments &given) {
    const uint32_t type = parse_type(given.type);
    given.asked.require(session, "Send " + lan_client::frame_type_text(type));
    lan_client::request request{.type = type,
                                .payload = read_payload(given),
                                .coding = given.plain ? lan_client::payload_coding::plain
                                                      : lan_client::request_coding(type)};
    const auto answers = session.ask({std::move(request)});
    if (answers.front().failure) {
        throw explain(session, answers.front());
    }
    show_answer(session, answers.front(), given.hex);
    return answers.front().ret == 0 ? exit_success : exit_failed;
}

std::string type_list() {
    std::string list = "Frame types:\n";
    for (const lan_client::frame_type_info &info : lan_client::frame_types()) {
        if (info.answer != lan_client::answer_rule::not_a_request) {
            list += fmt::format("  {}  {}  {}\n", info.number, info.name, info.description);
        }
    }
    return list;
}

} // namespace

verb_work declare_raw(CLI::App &parser) {
    const auto given = std::make_shared<raw_arguments>();
    parser.add_option("TYPE", given->type, "Frame type: its number or its name")->required();
    parser.add_option("PAYLOAD", given->payload,
                      "Payload as text, - to read it from standard input; encrypted unless the "
                      "gateway takes this type's payload as it is (231 and those without one)");
    parser.add_flag("--plain", given->plain, "Send the payload unencrypted");
    parser.add_flag("--hex", given->hex, "PAYLOAD is hex digits, and the answer is shown so");
    given->asked.declare(parser, asked_runs::with_all);
    parser.footer("Exit status 1 when the gateway answers with a ret other than 0.\n\n" +
                  type_list() +
                  "\nExamples:\n"
                  "  engr_app raw FRM_DEV_LIST\n"
                  "  engr_app raw 10 '{\"cid\": \"a1\"}' --json\n"
                  "  engr_app raw tp_cmd '{\"cid\": \"a1\", \"dps\": {\"1\": true}}'");
    return with_arguments(given, raw);
}

} // namespace engr_app
