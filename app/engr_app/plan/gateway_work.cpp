// The steps are listed in the order in which they are done: firmware before what may need it,
// devices before what names them, and last the configuration that ends engineering.
#include "plan/gateway_work.h"

#include "base/counted.h"
#include "base/json_text.h"
#include "gateway/configuration.h"
#include "lan_client/frame_types.h"
#include "plan/changes.h"
#include "plan/pending_step.h"
#include "site/report.h"
#include "upgrade/transfer.h"

#include <algorithm>
#include <utility>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace engr_app {
namespace {

using nlohmann::json;
namespace frame_type = lan_client::frame_type;

// Longer lists are cut in sentences; the report has a table of all devices.
constexpr std::size_t most_listed = 6;

// Each device that joins is reported; this is for those that come back without a report.
constexpr std::chrono::milliseconds join_poll_interval{1000};

std::string list_text(const std::vector<std::string> &names) {
    std::string text;
    for (std::size_t index = 0; index < std::min(names.size(), most_listed); ++index) {
        text += (index == 0 ? "" : ", ") + names[index];
    }
    return names.size() <= most_listed
               ? text
               : fmt::format("{} and {} more", text, names.size() - most_listed);
}

bool names_any(const std::vector<std::string> &devices, const std::vector<std::string> &of) {
    return std::ranges::any_of(
        devices, [&of](const std::string &one) { return std::ranges::count(of, one) > 0; });
}

} // namespace

std::size_t gateway_outcome::count(step_state state) const {
    return static_cast<std::size_t>(std::ranges::count(steps, state, &plan_step::state));
}

bool gateway_outcome::is_success() const {
    return !problem && count(step_state::as_planned) + count(step_state::done) == steps.size();
}

const firmware_image &image_store::open(const std::string &file) {
    const std::lock_guard lock(mutex_);
    return images_.try_emplace(file, file).first->second;
}

gateway_work::gateway_work(gateway_session &session, plan_context &context,
                           gateway_outcome &outcome)
    : session_(session), context_(context), outcome_(outcome), plan_(outcome.plan),
      changes_(std::make_shared<json>(json::array())) {}

gateway_work::~gateway_work() = default;

// The end of any connection would end another app's upgrade.
void gateway_work::connect() {
    session_.leave();
    reports_.emplace(session_);
}

void gateway_work::look() {
    connect();
    read_site();
    const json &about = outcome_.site->at("gateway");
    outcome_.id = about["id"].is_string() ? member_text(about, "id") : plan_.id;
    if (!plan_.id.empty() && outcome_.id != plan_.id) {
        throw failure("another_gateway",
                      fmt::format("{} is at this address, planned is {}; nothing was sent to it",
                                  outcome_.id, plan_.id));
    }
    context_.progress.identify(plan_.name, outcome_.id);
    list_steps();
}

void gateway_work::read_site(bool versions) {
    const site_report_extent extent{.data_points = false,
                                    .versions = versions &&
                                                (plan_.firmware || !plan_.device_firmware.empty()),
                                    .announcement = false};
    try {
        outcome_.site = std::make_shared<json>(ask_site_report(session_, extent));
    } catch (const failure &problem) {
        if (problem.kind() != "busy") {
            throw;
        }
        connect(); // waits until the upgrade is over
        outcome_.site = std::make_shared<json>(ask_site_report(session_, extent));
    }
    *changes_ = plan_changes(plan_, *outcome_.site);
}

bool gateway_work::has_change(const char *item, const std::string &device) const {
    return !change_words(item, device).empty();
}

std::string gateway_work::change_words(const char *item, const std::string &device) const {
    const auto found = std::ranges::find_if(*changes_, [&](const json &one) {
        return one["item"] == item &&
               (one["cid"].is_null() ? device.empty() : one["cid"] == device);
    });
    return found == changes_->end() ? "" : member_text(*found, "words");
}

std::vector<std::string> gateway_work::changed_devices(const char *item) const {
    std::vector<std::string> ids;
    for (const json &one : *changes_) {
        if (one["item"] == item && one["cid"].is_string()) {
            ids.push_back(one["cid"]);
        }
    }
    return ids;
}

// As people know the devices.
std::string gateway_work::names_text(std::vector<std::string> ids) const {
    for (std::string &id : ids) {
        if (plan_.devices) {
            const auto planned = std::ranges::find(*plan_.devices, id, &planned_device::id);
            const bool named = planned != plan_.devices->end() && !planned->name.empty();
            id = named ? planned->name : id;
        }
    }
    return list_text(ids);
}

