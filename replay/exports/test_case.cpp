// Writes C++ in the vocabulary of tests/agent/story_gateway.h.
#include "exports/exports.h"
#include "support/input_error.h"
#include "support/numbers.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cctype>
#include <map>
#include <utility>
#include <vector>

namespace replay {
namespace {

using nlohmann::ordered_json;
using session::side;

/** Shorter pauses mean nothing to an agent in virtual time. */
constexpr uint64_t pause_told_us = 100'000;

constexpr const char *head =
    R"(// {0}: a recorded session, which engr_replay has put into this form.
{3}
namespace {{

using testing::UnorderedElementsAre;

const std::string {0}_site = {1};
const std::string {0}_scenario = {2};

/** All that has come to an app, as TYPE/NUMBER/RET/TEXT. */
std::vector<std::string> {0}_taken(story_app &app) {{
    std::vector<std::string> frames;
    for (std::string each = app.receive_text(1); each != "nothing"; each = app.receive_text(1)) {{
        frames.push_back(each);
    }}
    return frames;
}}

TEST(recorded_sessions, {0}) {{
    const working_directory files;
    sim::world world;
    {{
        story_gateway gateway(world, {0}_site, {0}_scenario);
        gateway.start();
)";

constexpr const char *includes = "#include \"story_gateway.h\"\n\n#include <gmock/gmock.h>\n";

constexpr const char *foot = R"(    }
    world.finish();
}

} // namespace
)";

/** A text as a literal of C++. */
std::string literal(std::string_view text) {
    const bool is_printable =
        std::ranges::all_of(text, [](char each) { return each >= ' ' && each <= '~'; });
    if (is_printable && text.find(")~") == std::string_view::npos) {
        return fmt::format("R\"~({})~\"", text);
    }
    std::string written;
    for (const char each : text) {
        written += fmt::format("\\{:03o}", static_cast<unsigned char>(each));
    }
    return fmt::format("std::string(\"{}\", {})", written, text.size());
}

bool is_encrypted(const session::frame_content &content) {
    return content.coded == session::coding::local || content.coded == session::coding::built_in;
}

/** What receive_text gives for a frame. */
std::string received_text(const session::frame_content &content) {
    const bool can_be_decrypted = content.payload.empty() || is_encrypted(content);
    return fmt::format("{}/{}/{}/{}", content.type, content.number, content.ret.value_or(0),
                       can_be_decrypted ? content.payload : "(undecryptable)");
}

std::string shown_dps(const std::vector<std::string> &line) {
    if (line.size() == 3 && line[2].starts_with('{')) {
        return line[2];
    }
    ordered_json dps = ordered_json::object();
    for (std::size_t at = 2; at < line.size(); ++at) {
        const std::size_t sign = std::min(line[at].find('='), line[at].size());
        const std::string text = line[at].substr(std::min(sign + 1, line[at].size()));
        const ordered_json value = ordered_json::parse(text, nullptr, false);
        dps[line[at].substr(0, sign)] =
            value.is_boolean() || value.is_number() ? value : ordered_json(text);
    }
    return dps.dump();
}

/** The statement that does what a line of the operator did. */
std::string operator_statement(const std::vector<std::string> &line) {
    const std::string verb = line.empty() ? "" : line[0];
    if (verb == "report" && line.size() > 2) {
        return fmt::format("::gateway::report_data_points({}, {});", literal(line[1]),
                           literal(shown_dps(line)));
    }
    if (verb == "set" && line.size() == 3) {
        return fmt::format("::gateway::set_gateway_field({}, {});", literal(line[1]),
                           literal(line[2]));
    }
    if (verb == "device" && line.size() == 4) {
        return fmt::format("::gateway::set_device_field({}, {}, {});", literal(line[1]),
                           literal(line[2]), literal(line[3]));
    }
    if (verb == "fault" && line.size() == 3) {
        return fmt::format("::gateway::set_service_fault({}, {});", literal(line[1]),
                           line[2] == "off" ? "std::nullopt" : line[2]);
    }
    if (verb == "join" && line.size() > 1) {
        return fmt::format("::gateway::join_device({}, {});", literal(line[1]),
                           line.size() > 2 ? literal(line[2]) : "std::nullopt");
    }
    if (verb == "network" && line.size() == 2) {
        return fmt::format("::gateway::set_network_up({});", line[1] == "up");
    }
    throw support::input_error(
        fmt::format("the tests of the agent have no words for the operator's verb '{}'; shrink the "
                    "session, or keep it as it is for engr_replay",
                    verb));
}

class test_writer {
  public:
    test_writer(const recording &from, const std::string &name) : from_(from), name_(name) {}

