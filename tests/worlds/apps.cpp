/* What apps do, and what an honest one checks in all that it receives. */
#include "stage.h"

#include "transport/frame_types.h"

#include <algorithm>
#include <cstdlib>

namespace worlds {

namespace {

std::string chunk(uint32_t number) {
    constexpr uint32_t last_offset_of_an_image = 8;
    const uint32_t offset = 4 * (number % (last_offset_of_an_image / 4 + 1));
    return std::string{0, 0, 0, static_cast<char>(offset)} + "abcd";
}

/** Whether an answer that is no refusal says what it should. */
bool is_right(uint32_t fr_type, const std::string &text) {
    const std::pair<uint32_t, const char *> starts[] = {{FRM_DEV_LIST, R"({"products":[)"},
                                                        {FRM_DEV_LINE_STAT, R"({"online":[)"},
                                                        {FRM_GET_CHANNEL, R"({"channel":)"}};
    return std::all_of(std::begin(starts), std::end(starts), [&](const auto &one) {
        return one.first != fr_type || text.starts_with(one.second);
    });
}

} // namespace

link *stage::connected(actor_run &by) {
    if (by.links.empty() || by.links.back().ended_ms) {
        sim::peer peer = world.connect(lan_port);
        if (!peer) {
            return nullptr;
        }
        if (by.as.is == role::slow_app) {
            peer.link().delay_ms_min = 1;
            peer.link().delay_ms_max = 100;
            peer.link().segment_bytes_max = 300;
            peer.read_slowly(500, 20);
        }
        by.links.push_back({.peer = peer, .buffer = {}});
    }
    return &by.links.back();
}

uint32_t stage::send(link &over, uint32_t fr_type, std::string_view payload, bool encrypted) {
    // A keep-alive's answer has number 0.
    const uint32_t number = fr_type == FRM_KEEPALIVE ? 0 : ++over.last_number;
    over.open[number] = fr_type;
    over.peer.send(lan_client::encode_request(
        number, fr_type,
        encrypted ? lan_client::encrypt(lan_client::unactivated_key(), payload)
                  : std::string(payload)));
    return number;
}

void stage::listen(actor_run &by, uint64_t limit_ms, std::optional<uint32_t> until_answered) {
    const uint64_t end = world.now_ms() + limit_ms;
    while (world.now_ms() < end) {
        if (by.links.empty() || by.links.back().ended_ms) {
            if (!until_answered) {
                world.run_for(end - world.now_ms());
            }
            return;
        }
        link &from = by.links.back();
        if (until_answered && from.open.count(*until_answered) == 0) {
            return;
        }
        from.buffer += from.peer.receive(1, end - world.now_ms());
        from.buffer += from.peer.receive_available();
        auto found = lan_client::decode_frame(from.buffer);
        for (; found.status == lan_client::decode_status::whole;
             found = lan_client::decode_frame(from.buffer)) {
            from.buffer.erase(0, found.consumed_bytes);
            take_frame(by.as, from, found.decoded);
        }
        if (found.status == lan_client::decode_status::no_frame && !from.buffer.empty()) {
            problem(name_of(by.as) + " got bytes that are no frame");
            from.buffer.clear();
        }
        if (from.peer.ended() || from.peer.was_reset()) {
            from.ended_ms = world.now_ms();
        }
    }
}

void stage::take_frame(const actor &by, link &from, const lan_client::frame &frame) {
    from.known_ms = from.known_ms.value_or(world.now_ms());
    if (!frame.crc_matches) {
        problem(name_of(by) + " got a frame with a wrong checksum");
    }
    const auto asked = from.open.find(frame.number);
    if (frame.number == 0 && frame.type != FRM_KEEPALIVE) {
        return take_report(by, from, frame);
    }
    if (asked == from.open.end() || asked->second != frame.type) {
        return problem(name_of(by) +
                       " got an answer of a type or number that it did not ask: type " +
                       std::to_string(frame.type) + ", number " + std::to_string(frame.number));
    }
    from.open.erase(asked);
    const std::string text =
        frame.payload.empty()
            ? ""
            : lan_client::decrypt(lan_client::unactivated_key(), frame.payload).value_or("?");
    if (frame.ret == 0 ? !is_right(frame.type, text) || text == "?" : text.empty()) {
        problem(name_of(by) + " got a wrong answer: type " + std::to_string(frame.type) + ", " +
                text);
    }
}

void stage::take_report(const actor &by, link &from, const lan_client::frame &frame) {
    const std::string text =
        lan_client::decrypt(lan_client::unactivated_key(), frame.payload).value_or("?");
    if (!text.starts_with('{') || !text.ends_with('}')) {
        return problem(name_of(by) + " got a report that can't be read: " + text);
    }
    const size_t at = text.find("report-");
    if (at == std::string::npos) {
        return; // of the upgrade or of a data point
    }
    const auto number = static_cast<uint32_t>(
        std::strtoul(text.c_str() + at + std::string("report-").size(), nullptr, 10));
    if (!from.reports.insert(number).second) {
        problem(name_of(by) + " got a report twice: " + text);
    }
}

void stage::ask(actor_run &by, uint32_t fr_type, std::string_view payload, bool encrypted) {
    link *over = connected(by);
    if (over == nullptr) {
        return;
    }
    const uint32_t number = send(*over, fr_type, payload, encrypted);
    listen(by, has_hostile_app ? answer_among_hostile_ms : answer_limit_ms, number);
    if (over->open.count(number) != 0 && !over->ended_ms && !has_misfortune) {
        problem(name_of(by.as) + " got no answer: type " + std::to_string(fr_type));
    }
}

namespace {

/** A request of an honest app as an action. */
template <uint32_t fr_type, bool encrypted, const char *const &payload>
void request(stage &at, actor_run &by, uint32_t) {
    at.ask(by, fr_type, payload, encrypted);
}

constexpr const char *none = "";
constexpr const char *lamp = R"({"cid":"lamp"})";
constexpr const char *lamp_on = R"({"cid":"lamp","dps":{"1":true}})";
constexpr const char *broken = R"({"cid":)";
constexpr const char *image =
    R"({"swVer":"2","fileSize":8,"fileMd5":"0123456789abcdef0123456789abcdef"})";
constexpr const char *gateway_image = R"({"cid":"gw0001","firmwareType":0})";

void send_chunk(stage &at, actor_run &by, uint32_t number) {
    if (link *over = at.connected(by)) {
        // It may be answered, by a refusal.
        at.send(*over, FRM_DOWNLOAD_FIRMWARE, chunk(number), false);
        at.listen(by, 20);
    }
}

void upgrade(stage &at, actor_run &by, uint32_t number) {
    at.ask(by, FRM_CHK_SOFT_VER, image, true);
    at.ask(by, FRM_DEV_UPGRADE, gateway_image, true);
    send_chunk(at, by, 0);
    at.listen(by, number % 4);
    send_chunk(at, by, 1);
}

void close_link(stage &at, actor_run &by, uint32_t number) {
    if (!by.links.empty() && !by.links.back().ended_ms) {
        number % 2 == 0 ? by.links.back().peer.close() : by.links.back().peer.reset();
        by.links.back().ended_ms = at.world.now_ms();
    }
}

constexpr action honest[] = {
    {"sends a keep-alive", 4, request<FRM_KEEPALIVE, false, none>},
    {"asks for the device list", 3, request<FRM_DEV_LIST, false, none>},
    {"asks which devices are online", 2, request<FRM_DEV_LINE_STAT, false, none>},
    {"asks for the channel", 1, request<FRM_GET_CHANNEL, false, none>},
    {"asks for a device's data points", 2, request<FRM_LOCAL_DP_QUERY, true, lamp>},
    {"switches a device on", 2, request<FRM_TP_CMD, true, lamp_on>},
    {"asks with a broken text", 1, request<FRM_LOCAL_DP_QUERY, true, broken>},
    {"upgrades the gateway", 4, upgrade},
    {"announces an image", 1, request<FRM_CHK_SOFT_VER, true, image>},
    {"starts an upgrade", 2, request<FRM_DEV_UPGRADE, true, gateway_image>},
    {"sends a piece of an image", 4, send_chunk},
    {"closes its connection", 2, close_link},
};

/** Another connection of a hostile app, or the one it has. */
sim::peer *hostile_peer(stage &at, actor_run &by, bool another) {
    if (another || by.peers.empty() || by.peers.back().ended() || by.peers.back().was_reset()) {
        sim::peer made = at.world.connect(lan_port);
        if (!made) {
            return nullptr;
        }
        by.peers.push_back(made);
    }
    return &by.peers.back();
}

void send_raw(stage &at, actor_run &by, const std::string &bytes) {
    if (sim::peer *over = hostile_peer(at, by, false)) {
        // A gateway that does not read any more must not hold the sender for long.
        const uint64_t room = over->link().to_gateway_bytes_max;
        over->send(std::string_view(bytes).substr(0, room / 4));
    }
}

void send_garbage(stage &at, actor_run &by, uint32_t number) {
    std::string bytes;
    for (uint32_t i = 0; i < number % 300; ++i) {
        bytes += static_cast<char>(i * 37 + number);
    }
    send_raw(at, by, bytes);
}

void send_half_a_frame(stage &at, actor_run &by, uint32_t number) {
    const std::string whole =
        lan_client::encode_request(number, FRM_DEV_LIST, std::string(number * 5, 'x'));
    send_raw(at, by, whole.substr(0, whole.size() * (number % 10) / 10));
}

void send_damaged_frame(stage &at, actor_run &by, uint32_t number) {
    std::string bytes = lan_client::encode_request(1, FRM_LOCAL_DP_QUERY, "0123456789abcdef");
    bytes[number % bytes.size()] = static_cast<char>(number / 4);
    send_raw(at, by, bytes);
}

void flood(stage &at, actor_run &by, uint32_t number) {
    std::string bytes;
    for (uint32_t i = 0; i < number % 100; ++i) {
        bytes += lan_client::encode_request(i, i % 2 == 0 ? FRM_DEV_LIST : FRM_KEEPALIVE, "");
    }
    send_raw(at, by, bytes);
}

void stop_reading(stage &at, actor_run &by, uint32_t) {
    if (sim::peer *over = hostile_peer(at, by, false)) {
        over->link().to_peer_bytes_max = 50;
        over->stop_reading();
    }
}

void start_an_upgrade(stage &at, actor_run &by, uint32_t number) {
    const auto send = [&](uint32_t fr_type, const char *payload) {
        send_raw(at, by,
                 lan_client::encode_request(
                     number, fr_type, lan_client::encrypt(lan_client::unactivated_key(), payload)));
    };
    send(FRM_CHK_SOFT_VER, image);
    send(FRM_DEV_UPGRADE, gateway_image);
}

void send_stray_chunk(stage &at, actor_run &by, uint32_t number) {
    send_raw(at, by, lan_client::encode_request(1, FRM_DOWNLOAD_FIRMWARE, chunk(number)));
}

void leave(stage &at, actor_run &by, uint32_t number) {
    if (sim::peer *over = hostile_peer(at, by, false)) {
        switch (number % 4) {
        case 0:
            return over->close();
        case 1:
            return over->close_sending();
        case 2:
            return over->vanish();
        default:
            return over->reset();
        }
    }
}

constexpr action hostile[] = {
    {"connects once more", 2,
     [](stage &at, actor_run &by, uint32_t) { hostile_peer(at, by, true); }},
    {"sends garbage", 2, send_garbage},
    {"sends a part of a frame", 2, send_half_a_frame},
    {"sends a damaged frame", 3, send_damaged_frame},
    {"sends many requests at once", 2, flood},
    {"stops reading", 2, stop_reading},
    {"starts an upgrade", 2, start_an_upgrade},
    {"sends a piece of an image", 2, send_stray_chunk},
    {"leaves", 3, leave},
};

} // namespace

std::span<const action> honest_actions() {
    return honest;
}

std::span<const action> hostile_actions() {
    return hostile;
}

} // namespace worlds