gateway_work::pending &gateway_work::add(const std::string &item, const std::string &words,
                                         std::function<step_check()> work) {
    outcome_.steps.push_back({.item = item, .words = words});
    pending_.push_back(
        {.index = outcome_.steps.size() - 1, .work = std::move(work), .done_words = words});
    return pending_.back();
}

gateway_work::pending &gateway_work::add_readable(const char *change, const std::string &device,
                                                  const std::string &item,
                                                  const std::string &words_as_planned,
                                                  std::function<step_check()> work) {
    const std::string words = change_words(change, device);
    pending &added = add(item, words.empty() ? words_as_planned : words, std::move(work));
    added.done_words = words_as_planned;
    added.change = change;
    added.device = device;
    if (words.empty()) {
        note_as_planned();
    }
    return added;
}

// What can't be read back is taken for so when the progress file says that it was sent, unless the
// gateway has lost a device that it names, or all of them, as one has that was reset or replaced.
void gateway_work::add_noted(const std::string &item, const std::string &words,
                             const std::string &content, const std::vector<std::string> &devices,
                             std::function<step_check()> work) {
    add(item, words, [this, item, content, work = std::move(work)] {
        const step_check check = work();
        context_.progress.note_sent(plan_.name, item, content);
        return check;
    });
    if (is_empty_ || names_any(devices, missing_)) {
        void_notes_.push_back(item);
    } else if (!context_.again && context_.progress.was_sent(plan_.name, item, content)) {
        outcome_.steps.back().state = step_state::as_planned;
        outcome_.steps.back().check = step_check::noted;
        outcome_.steps.back().words += ": sent before";
    }
}

void gateway_work::list_steps() {
    missing_ = changed_devices("device");
    is_empty_ = plan_.devices && !missing_.empty() && missing_.size() == plan_.devices->size();
    if (plan_.firmware) {
        list_firmware("", "firmware", *plan_.firmware);
    }
    if (plan_.channel) {
        add_readable("channel", "", "channel", fmt::format("channel {}", *plan_.channel), [this] {
            ask_one(session_, json_request(frame_type::set_channel, {{"channel", *plan_.channel}}));
            return step_check::answer;
        });
    }
    if (plan_.devices) {
        list_devices();
    }
    list_device_firmware();
    list_groups();
    list_requests();
    list_configuration();
}

void gateway_work::list_firmware(const std::string &device, const std::string &item,
                                 const planned_image &image) {
    add_readable("sw_ver", device, item, "version " + image.version,
                 [this, device, image] { return upgrade(device, image); });
    outcome_.steps.back().irreversible = outcome_.steps.back().state == step_state::to_do &&
                                         change_words("sw_ver", device).ends_with("(a downgrade)");
}

// Also for devices that have joined since the steps were listed.
void gateway_work::list_device_firmware() {
    for (const json &one : outcome_.site->at("devices")) {
        const auto image = plan_.device_firmware.find(member_text(one, "pid"));
        const std::string id = member_text(one, "cid");
        const std::string item = "firmware of " + id;
        if (image != plan_.device_firmware.end() &&
            std::ranges::find(outcome_.steps, item, &plan_step::item) == outcome_.steps.end()) {
            list_firmware(id, item, image->second);
        }
    }
}

void gateway_work::add_for_devices(const char *change, const std::string &item,
                                   const std::vector<std::string> &devices, const char *verb,
                                   const std::string &done_words,
                                   std::function<step_check()> work) {
    const std::string words =
        devices.empty() ? done_words
                        : fmt::format("{} {}: {}", verb, devices.size(), names_text(devices));
    pending &added = add(item, words, std::move(work));
    added.done_words = done_words;
    added.change = change;
    added.any_device = true;
    if (devices.empty()) {
        note_as_planned();
    }
}

void gateway_work::note_as_planned() {
    outcome_.steps.back().state = step_state::as_planned;
    outcome_.steps.back().check = step_check::reading;
}

