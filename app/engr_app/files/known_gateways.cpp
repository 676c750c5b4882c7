// Two JSON files of the user: gateways heard last, and the one in use.
#include "files/known_gateways.h"

#include "base/failure.h"
#include "base/json_text.h"
#include "files/user_paths.h"
#include "lan_client/client.h"
#include "support/files.h"
#include "support/input_error.h"
#include "terminal/console.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <limits>
#include <mutex>

#include <arpa/inet.h>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace engr_app {
namespace {

using nlohmann::json;

constexpr std::size_t most_known = 256;
constexpr std::size_t longest_user_file = 1024 * 1024;

// Sessions with several gateways change the files at the same time.
std::mutex files_mutex;

int64_t seconds_now() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::seconds>(now).count();
}

// What comes from the future counts as long ago.
int64_t seconds_since(int64_t then_s) {
    const int64_t now_s = seconds_now();
    return then_s > now_s ? std::numeric_limits<int64_t>::max() : now_s - then_s;
}

json read_user_json(console &out, const std::string &path, json::value_t expected) {
    std::error_code ignored;
    if (path.empty() || !std::filesystem::exists(path, ignored)) {
        return json(expected);
    }
    try {
        json content = parse_json(support::read_file(path, longest_user_file));
        if (content.type() == expected) {
            return content;
        }
        out.notice(path + " is broken and is not used");
    } catch (const support::input_error &error) {
        out.notice(fmt::format("{}; it is not used", error.what()));
    }
    return json(expected);
}

known_gateway known_from_json(const json &entry) {
    const auto is_set = [&entry](const char *name) {
        const auto found = entry.find(name);
        return found != entry.end() && found->is_boolean() && found->get<bool>();
    };
    known_gateway known;
    known.announced.id = member_text(entry, "id");
    known.announced.address = member_text(entry, "address");
    known.announced.announced_address = known.announced.address;
    known.announced.interface_name = member_text(entry, "interface");
    known.announced.product_key = member_text(entry, "product_key");
    known.announced.version = member_text(entry, "version");
    known.announced.activated = is_set("activated");
    known.announced.needs_wifi_setup = is_set("needs_wifi_setup");
    known.announced.ability = static_cast<int64_t>(member_count(entry, "ability").value_or(0));
    known.heard_s = static_cast<int64_t>(member_count(entry, "heard").value_or(0));
    known.link_address = member_text(entry, "link_address");
    return known;
}

json to_json(const known_gateway &known) {
    return {{"id", known.announced.id},
            {"address", known.announced.address},
            {"port", lan_client::gateway_port},
            {"interface", known.announced.interface_name},
            {"heard", known.heard_s},
            {"link_address", known.link_address},
            {"activated", known.announced.activated},
            {"needs_wifi_setup", known.announced.needs_wifi_setup},
            {"ability", known.announced.ability},
            {"version", known.announced.version},
            {"product_key", known.announced.product_key}};
}

std::vector<known_gateway> load(console &out) {
    std::vector<known_gateway> all;
    for (const json &entry : read_user_json(out, known_gateways_path(), json::value_t::array)) {
        in_addr address{};
        if (entry.is_object() && !member_text(entry, "id").empty() &&
            inet_pton(AF_INET, member_text(entry, "address").c_str(), &address) == 1 &&
            all.size() < most_known) {
            all.push_back(known_from_json(entry));
        }
    }
    return all;
}

void save(console &out, std::vector<known_gateway> &all) {
    std::ranges::stable_sort(all, std::greater(), &known_gateway::heard_s);
    all.resize(std::min(all.size(), most_known));
    json content = json::array();
    for (const known_gateway &known : all) {
        content.push_back(to_json(known));
    }
    try {
        write_user_file(known_gateways_path(), many_lines(content) + '\n');
    } catch (const failure &failed) {
        out.progress(fmt::format("the gateways heard are not kept: {}", failed.what()));
    }
}

template <typename Rule>
std::optional<known_gateway> find_known(console &out, const Rule &wanted) {
    const std::lock_guard lock(files_mutex);
    const std::vector<known_gateway> all = load(out);
    const auto found = std::ranges::find_if(all, wanted);
    return found == all.end() ? std::nullopt : std::optional(*found);
}

} // namespace

int64_t known_gateway::age_s() const {
    return seconds_since(heard_s);
}

std::vector<known_gateway> known_gateways(console &out) {
    const std::lock_guard lock(files_mutex);
    return load(out);
}

std::optional<known_gateway> find_known_id(console &out, const std::string &id) {
    return find_known(out, [&id](const known_gateway &one) { return one.announced.id == id; });
}

std::optional<known_gateway> find_known_address(console &out, const std::string &address) {
    return find_known(
        out, [&address](const known_gateway &one) { return one.announced.address == address; });
}

void keep_heard(console &out, const std::vector<lan_client::announcement> &heard) {
    if (heard.empty() || known_gateways_path().empty()) {
        return;
    }
    const std::lock_guard lock(files_mutex);
    std::vector<known_gateway> all = load(out);
    for (const lan_client::announcement &announced : heard) {
        known_gateway now{announced, seconds_now(), ""};
        std::erase_if(all, [&](const known_gateway &other) {
            const bool same_id = other.announced.id == announced.id;
            const bool same_address = other.announced.address == announced.address;
            if (same_id && same_address) {
                now.link_address = other.link_address;
            }
            // Where one is now, none of the others is any more.
            return same_id || (same_address && other.heard_s < now.heard_s);
        });
        all.push_back(now);
    }
    save(out, all);
}

void keep_link_address(console &out, const std::string &id, const std::string &link_address) {
    const std::lock_guard lock(files_mutex);
    std::vector<known_gateway> all = load(out);
    const auto known = std::ranges::find_if(
        all, [&id](const known_gateway &one) { return one.announced.id == id; });
    if (known != all.end() && known->link_address != link_address) {
        known->link_address = link_address;
        save(out, all);
    }
}

gateway_in_use chosen_by_use(console &out) {
    const std::lock_guard lock(files_mutex);
    const json kept = read_user_json(out, gateway_in_use_path(), json::value_t::object);
    const auto chosen_s = static_cast<int64_t>(member_count(kept, "chosen").value_or(0));
    return {member_text(kept, "gateway"), seconds_since(chosen_s)};
}

void choose_for_use(const std::string &name) {
    const std::lock_guard lock(files_mutex);
    if (name.empty()) {
        std::error_code problem;
        std::filesystem::remove(gateway_in_use_path(), problem);
        if (problem) {
            throw failure("output", fmt::format("can't remove {}: {}", gateway_in_use_path(),
                                                problem.message()));
        }
        return;
    }
    const json kept{{"gateway", name}, {"chosen", seconds_now()}};
    write_user_file(gateway_in_use_path(), many_lines(kept) + '\n');
}

} // namespace engr_app
