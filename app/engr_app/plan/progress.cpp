// {"engr_plan_progress": 1, "salt": HEX, "gateways": {NAME: {"id": ID, "time": N,
//  "sent": {ITEM: FINGERPRINT}}}}
#include "plan/progress.h"

#include "base/failure.h"
#include "base/json_text.h"
#include "files/input_file.h"
#include "files/output_file.h"
#include "lan_client/crypto.h"
#include "support/numbers.h"

#include <algorithm>
#include <ctime>
#include <filesystem>
#include <random>
#include <utility>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace engr_app {
namespace {

using nlohmann::json;

constexpr const char *format_member = "engr_plan_progress";
constexpr std::size_t salt_bytes = 16;
constexpr uint64_t greatest_noted_time = uint64_t{1} << 40;

std::string new_salt() {
    std::random_device source;
    std::string salt;
    for (std::size_t count = 0; count < salt_bytes; ++count) {
        salt += static_cast<char>(source() & 0xFF);
    }
    return support::to_hex(salt);
}

bool is_progress(const json &value) {
    return value.is_object() && value.value(format_member, json()) == 1 &&
           value.value("salt", json()).is_string() && value.value("gateways", json()).is_object() &&
           std::ranges::all_of(value["gateways"], [](const json &one) {
               return one.is_object() && one.value("id", json()).is_string() &&
                      member_count(one, "time").value_or(greatest_noted_time) <
                          greatest_noted_time &&
                      one.value("sent", json()).is_object();
           });
}

} // namespace

plan_progress::plan_progress(std::string path)
    : path_(std::move(path)), noted_(std::make_unique<json>()) {
    if (!std::filesystem::exists(path_)) {
        *noted_ = {{format_member, 1}, {"salt", new_salt()}, {"gateways", json::object()}};
        return;
    }
    *noted_ = parse_json(file_text(path_));
    if (!is_progress(*noted_)) {
        throw failure("progress",
                      fmt::format("{} is not the progress of a plan; name another file with "
                                  "--progress, or move it away to begin anew",
                                  path_));
    }
}

plan_progress::~plan_progress() = default;

void plan_progress::identify(const std::string &gateway, const std::string &id) {
    const std::lock_guard lock(mutex_);
    json &known = (*noted_)["gateways"][gateway];
    const bool another = known.is_object() && !id.empty() && known["id"] != "" && known["id"] != id;
    if (!known.is_object() || another) {
        known = {{"id", id}, {"time", 0}, {"sent", json::object()}};
    } else if (!id.empty()) {
        known["id"] = id;
    }
}

std::string plan_progress::fingerprint(const std::string &item, const std::string &content) const {
    return lan_client::sha256_text(
        fmt::format("{}\n{}\n{}", (*noted_)["salt"].get<std::string>(), item, content));
}

bool plan_progress::was_sent(const std::string &gateway, const std::string &item,
                             const std::string &content) const {
    const std::lock_guard lock(mutex_);
    const json &sent = noted_->at("gateways").at(gateway).at("sent");
    const auto noted = sent.find(item);
    return noted != sent.end() && *noted == fingerprint(item, content);
}

void plan_progress::note_sent(const std::string &gateway, const std::string &item,
                              const std::string &content) {
    const std::lock_guard lock(mutex_);
    noted_->at("gateways").at(gateway).at("sent")[item] = fingerprint(item, content);
    write();
}

void plan_progress::forget(const std::string &gateway, const std::string &item) {
    const std::lock_guard lock(mutex_);
    if (noted_->at("gateways").at(gateway).at("sent").erase(item) > 0) {
        write();
    }
}

int64_t plan_progress::next_time(const std::string &gateway) {
    const std::lock_guard lock(mutex_);
    json &last = noted_->at("gateways").at(gateway).at("time");
    last = std::max<int64_t>(std::time(nullptr), last.get<int64_t>() + 1);
    write();
    return last.get<int64_t>();
}

void plan_progress::write() const {
    write_file(path_, many_lines(*noted_) + "\n", readers::owner);
}

} // namespace engr_app
