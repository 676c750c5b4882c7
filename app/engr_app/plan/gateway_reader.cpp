#include "plan/gateway_reader.h"

#include "base/failure.h"
#include "base/json_text.h"
#include "files/input_file.h"
#include "files/json_file.h"
#include "gateway/configuration.h"
#include "lan_client/frame_types.h"
#include "lan_client/upgrade_status.h"
#include "plan/settings.h"
#include "support/data_points.h"

#include <algorithm>
#include <set>
#include <utility>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace engr_app {
namespace {

using nlohmann::json;
namespace frame_type = lan_client::frame_type;

constexpr std::size_t max_product_id_bytes = 32;
constexpr std::size_t max_id_bytes = 64;
constexpr std::size_t max_person_text_bytes = 480; // 120 characters
constexpr std::size_t max_path_bytes = 4096;

class gateway_reader {
  public:
    gateway_reader(const plan_document &document, std::size_t index,
                   const lan_client::announcement *found)
        : document_(document),
          found_(found), entry_{document, document.root().at("gateways")[index],
                                fmt::format("gateways[{}]", index), variables_} {
        find_template();
        define_variables();
    }

    gateway_plan read() {
        read_identity();
        with_setting("channel",
                     [this](const setting &given) { plan_.channel = given.value.get<int64_t>(); });
        with_setting("devices", [this](const setting &given) { read_devices(given); });
        with_setting("other_devices", [this](const setting &given) {
            plan_.remove_others = given.value == "remove";
        });
        with_setting("join_seconds", [this](const setting &given) {
            plan_.join_time = std::chrono::seconds(given.value.get<int64_t>());
        });
        with_setting("groups", [this](const setting &given) { read_groups(given); });
        with_setting("scenes", [this](const setting &given) { read_scenes(given); });
        with_setting("panels", [this](const setting &given) { read_panels(given); });
        with_setting("linkage", [this](const setting &given) { read_linkage(given); });
        with_setting("token", [this](const setting &given) { plan_.token = secret(given); });
        with_setting("firmware", [this](const setting &given) { read_firmware(given); });
        with_setting("configuration", [this](const setting &given) {
            read_configuration(given, "app", plan_.app_config);
            read_configuration(given, "cloud", plan_.cloud_config);
        });
        if ((plan_.remove_others || plan_.join_time) && !plan_.devices) {
            entry_.refuse("other_devices: remove and join_seconds need a list of devices");
        }
        return std::move(plan_);
    }

  private:
    void find_template() {
        if (!entry_.has("template")) {
            return;
        }
        const setting named = entry_.member("template");
        const auto name = named.value.get<std::string>();
        const json &root = document_.root();
        if (!root.contains("templates") || !root["templates"].contains(name)) {
            named.refuse(fmt::format("there is no template {}", name));
        }
        template_ = &root["templates"][name];
        template_place_ = "templates." + name;
    }

    // A gateway's own variables go before those of its template, and nothing goes before what is
    // known of the gateway itself.
    void define_variables() {
        for (const json *from : {template_, &entry_.value}) {
            if (from != nullptr && from->contains("variables")) {
                for (const auto &[name, value] : (*from)["variables"].items()) {
                    variables_[name] = value.get<std::string>();
                }
            }
        }
        if (found_ != nullptr) {
            variables_["id"] = found_->id;
            variables_["address"] = found_->address;
        }
    }

    void with_setting(const char *name, const std::function<void(const setting &)> &work) const {
        if (entry_.has(name)) {
            work(entry_.member(name));
        } else if (template_ != nullptr && template_->contains(name)) {
            work({document_, template_->at(name), template_place_ + "." + name, variables_});
        }
    }

