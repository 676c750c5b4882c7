// Sum of the image, questions, transfer, and the answer for all of it.
#include "upgrade_run.h"

#include "handle.h"
#include "requests.h"

#include <algorithm>
#include <filesystem>
#include <utility>

#include <nlohmann/json.hpp>

namespace lan_client_c {
namespace {

using lan_client::upgrade_answer;
using lan_client::upgrade_end;
using lan_client::upgrade_outcome;
using nlohmann::json;

// Read at once for the sum: keep-alives and answers have their turn in between.
constexpr uint64_t block_bytes = uint64_t{1024} * 1024;

} // namespace

upgrade_run::upgrade_run(const std::string &path, std::string version, std::string device_id,
                         bool again)
    : file_(path, std::ios::binary), order_{.cid = std::move(device_id),
                                            .version = std::move(version),
                                            .md5 = {}},
      again_(again) {
    std::error_code failed;
    const bool regular = std::filesystem::is_regular_file(path, failed);
    const uint64_t bytes = regular ? std::filesystem::file_size(path, failed) : 0;
    order_.image_bytes = file_ && !failed && bytes <= lan_client::max_image_bytes ? bytes : 0;
}

void upgrade_run::start(engr_client &client, uint32_t id) {
    client_ = &client;
    id_ = id;
    next_block_.emplace(client.loop);
    read_more();
}

bool upgrade_run::append(std::string &to, uint64_t offset, std::size_t count) {
    const std::size_t before = to.size();
    to.resize(before + count);
    file_.seekg(static_cast<std::streamoff>(offset));
    unreadable_ =
        !file_.read(to.data() + before, static_cast<std::streamsize>(count)) || unreadable_;
    return !unreadable_;
}

void upgrade_run::read_more() {
    if (summed_bytes_ == order_.image_bytes) {
        order_.md5 = sum_.text();
        return ask(false);
    }
    std::string block;
    const uint64_t count = std::min(block_bytes, order_.image_bytes - summed_bytes_);
    if (!append(block, summed_bytes_, static_cast<std::size_t>(count))) {
        return end(ENGR_CLIENT_UPGRADE_FAILED, "the image can't be read");
    }
    sum_.add(block);
    summed_bytes_ += count;
    next_block_->start(std::chrono::milliseconds(0), [this] { read_more(); });
}

void upgrade_run::ask(bool announce) {
    lan_client::ask_upgrade_status(
        *client_->gateway, {.order = order_, .announce = announce, .check_device = !announce}, {},
        [alive = weak_from_this(), announce](const upgrade_answer &got) {
            if (const auto self = alive.lock()) {
                self->take_status(got, announce);
            }
        });
}

void upgrade_run::take_status(const upgrade_answer &got, bool announced) {
    if (got.unknown_device) {
        return end(ENGR_CLIENT_UNKNOWN_DEVICE, "the gateway knows no device " + order_.cid);
    }
    if (!got.status) {
        return end_unanswered(got.last);
    }
    if (got.status->running) {
        return end(ENGR_CLIENT_BUSY, "an upgrade is under way: " + got.status->running_id);
    }
    version_before_ = got.status->version;
    if (announced) {
        return carry_out(got);
    }
    if (!again_ && lan_client::same_version(version_before_, order_.version)) {
        return end(ENGR_CLIENT_OK, "", version_before_);
    }
    ask(true);
}

void upgrade_run::carry_out(const upgrade_answer &before) {
    upgrade_ = std::make_unique<lan_client::image_upgrade>(
        client_->loop, *client_->gateway, order_, client_->request_timeout,
        [this](std::string &to, uint64_t offset, std::size_t count) {
            return append(to, offset, count);
        },
        lan_client::image_upgrade::callbacks{
            .on_step = {},
            .on_progress =
                [this] {
                    add_progress(*client_, id_, lan_client::frame_type::dev_upgrade,
                                 upgrade_->taken_bytes(), order_.image_bytes);
                },
            .on_answer = {},
            .on_end = [this](const upgrade_outcome &outcome) { take_outcome(outcome); }});
    upgrade_->start(before);
}

bool upgrade_run::take(const lan_client::report &told) {
    return upgrade_ && !ended_ && upgrade_->take(told);
}

void upgrade_run::take(const lan_client::link_change &change) {
    if (upgrade_ && !ended_) {
        upgrade_->take(change);
    }
}

void upgrade_run::take_outcome(const upgrade_outcome &outcome) {
    const std::string version = outcome.status ? outcome.status->version : "";
    const std::string position = "byte " + std::to_string(upgrade_->taken_bytes()) + " of " +
                                 std::to_string(order_.image_bytes);
    switch (outcome.end) {
    case upgrade_end::installed:
        return end(ENGR_CLIENT_OK, "", version, true);
    case upgrade_end::not_installed:
        return end(ENGR_CLIENT_UPGRADE_FAILED,
                   "the gateway has the whole image, but did not install it", version);
    case upgrade_end::gave_up:
        return end(ENGR_CLIENT_UPGRADE_FAILED, "the gateway gave up at " + position, version);
    case upgrade_end::disconnected:
        return end(ENGR_CLIENT_CONNECTION_LOST, "at " + position, version);
    case upgrade_end::unknown:
        return end(ENGR_CLIENT_OUTCOME_UNKNOWN,
                   upgrade_->has_image() ? "the gateway has the whole image" : "at " + position);
    case upgrade_end::refused:
        return end_unanswered(outcome.last);
    case upgrade_end::stalled:
        return end(ENGR_CLIENT_TIMED_OUT,
                   "the gateway did not ask for the next piece at " + position);
    case upgrade_end::broken:
        return end(unreadable_ ? ENGR_CLIENT_UPGRADE_FAILED : ENGR_CLIENT_BAD_ANSWER,
                   "the gateway " + outcome.fault);
    }
}

// A question that was refused, not answered, or answered with something else.
void upgrade_run::end_unanswered(const lan_client::answer &last) {
    const bool malformed = !last.failure && last.ret == 0;
    add_answer(malformed ? ENGR_CLIENT_BAD_ANSWER : code_of(last.failure), last.failure.detail,
               last.ret, last.payload);
}

void upgrade_run::end(engr_client_error why, std::string text, const std::string &version,
                      bool upgraded) {
    const json told{
        {"version_before", version_before_}, {"version", version}, {"upgraded", upgraded}};
    add_answer(why, std::move(text), 0, told.dump(-1, ' ', false, json::error_handler_t::replace));
}

void upgrade_run::add_answer(engr_client_error why, std::string text, uint32_t ret,
                             std::string payload) {
    if (std::exchange(ended_, true)) {
        return;
    }
    auto event = std::make_unique<owned_event>(ENGR_CLIENT_ANSWER);
    event->request = id_;
    event->type = lan_client::frame_type::dev_upgrade;
    event->ret = ret;
    event->set_error(why, std::move(text));
    event->set_payload(std::move(payload));
    client_->add(std::move(event));
}

} // namespace lan_client_c
