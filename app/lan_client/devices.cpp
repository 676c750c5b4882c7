// Reading of device lists.
#include "lan_client/devices.h"

#include "lan_client/frame_types.h"
#include "lan_client/json.h"
#include "lan_client/limits.h"

#include <unordered_map>
#include <utility>

#include <nlohmann/json.hpp>

namespace lan_client {
namespace {

// Of two lists of one name the last one counts.
class product_reader : public list_handler {
  public:
    void member(std::string_view name, bool is_list) override {
        is_products_ = name == "products";
        if (is_products_) {
            has_list = is_list;
            devices.clear();
        }
    }
    void entry() override {
        if (is_products_) {
            devices.emplace_back();
        }
    }
    void entry_member(std::string_view name, std::string_view text) override {
        if (is_products_ && name == "cid") {
            devices.back().id = text;
        } else if (is_products_ && name == "pid") {
            devices.back().product_id = text;
        }
    }

    bool has_list = false;
    std::vector<device> devices;

  private:
    bool is_products_ = false;
};

class state_reader : public list_handler {
  public:
    void member(std::string_view name, bool) override {
        read_ = name == "online" ? &states.online : name == "offline" ? &states.offline : nullptr;
        if (read_ != nullptr) {
            read_->clear();
        }
    }
    void entry_text(std::string_view text) override {
        if (read_ != nullptr) {
            read_->emplace_back(text);
        }
    }

    line_state states;

  private:
    std::vector<std::string> *read_ = nullptr;
};

} // namespace

request device_list_request() {
    return {.type = frame_type::dev_list};
}

request line_state_request() {
    return {.type = frame_type::dev_line_stat};
}

std::optional<std::vector<device>> read_device_list(std::string_view payload) {
    product_reader reader;
    if (!read_lists(payload, reader) || !reader.has_list || reader.devices.size() > max_devices) {
        return std::nullopt;
    }
    return std::move(reader.devices);
}

std::optional<line_state> read_line_state(std::string_view payload) {
    state_reader reader;
    return read_lists(payload, reader) ? std::optional(std::move(reader.states)) : std::nullopt;
}

bool says_no_devices(const answer &answered) {
    return !answered.failure && answered.ret != 0 &&
           answered.payload == "online_dev or offline_dev is null";
}

std::vector<device_with_state> with_states(std::vector<device> devices, const line_state &states) {
    std::unordered_map<std::string_view, bool> is_online;
    is_online.reserve(states.online.size() + states.offline.size());
    for (const std::string &id : states.online) {
        is_online.emplace(id, true);
    }
    for (const std::string &id : states.offline) {
        is_online.emplace(id, false); // unless it is in the other list as well
    }
    std::vector<device_with_state> all;
    all.reserve(devices.size());
    for (device &one : devices) {
        const auto known = is_online.find(one.id);
        const auto online = known == is_online.end() ? std::nullopt : std::optional(known->second);
        all.push_back({std::move(one.id), std::move(one.product_id), online});
    }
    return all;
}

nlohmann::json as_json(std::vector<device_with_state> devices) {
    nlohmann::json::array_t all;
    all.reserve(devices.size());
    for (device_with_state &one : devices) {
        nlohmann::json::object_t entry;
        entry.emplace_hint(entry.end(), "cid", std::move(one.id));
        entry.emplace_hint(entry.end(), "online",
                           one.online ? nlohmann::json(*one.online) : nlohmann::json());
        entry.emplace_hint(entry.end(), "pid", std::move(one.product_id));
        all.emplace_back(std::move(entry));
    }
    return all;
}

} // namespace lan_client