    void read_identity() {
        if (found_ != nullptr) {
            plan_.id = found_->id;
            plan_.address = found_->address;
            for (const char *other : {"id", "address"}) {
                if (entry_.has(other)) {
                    entry_.member(other).refuse("an entry with match has neither id nor address");
                }
            }
        }
        if (found_ == nullptr && entry_.has("id")) {
            plan_.id = entry_.member("id").text(max_id_bytes);
            variables_["id"] = plan_.id;
        }
        if (found_ == nullptr && entry_.has("address")) {
            const setting given = entry_.member("address");
            plan_.address = given.text(max_id_bytes);
            if (!is_gateway_address(plan_.address)) {
                given.refuse("expected an IPv4 address, as in 192.168.1.20");
            }
            variables_["address"] = plan_.address;
        }
        if (plan_.id.empty() && plan_.address.empty()) {
            entry_.refuse("a gateway needs one of id, address and match");
        }
        plan_.name = entry_.has("name") ? entry_.member("name").text(max_id_bytes)
                     : plan_.id.empty() ? plan_.address
                                        : plan_.id;
        variables_["name"] = plan_.name;
        if (entry_.has("key")) {
            plan_.key = secret(entry_.member("key"));
        }
    }

    [[nodiscard]] secret_source secret(const setting &given) const {
        secret_source source;
        if (given.has("file")) {
            source.file = document_.beside(given.member("file").text(max_path_bytes));
        } else {
            source.variable = given.member("env").text(max_path_bytes);
        }
        return source;
    }

    static std::string checked_device_id(const setting &given) {
        std::string id = given.any_text();
        if (!is_device_id(id)) {
            given.refuse("expected 1 to 25 printable characters without blank, quote and "
                         "backslash");
        }
        return id;
    }

    void read_devices(const setting &given) {
        plan_.devices.emplace();
        for (const setting &one : given.elements()) {
            planned_device device;
            device.id = checked_device_id(one.member("id"));
            device.product = one.member("product").text(max_product_id_bytes);
            if (!known_.emplace(device.id, device.id).second) {
                one.member("id").refuse(fmt::format("{} is given twice", device.id));
            }
            if (one.has("name")) {
                device.name = one.member("name").text(max_person_text_bytes);
            }
            if (one.has("room")) {
                device.room = one.member("room").text(max_person_text_bytes);
            }
            plan_.devices->push_back(std::move(device));
        }
        // A name that two devices have, or that is another's id, can't be used for either.
        std::set<std::string> seen;
        for (const planned_device &one : *plan_.devices) {
            if (!one.name.empty() && !seen.insert(one.name).second) {
                known_.erase(one.name);
            } else if (!one.name.empty()) {
                known_.emplace(one.name, one.id);
            }
        }
    }

    // The id of a device that is named by its id or its name.
    [[nodiscard]] std::string device(const setting &given) const {
        const std::string name = given.any_text();
        const auto found = known_.find(name);
        if (found != known_.end()) {
            return found->second;
        }
        if (plan_.devices) {
            given.refuse(fmt::format("{} is no device of the plan, or the name of several", name));
        }
        return checked_device_id(given);
    }

    void read_groups(const setting &given) {
        std::set<std::string> seen;
        for (const setting &one : given.elements()) {
            planned_group group{one.member("id").text(max_id_bytes), {}};
            if (!seen.insert(group.id).second) {
                one.member("id").refuse(fmt::format("group {} is given twice", group.id));
            }
            for (const setting &member : one.member("devices").elements()) {
                group.devices.push_back(device(member));
                if (std::ranges::count(group.devices, group.devices.back()) > 1) {
                    member.refuse(fmt::format("{} is in the group twice", group.devices.back()));
                }
            }
            plan_.groups.push_back(std::move(group));
        }
    }

    // What a scene does, as a gateway wants it; the devices that it names are added to the list.
    json actions(const setting &given, std::vector<std::string> &devices) const {
        json all = json::array();
        for (const setting &one : given.elements()) {
            devices.push_back(device(one.member("device")));
            const json points = one.member("set").filled();
            const std::string fault = support::data_points_fault(nlohmann::ordered_json(points));
            if (!fault.empty()) {
                one.member("set").refuse(fault);
            }
            all.push_back({{"cid", devices.back()}, {"dps", points}});
        }
        return all;
    }

    void require_group(const setting &given, const std::string &id) const {
        if (!plan_.groups.empty() &&
            std::ranges::find(plan_.groups, id, &planned_group::id) == plan_.groups.end()) {
            given.refuse(fmt::format("{} is no group of the plan", id));
        }
    }

