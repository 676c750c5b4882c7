// Events of an image that is served.
#include "served_image.h"

#include "handle.h"
#include "requests.h"

#include <filesystem>
#include <utility>

namespace lan_client_c {
namespace {

// Gateways keep size and offsets of an image in signed 32-bit numbers.
constexpr uint64_t max_image_bytes = INT32_MAX;
// A gateway waits 40 s for a piece and may take as long to write one.
constexpr std::chrono::seconds piece_timeout{60};

} // namespace

served_image::served_image(const std::string &path) : file_(path, std::ios::binary) {
    std::error_code failed;
    const bool regular = std::filesystem::is_regular_file(path, failed);
    const uint64_t bytes = regular ? std::filesystem::file_size(path, failed) : 0;
    bytes_ = file_ && !failed && bytes <= max_image_bytes ? bytes : 0;
}

void served_image::start(engr_client &client, uint32_t id, std::vector<std::string> device_ids) {
    client_ = &client;
    id_ = id;
    sender_.emplace(
        *client.gateway, bytes_, std::move(device_ids), piece_timeout,
        [this](std::string &to, uint64_t offset, std::size_t count) {
            const std::size_t before = to.size();
            to.resize(before + count);
            file_.seekg(static_cast<std::streamoff>(offset));
            return static_cast<bool>(
                file_.read(to.data() + before, static_cast<std::streamsize>(count)));
        },
        [this] { changed(); });
}

bool served_image::take(const lan_client::report &told) {
    return sender_ && !ended_ && sender_->take(told);
}

void served_image::changed() {
    if (!sender_->fault().empty()) {
        return end(ENGR_CLIENT_BAD_ANSWER, "the gateway " + sender_->fault());
    }
    add_progress(*client_, id_, lan_client::frame_type::download_firmware, sender_->taken_bytes(),
                 bytes_);
    if (sender_->is_complete()) {
        end(ENGR_CLIENT_OK, "");
    }
}

void served_image::end(engr_client_error why, const std::string &text) {
    if (client_ == nullptr || std::exchange(ended_, true)) {
        return;
    }
    auto event = std::make_unique<owned_event>(ENGR_CLIENT_ANSWER);
    event->request = id_;
    event->type = lan_client::frame_type::download_firmware;
    event->set_error(why, text);
    client_->add(std::move(event));
}

} // namespace lan_client_c
