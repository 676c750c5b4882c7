#include "session/live.h"

#include <algorithm>

namespace session {
namespace {

/** Keys that were in use before, and may still be in what waits. */
constexpr std::size_t keys_max = 16;
/** What a queued happening takes besides its texts. */
constexpr std::size_t happening_bytes = 256;
/** How long happenings are gathered: to wake a thread costs more than to tell what happens. */
constexpr std::chrono::milliseconds gathering_time{5};

} // namespace

live_events::live_events(key_source local_keys)
    : local_keys_(std::move(local_keys)),
      // The built-in keys are what counts; the local one is not used.
      keys_{{}, {.local = lan_client::unactivated_key()}} {}

live_events::~live_events() {
    end();
}

void live_events::listen(listener added) {
    listeners_.push_back(std::move(added));
}

void live_events::on_pause(std::function<void()> called) {
    on_pause_ = std::move(called);
}

void live_events::begin() {
    take_keys();
    began_ = clock::now();
    thread_ = std::thread([this] { run(); });
}

void live_events::end() {
    if (!thread_.joinable()) {
        return;
    }
    {
        const std::lock_guard lock(mutex_);
        ends_ = true;
    }
    changed_.notify_one();
    thread_.join();
}

void live_events::tell_connected(uint64_t connection, std::string_view peer,
                                 std::vector<lan_client::aes_key> local_keys) {
    put(told_connection{connection, std::string(peer), std::move(local_keys)}, peer.size());
}

void live_events::tell_bytes(uint64_t connection, side from, std::string_view bytes) {
    put(told_bytes{connection, from, std::string(bytes)}, bytes.size());
}

void live_events::tell_closed(uint64_t connection, std::optional<side> by) {
    put(told_end{connection, by}, 0);
}

void live_events::tell_datagram(side from, uint16_t port, std::string_view peer,
                                std::string_view bytes) {
    put(told_datagram{from, port, std::string(peer), std::string(bytes)},
        peer.size() + bytes.size());
}

void live_events::tell(happening what, std::size_t bytes) {
    put(std::move(what), bytes);
}

void live_events::put(told what, std::size_t bytes) {
    bytes += happening_bytes;
    bool is_first = false;
    {
        const std::lock_guard lock(mutex_);
        if (queued_bytes_ + bytes > waiting_bytes_max) {
            return count_loss();
        }
        queued_bytes_ += bytes;
        is_first = queue_.empty();
        queue_.push_back({now_us(), std::move(what), bytes});
    }
    if (is_first) {
        changed_.notify_one();
    }
}

uint64_t live_events::now_us() const {
    const auto since = std::chrono::duration_cast<std::chrono::microseconds>(clock::now() - began_);
    return static_cast<uint64_t>(since.count());
}

/** With the mutex held. */
void live_events::count_loss() {
    if (!queue_.empty()) {
        if (auto *what = std::get_if<happening>(&queue_.back().what)) {
            if (auto *losses = std::get_if<lost>(what)) {
                ++losses->events;
                return;
            }
        }
    }
    queue_.push_back({now_us(), lost{1}, 0});
}

void live_events::run() {
    for (bool ends = false; !ends;) {
        std::vector<waiting> taken;
        {
            std::unique_lock lock(mutex_);
            changed_.wait(lock, [this] { return ends_ || !queue_.empty(); });
            changed_.wait_for(lock, gathering_time, [this] { return ends_; });
            ends = ends_;
            taken.swap(queue_);
        }
        take_keys();
        for (waiting &one : taken) {
            const std::size_t bytes = one.bytes;
            work_on(std::move(one));
            const std::lock_guard lock(mutex_);
            queued_bytes_ -= bytes;
        }
        if (ends) {
            for (auto &[connection, client] : clients_) {
                finish_streams(now_us(), client);
            }
            hand_out(now_us(), ended{});
        }
        if (on_pause_) {
            on_pause_();
        }
    }
}

void live_events::take_keys() {
    std::vector<lan_client::aes_key> now = local_keys_();
    for (const lan_client::aes_key &before : keys_.local) {
        if (now.size() < keys_max && std::find(now.begin(), now.end(), before) == now.end()) {
            now.push_back(before);
        }
    }
    keys_.local = std::move(now);
}

void live_events::work_on(waiting one) {
    std::visit([&](auto &what) { work_on(one.at_us, std::move(what)); }, one.what);
}

void live_events::work_on(uint64_t at_us, told_connection one) {
    if (clients_.count(one.connection) != 0) { // its end was lost
        work_on(at_us, told_end{one.connection, {}});
    }
    open_client opened{.number = ++last_client_, .keys = {}};
    if (!one.local_keys.empty()) {
        opened.keys = known_keys{std::move(one.local_keys), keys_.built_in};
    }
    clients_.emplace(one.connection, std::move(opened));
    hand_out(at_us, connected{last_client_, std::move(one.peer)});
}

void live_events::work_on(uint64_t at_us, const told_bytes &one) {
    const auto found = clients_.find(one.connection);
    if (found == clients_.end()) {
        return; // its beginning was lost
    }
    open_client &client = found->second;
    stream_words &words = one.from == side::app ? client.from_app : client.from_gateway;
    for (stream_piece &piece : words.take(at_us, one.bytes)) {
        hand_out_piece(at_us, client, one.from, std::move(piece));
    }
}

void live_events::work_on(uint64_t at_us, const told_end &one) {
    const auto found = clients_.find(one.connection);
    if (found != clients_.end()) {
        finish_streams(at_us, found->second);
        hand_out(at_us, closed{found->second.number, one.by});
        clients_.erase(found);
    }
}

void live_events::work_on(uint64_t at_us, const told_datagram &one) {
    hand_out(at_us, datagram{one.from, one.port, one.peer,
                             datagram_words(one.from, one.port, one.bytes, keys_)});
}

void live_events::work_on(uint64_t at_us, happening one) {
    if (std::holds_alternative<lost>(one)) {
        for (auto &[connection, client] : clients_) {
            finish_streams(at_us, client); // what comes next is no continuation
        }
    }
    hand_out(at_us, std::move(one));
}

void live_events::hand_out_piece(uint64_t at_us, const open_client &client, side from,
                                 stream_piece piece) {
    const std::optional<uint64_t> began_us =
        piece.began_us < at_us ? std::optional(piece.began_us) : std::nullopt;
    if (auto *whole = std::get_if<lan_client::frame>(&piece.content)) {
        const known_keys &keys = client.keys ? *client.keys : keys_;
        const uint32_t first_bytes = from == side::app && began_us ? piece.first_bytes : 0;
        hand_out(at_us, frame{client.number, from, began_us,
                              words_of(from, std::move(*whole), keys), first_bytes});
    } else {
        hand_out(at_us, raw_bytes{client.number, from, began_us,
                                  std::get<std::string>(std::move(piece.content))});
    }
}

void live_events::finish_streams(uint64_t at_us, open_client &client) {
    for (const side from : {side::app, side::gateway}) {
        stream_words &words = from == side::app ? client.from_app : client.from_gateway;
        if (std::optional<stream_piece> rest = words.finish()) {
            hand_out_piece(at_us, client, from, std::move(*rest));
        }
    }
}

void live_events::hand_out(uint64_t at_us, happening what) {
    const event handed{at_us, std::move(what)};
    for (const listener &one : listeners_) {
        one(handed);
    }
}

} // namespace session
