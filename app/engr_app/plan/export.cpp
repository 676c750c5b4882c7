#include "plan/export.h"

#include "base/json_text.h"
#include "gateway/request.h"
#include "lan_client/frame_types.h"
#include "site/report.h"
#include "support/utf8.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>
#include <yaml-cpp/yaml.h>

namespace engr_app {
namespace {

using nlohmann::json;

constexpr const char *modeline = "# yaml-language-server: $schema=site_plan.schema.json\n";

// In a plan ${ begins a variable.
std::string without_variables(std::string text) {
    for (std::size_t at = text.find("${"); at != std::string::npos; at = text.find("${", at + 3)) {
        text.insert(at, "$");
    }
    return text;
}

class plan_writer {
  public:
    void member(const char *name, const std::string &text) {
        out_ << YAML::Key << name << YAML::Value << YAML::DoubleQuoted << without_variables(text);
    }

    void member_if_known(const char *name, const std::string &text) {
        if (!text.empty()) {
            member(name, text);
        }
    }

    void version_comment(const json &of) {
        if (of.value("sw_ver", json()).is_string()) {
            out_ << YAML::Comment("firmware " + one_line(of["sw_ver"]));
        }
    }

    void devices(const json &devices, const names_file &names) {
        out_ << YAML::Key << "devices" << YAML::Value << YAML::BeginSeq;
        for (const json &one : devices) {
            out_ << YAML::Flow << YAML::BeginMap;
            member("id", member_text(one, "cid"));
            member("product", member_text(one, "pid"));
            member_if_known("name", names.device_name(member_text(one, "cid")));
            member_if_known("room", names.device_room(member_text(one, "cid")));
            out_ << YAML::EndMap;
            version_comment(one);
        }
        out_ << YAML::EndSeq;
    }

    YAML::Emitter &out() { return out_; }

  private:
    YAML::Emitter out_;
};

// Nothing when the gateway has none, or one that a plan can't hold.
std::optional<std::string> app_config(gateway_session &session, const json &report,
                                      std::vector<std::string> &missing) {
    if (!report["app_config"].is_object()) {
        return std::nullopt;
    }
    std::string text = ask_one(session, {.type = lan_client::frame_type::read_app_cfg});
    if (!support::is_utf8(text)) {
        missing.emplace_back("its app configuration, which is not UTF-8");
        return std::nullopt;
    }
    return text;
}

} // namespace

exported_plan export_plan(gateway_session &session, bool versions) {
    const json report = ask_site_report(
        session, {.data_points = false, .versions = versions, .announcement = true});
    exported_plan made;
    const std::optional<std::string> config = app_config(session, report, made.missing);
    made.missing.emplace_back("groups, scenes, scene panels and linkage scenes");
    made.missing.emplace_back("the token and the cloud configuration");
    if (!session.names().names_devices()) {
        made.missing.emplace_back("names and rooms of devices, unless --names has them");
    }
    made.missing.emplace_back("firmware images");
    plan_writer writer;
    YAML::Emitter &out = writer.out();
    out << YAML::BeginMap << YAML::Key << "plan" << YAML::Value << 1;
    out << YAML::Key << "gateways" << YAML::Value << YAML::BeginSeq << YAML::BeginMap;
    const json &about = report["gateway"];
    if (about["id"].is_string()) {
        writer.member("id", member_text(about, "id"));
    }
    writer.member("address", member_text(about, "address"));
    writer.version_comment(about);
    if (report["channel"].is_number_integer()) {
        out << YAML::Key << "channel" << YAML::Value << report["channel"].get<int64_t>();
    }
    writer.devices(report["devices"], session.names());
    if (config) {
        out << YAML::Key << "configuration" << YAML::Value << YAML::BeginMap;
        out << YAML::Key << "app" << YAML::Value << YAML::BeginMap;
        writer.member("text", *config);
        out << YAML::EndMap << YAML::EndMap;
    }
    out << YAML::EndMap << YAML::EndSeq << YAML::EndMap;
    made.yaml = fmt::format("{}# What {} had on {}.\n# Not in it, since a gateway does not tell:\n",
                            modeline, session.chosen().name(), member_text(report, "time"));
    for (const std::string &one : made.missing) {
        made.yaml += "#   " + one + "\n";
    }
    made.yaml += out.c_str();
    return made;
}

} // namespace engr_app