    void read_scenes(const setting &given) {
        for (const setting &one : given.elements()) {
            const std::string group = one.member("group").text(max_id_bytes);
            const std::string id = one.member("id").text(max_id_bytes);
            require_group(one.member("group"), group);
            if (!scenes_.emplace(group, id).second) {
                one.refuse(fmt::format("scene {} of group {} is given twice", id, group));
            }
            planned_request request{.item = fmt::format("scene {} of group {}", id, group),
                                    .type = frame_type::scene_oper,
                                    .payload = {},
                                    .devices = {}};
            const json does = actions(one.member("actions"), request.devices);
            request.payload =
                json{{"sid", id}, {"gid", group}, {"op", "save"}, {"actions", does}}.dump();
            plan_.requests.push_back(std::move(request));
        }
    }

    void read_panels(const setting &given) {
        std::set<std::string> seen;
        for (const setting &one : given.elements()) {
            const std::string id = device(one.member("device"));
            if (!seen.insert(id).second) {
                one.refuse(fmt::format("panel {} is given twice", id));
            }
            json buttons = json::array();
            for (const setting &button : one.member("buttons").elements()) {
                const std::string group = button.member("group").text(max_id_bytes);
                const std::string scene = button.member("scene").text(max_id_bytes);
                if (!scenes_.empty() && !scenes_.contains({group, scene})) {
                    button.refuse(fmt::format("there is no scene {} of group {}", scene, group));
                }
                buttons.push_back(
                    {{"button", button.member("button").value}, {"sid", scene}, {"gid", group}});
            }
            plan_.requests.push_back({.item = "panel " + id,
                                      .type = frame_type::scene_panel,
                                      .payload = json{{"cid", id}, {"buttons", buttons}}.dump(),
                                      .devices = {id}});
        }
    }

    void read_linkage(const setting &given) {
        json scenes = json::array();
        std::set<std::string> seen;
        for (const setting &one : given.elements()) {
            const std::string id = one.member("id").text(max_id_bytes);
            if (!seen.insert(id).second) {
                one.refuse(fmt::format("linkage scene {} is given twice", id));
            }
            json scene{{"sceneId", id},
                       {"actions", actions(one.member("actions"), plan_.linkage_devices)}};
            if (one.has("name")) {
                scene["name"] = one.member("name").text(max_id_bytes);
            }
            scenes.push_back(std::move(scene));
        }
        plan_.linkage = scenes.dump();
    }

    void read_configuration(const setting &given, const char *kind,
                            std::optional<std::string> &config) const {
        if (!given.has(kind)) {
            return;
        }
        const setting source = given.member(kind);
        std::string text;
        if (source.has("file")) {
            text = file_text(document_.beside(source.member("file").text(max_path_bytes)));
        } else if (source.has("text")) {
            text = source.member("text").any_text();
        } else {
            text = source.member("json").filled().dump();
        }
        try {
            config = checked_configuration(std::move(text), "the configuration");
        } catch (const failure &wrong) {
            source.refuse(wrong.what());
        }
    }

    [[nodiscard]] planned_image image(const setting &given) const {
        const setting version = given.member("version");
        planned_image planned{document_.beside(given.member("image").text(max_path_bytes)),
                              version.any_text()};
        if (!is_plain_text(planned.version, lan_client::max_version_bytes)) {
            version.refuse("expected 1 to 11 printable characters without quote and backslash");
        }
        return planned;
    }

    void read_firmware(const setting &given) {
        if (given.has("gateway")) {
            plan_.firmware = image(given.member("gateway"));
        }
        if (given.has("devices")) {
            given.member("devices").each_member(
                [this](const std::string &product, const setting &one) {
                    plan_.device_firmware[product] = image(one);
                });
        }
    }

    const plan_document &document_;
    const lan_client::announcement *found_;
    std::map<std::string, std::string> variables_;
    setting entry_;
    const json *template_ = nullptr;
    std::string template_place_;
    std::map<std::string, std::string> known_; // ids of devices, by id and by name
    std::set<std::pair<std::string, std::string>> scenes_;
    gateway_plan plan_;
};

} // namespace

gateway_plan read_gateway(const plan_document &document, std::size_t index,
                          const lan_client::announcement *found) {
    return gateway_reader(document, index, found).read();
}

} // namespace engr_app
