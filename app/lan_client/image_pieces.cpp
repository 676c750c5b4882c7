// Requests for pieces of an image.
#include "lan_client/image_pieces.h"

#include "lan_client/json.h"
#include "lan_client/upgrade_status.h"

#include <algorithm>
#include <utility>

#include <nlohmann/json.hpp>

namespace lan_client {
namespace {

// A gateway that repeats more requests than this is not retrying.
constexpr uint32_t most_repeats = 1000;

// A gateway may request a part of each piece again, but not almost all of each.
constexpr uint64_t most_images_sent = 16;
constexpr uint64_t allowance_bytes = uint64_t{64} * 1024 * 1024;

} // namespace

piece_requests::piece_requests(uint64_t image_bytes, std::vector<std::string> ids)
    : image_bytes_(image_bytes), ids_(std::move(ids)) {}

std::string piece_requests::fault_of(std::string_view payload, piece_request &wanted) const {
    const nlohmann::json body = parse_json(payload);
    const auto type = member_count(body, "firmwareType");
    const auto offset = member_count(body, "offset");
    const auto bytes = member_count(body, "downloadSize");
    if (!type || !offset || !bytes) {
        return "sent no request for a piece of the image";
    }
    // Another app's announcement changes the type in the requests of a running upgrade.
    if (*type != gateway_firmware && *type != device_firmware) {
        return "asks for a piece of an unknown type of firmware";
    }
    if (std::ranges::find(ids_, member_text(body, "cid")) == ids_.end()) {
        return "asks for a piece for another device";
    }
    wanted = {*offset, *bytes};
    if (*offset > image_bytes_ || *bytes > image_bytes_ - *offset) {
        return "asks for a piece that is not in the image";
    }
    if (*offset > sent_end_) {
        return "asks for a piece without having got the one before";
    }
    if (*bytes == 0 && *offset < image_bytes_) {
        return "says before the end of the image that it has all of it";
    }
    return "";
}

bool piece_requests::wants_too_much(const piece_request &wanted) {
    const bool further = !asked_ || wanted.offset > furthest_;
    asked_ = true;
    furthest_ = std::max(furthest_, wanted.offset);
    repeats_ += further ? 0 : 1;
    return repeats_ > most_repeats ||
           sent_bytes_ > most_images_sent * image_bytes_ + allowance_bytes;
}

std::string piece_requests::next(std::string_view payload, piece_request &wanted) {
    constexpr std::size_t shown_bytes = 128; // no request is longer
    const std::string fault = fault_of(payload, wanted);
    if (!fault.empty()) {
        return fault + ": " + std::string(payload.substr(0, shown_bytes));
    }
    return wants_too_much(wanted) ? "keeps requesting the same pieces" : "";
}

void piece_requests::sent(const piece_request &wanted, uint64_t bytes) {
    sent_end_ = std::max(sent_end_, wanted.offset + bytes);
    sent_bytes_ += bytes;
}

} // namespace lan_client