void gateway_work::list_devices() {
    const std::size_t count = plan_.devices->size();
    add_for_devices("device", "devices", missing_, "bind",
                    fmt::format("all planned devices ({}) are bound", count),
                    [this] { return bind_missing(); });
    for (const std::string &id : changed_devices("pid")) {
        const std::string words = change_words("pid", id);
        add("device " + id, words, [words]() -> step_check {
            throw failure("wrong_product", words + ": correct the plan, or unbind the device");
        });
    }
    const std::vector<std::string> others = changed_devices("other_device");
    if (plan_.remove_others) {
        add_for_devices("other_device", "other devices", others, "remove", "no other devices",
                        [this] { return remove_others(); });
        outcome_.steps.back().irreversible = !others.empty();
    } else if (!others.empty()) {
        outcome_.notes.push_back(fmt::format("{} not in the plan: {}",
                                             counted(others.size(), "device"), list_text(others)));
    }
    if (plan_.join_time) {
        std::vector<std::string> absent = changed_devices("online");
        absent.insert(absent.end(), missing_.begin(), missing_.end());
        add_for_devices("online", "joining", absent, "let join",
                        fmt::format("all planned devices ({}) are online", count),
                        [this] { return let_join(); });
    }
}

void gateway_work::list_groups() {
    for (const planned_group &group : plan_.groups) {
        add_noted("group " + group.id, "devices " + names_text(group.devices),
                  json(group.devices).dump(), group.devices,
                  [this, &group] { return change_group(group); });
    }
}

void gateway_work::list_requests() {
    for (const planned_request &request : plan_.requests) {
        add_noted(request.item, "devices " + names_text(request.devices), request.payload,
                  request.devices, [this, &request] { return send_request(request); });
    }
    if (plan_.linkage) {
        add_noted("linkage", fmt::format("linkage scenes: {}", json::parse(*plan_.linkage).size()),
                  *plan_.linkage, plan_.linkage_devices, [this] { return send_linkage(); });
    }
}

void gateway_work::list_configuration() {
    const auto push = [this](configuration_kind kind, const std::string &text) {
        return [this, kind, &text] {
            ask_one(session_, configuration_request(kind, text, session_.answer_time()));
            return step_check::answer;
        };
    };
    if (plan_.token.is_given()) {
        const std::string token = plan_.token.read("token");
        add_noted("token", "the installer's token", token, {}, [this, token] {
            ask_one(session_, json_request(frame_type::token_bind, {{"token", token}}));
            return step_check::answer;
        });
    }
    if (plan_.app_config) {
        add_readable("app_config", "", "app configuration",
                     fmt::format("{} bytes", plan_.app_config->size()),
                     push(configuration_kind::app, *plan_.app_config));
    }
    if (plan_.cloud_config) {
        add_noted("cloud configuration",
                  fmt::format("{} bytes; ends engineering", plan_.cloud_config->size()),
                  *plan_.cloud_config, {}, push(configuration_kind::cloud, *plan_.cloud_config));
        pending_.back().last = true;
        outcome_.steps.back().irreversible = outcome_.steps.back().state == step_state::to_do;
    }
}

step_check gateway_work::upgrade(const std::string &device, const planned_image &image) {
    const firmware_image &file = context_.images.open(image.file);
    const upgrade_order order{device, image.version, file.size(), file.md5()};
    session_.leave(); // the transfer makes a connection of its own
    std::optional<failure> problem;
    try {
        upgrade_transfer transfer(session_, file, order);
        const upgrade_status before = transfer.ask_status(false);
        if (before.running) {
            throw failure("busy", "another upgrade has begun; apply the plan again after it");
        }
        static_cast<void>(transfer.carry_out());
    } catch (const failure &failed) {
        problem = failed;
    }
    session_.own_upgrade(false);
    session_.loop().on_interrupt([] {}); // the transfer's handler is gone with it
    connect();                           // and so is what takes its connection's events
    if (problem) {
        throw failure(*problem);
    }
    return step_check::report;
}

// What is void is so before the devices are there again, which would hide it after a kill.
step_check gateway_work::bind_missing() {
    for (const std::string &item : void_notes_) {
        context_.progress.forget(plan_.name, item);
    }
    json products = json::array();
    for (const planned_device &one : *plan_.devices) {
        if (std::ranges::count(missing_, one.id) > 0) {
            products.push_back({{"cid", one.id}, {"pid", one.product}});
        }
    }
    ask_one(session_, json_request(frame_type::user_bind_req_engr, {{"products", products}}));
    return step_check::answer;
}