    std::string statements() {
        for (const session::event &each : from_.events) {
            std::visit([&](const auto &what) { take(each.at_us, what); }, each.what);
        }
        expect();
        return std::move(text_);
    }

  private:
    void say(const std::string &statement) { text_ += "        " + statement + "\n"; }

    /** What came since the last act. */
    void expect() {
        for (const auto &[client, frames] : expected_) {
            std::string list;
            for (const std::string &each : frames) {
                list += (list.empty() ? "\n            " : ",\n            ") + literal(each);
            }
            say(fmt::format("EXPECT_THAT({}_taken(app{}), UnorderedElementsAre({}));", name_,
                            client, list));
        }
        expected_.clear();
    }
    void act(uint64_t at_us) {
        expect();
        if (at_us > last_us_ + pause_told_us) {
            say(fmt::format("world.run_for({});", (at_us - last_us_) / 1000));
        }
        last_us_ = at_us;
    }

    /** A story_app begins with the key of a gateway that is not activated. */
    void use_key(const session::frame &of) {
        const bool is_local = of.content.coded == session::coding::local;
        if (is_encrypted(of.content) &&
            std::exchange(has_local_key_[of.client], is_local) != is_local) {
            const std::string key = is_local ? fmt::format("*lan_client::aes_key::from_text({})",
                                                           literal(from_.begin.key))
                                             : "lan_client::unactivated_key()";
            say(fmt::format("app{}.key = {};", of.client, key));
        }
    }

    void take(uint64_t at_us, const session::connected &of) {
        act(at_us);
        say(fmt::format("story_app app{} = gateway.connect();", of.client));
    }
    void take(uint64_t at_us, const session::closed &of) {
        if (of.by != side::gateway) {
            act(at_us);
            say(fmt::format("app{}.peer.close();", of.client));
        }
    }
    void take(uint64_t at_us, const session::frame &of) {
        if (of.from == side::gateway) {
            use_key(of);
            expected_[of.client].push_back(received_text(of.content));
            return;
        }
        act(at_us);
        use_key(of);
        say(fmt::format("app{}.{}({}, {}, {});", of.client,
                        is_encrypted(of.content) ? "send_encrypted" : "send", of.content.number,
                        of.content.type, literal(of.content.payload)));
    }
    void take(uint64_t at_us, const session::raw_bytes &of) {
        if (of.from == side::app) {
            act(at_us);
            say(fmt::format("app{}.peer.send({});", of.client, literal(of.bytes)));
        }
    }
    void take(uint64_t, const session::datagram &of) {
        if (of.from == side::app) {
            throw support::input_error("the tests of the agent have no words for the datagrams of "
                                       "an app; keep the session as it is for engr_replay");
        }
    }
    void take(uint64_t at_us, const session::control &of) {
        act(at_us);
        say(operator_statement(of.line));
    }
    template <typename Other>
    void take(uint64_t, const Other &) {}

    const recording &from_;
    const std::string &name_;
    std::string text_;
    std::map<uint32_t, bool> has_local_key_;                // by client
    std::map<uint32_t, std::vector<std::string>> expected_; // by client
    uint64_t last_us_ = 0;
};

} // namespace

std::string test_case_of(const recording &from, const std::string &name) {
    const std::string &scenario = from.begin.scenario;
    return fmt::format(head, name, literal(from.begin.site),
                       literal(scenario.empty() ? "{}" : scenario), includes) +
           test_writer(from, name).statements() + foot;
}

std::string identifier_of(const std::string &file) {
    std::string name = file.substr(file.rfind('/') + 1);
    name = name.substr(0, name.find('.'));
    for (char &each : name) {
        each = std::isalnum(static_cast<unsigned char>(each)) != 0 ? each : '_';
    }
    return name.empty() || std::isdigit(static_cast<unsigned char>(name[0])) != 0
               ? "session_" + name
               : name;
}

} // namespace replay