// Returns how many devices are still absent at the end.
std::size_t gateway_work::await_devices(std::chrono::steady_clock::time_point end) {
    progress_bar bar = session_.out().bar("joining", plan_.devices->size(), "devices");
    std::size_t absent = plan_.devices->size();
    while (absent > 0 && !context_.interrupted && std::chrono::steady_clock::now() < end) {
        static_cast<void>(reports_->next(
            [](const lan_client::report &one) { return one.type == frame_type::sub_dev_bind_rpt; },
            join_poll_interval));
        read_site(false);
        absent = changed_devices("online").size() + changed_devices("device").size();
        bar.show(plan_.devices->size() - absent);
    }
    return absent;
}

// Joining is closed again, whatever happens, since anybody's device could join.
step_check gateway_work::let_join() {
    const auto permit = [this](std::chrono::seconds time) {
        ask_one(session_,
                json_request(frame_type::permit_join, {{"type", 0}, {"time", time.count()}}));
    };
    const auto end = std::chrono::steady_clock::now() + *plan_.join_time;
    permit(*plan_.join_time);
    std::optional<failure> problem;
    std::size_t absent = 0;
    try {
        absent = await_devices(end);
    } catch (const failure &failed) {
        problem = failed;
    }
    try {
        permit(std::chrono::seconds(0));
    } catch (const failure &failed) {
        problem = problem ? problem : failed;
    }
    if (problem) {
        throw failure(*problem);
    }
    if (absent > 0) {
        throw failure("not_joined",
                      fmt::format("not joined: {} of {} devices, {}", absent, plan_.devices->size(),
                                  names_text(changed_devices("online"))));
    }
    return step_check::reading;
}

step_check gateway_work::remove_others() {
    for (const std::string &id : changed_devices("other_device")) {
        ask_one(session_, json_request(frame_type::del_sub_dev, {{"cid", id}}));
    }
    return step_check::answer;
}

// The report of a change names the members that the group has then.
step_check gateway_work::change_group(const planned_group &group) {
    const auto change = [&](const char *operation, const std::vector<std::string> &devices) {
        const json payload{{"gid", group.id}, {"op", operation}, {"cids", devices}};
        return parse_json(report_of(frame_type::grp_oper, payload, {"gid", "op"}));
    };
    const auto members_of = [](const json &outcome) {
        std::vector<std::string> members;
        if (outcome.is_object() && outcome.contains("cids") && outcome["cids"].is_array()) {
            for (const json &id : outcome["cids"]) {
                members.push_back(id.is_string() ? id.get<std::string>() : "");
            }
        }
        std::ranges::sort(members);
        return members;
    };
    std::vector<std::string> wanted = group.devices;
    std::ranges::sort(wanted);
    std::vector<std::string> members = members_of(change("add", group.devices));
    std::vector<std::string> others;
    std::ranges::set_difference(members, wanted, std::back_inserter(others));
    if (!others.empty()) {
        members = members_of(change("remove", others));
    }
    if (!members.empty() && members != wanted) {
        throw failure("not_accepted", fmt::format("the group has {}, planned are {}",
                                                  names_text(members), names_text(wanted)));
    }
    return members.empty() ? step_check::answer : step_check::report;
}

step_check gateway_work::send_request(const planned_request &request) {
    const json payload = json::parse(request.payload);
    static_cast<void>(report_of(request.type, payload,
                                request.type == frame_type::scene_panel
                                    ? std::vector<const char *>{"cid"}
                                    : std::vector<const char *>{"sid", "gid", "op"}));
    return step_check::report;
}

step_check gateway_work::send_linkage() {
    const json scenes = json::parse(*plan_.linkage);
    ask_one(session_, json_request(frame_type::scene_linkage,
                                   {{"totalCount", scenes.size()},
                                    {"gmtModified", context_.progress.next_time(plan_.name)},
                                    {"scenes", scenes}}));
    return step_check::answer;
}

// The client holds back a frame that the gateway could lose until those before it are answered,
// which these never are. So something that is answered follows each.
std::string gateway_work::report_of(uint32_t type, const json &payload,
                                    const std::vector<const char *> &same_members) {
    const auto is_outcome = [&](const lan_client::report &one) {
        const json body = parse_json(one.payload);
        return one.type == type && std::ranges::all_of(same_members, [&](const char *name) {
                   return member_text(body, name) == member_text(payload, name);
               });
    };
    std::string told = reports_->outcome(json_request(type, payload), is_outcome).payload;
    ask_one(session_, {.type = frame_type::keepalive});
    return told;
}

} // namespace engr_app
