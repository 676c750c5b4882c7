// Stands in for connection.cpp and udp_socket.cpp of lan_client, which the linker then leaves out.
#include "support/fake_network.h"

#include "connection.h"
#include "support/virtual_loop.h"
#include "udp_socket.h"

#include <algorithm>
#include <deque>
#include <list>
#include <memory>
#include <utility>

namespace fuzz {
namespace {

struct open_port {
    uint16_t port;
    std::string interface_name; // empty: all
    std::function<void(const std::string &bytes, const std::string &on)> arrive;
};

std::list<open_port> &open_ports() {
    static std::list<open_port> all;
    return all;
}

lan_client::error missing(const std::string &interface_name) {
    const bool is = interface_name == the_far_side().missing_interface;
    return is ? lan_client::error{lan_client::error_kind::no_interface, interface_name}
              : lan_client::error{};
}

} // namespace

far_side &the_far_side() {
    static far_side side;
    return side;
}

void deliver(uint16_t port, std::string_view bytes, const std::string &interface_name) {
    for (const open_port &one : open_ports()) {
        const bool here = one.interface_name.empty() || one.interface_name == interface_name;
        if (one.port == port && here) {
            call_later({}, [arrive = one.arrive, copy = std::string(bytes), interface_name] {
                arrive(copy, interface_name);
            });
        }
    }
}

} // namespace fuzz

namespace lan_client {

class connection::link : public fuzz::far_end, public std::enable_shared_from_this<link> {
  public:
    link(event_loop &, connection_events events) : events_(std::move(events)) {}

    void open() {
        later([this] {
            open_ = true;
            if (fuzz::the_far_side().on_connected) {
                fuzz::the_far_side().on_connected(*this);
            }
            pump();
            take();
            events_.on_connected();
        });
    }

    void take_from_client(std::string bytes) {
        from_client_ += bytes;
        take();
    }

    void pause(bool paused) {
        paused_ = paused;
        pump();
    }

    void close() { ended_ = true; }

    void send(std::string bytes) override {
        to_client_.push_back(std::move(bytes));
        pump();
    }

    void hang_up() override {
        hangs_up_ = true;
        pump();
    }

    void stop_reading() override { deaf_ = true; }

    void later(std::function<void()> work, std::chrono::milliseconds delay = {}) override {
        fuzz::call_later(delay, [self = shared_from_this(), work = std::move(work)] {
            if (!self->ended_) {
                work();
            }
        });
    }

  private:
    // Hands on what was sent, a piece for each turn of the loop.
    void pump() {
        if (pumping_ || paused_ || !open_ || (to_client_.empty() && !hangs_up_)) {
            return;
        }
        pumping_ = true;
        later([this] {
            pumping_ = false;
            if (paused_) {
                return;
            }
            if (to_client_.empty()) {
                ended_ = true;
                return events_.on_closed({error_kind::connection_lost, "the far side closed it"});
            }
            const std::string bytes = std::move(to_client_.front());
            to_client_.pop_front();
            events_.on_bytes(bytes);
            pump();
        });
    }

    // Takes what the client has sent, as much at once as a socket's buffer might.
    void take() {
        constexpr std::size_t most_at_once = 16 * 1024;
        if (taking_ || deaf_ || !open_ || from_client_.empty()) {
            return;
        }
        taking_ = true;
        const auto take_piece = [this] {
            taking_ = false;
            const std::string bytes = from_client_.substr(0, most_at_once);
            from_client_.erase(0, bytes.size());
            if (fuzz::the_far_side().on_bytes) {
                fuzz::the_far_side().on_bytes(*this, bytes);
            }
            events_.on_written(bytes.size());
            take();
        };
        later(take_piece, fuzz::the_far_side().piece_time);
    }

    connection_events events_;
    std::deque<std::string> to_client_;
    std::string from_client_;
    bool open_ = false;
    bool ended_ = false;
    bool paused_ = false;
    bool deaf_ = false;
    bool hangs_up_ = false;
    bool pumping_ = false; // the next piece is on its way to the client
    bool taking_ = false;  // and from it
};

connection::connection(event_loop &loop, connection_events events)
    : loop_(loop), events_(std::move(events)) {}

connection::~connection() {
    close();
}

void connection::open(const connection_target &, std::chrono::milliseconds) {
    close();
    link_ = std::make_shared<link>(loop_, events_);
    link_->open();
}

void connection::send(std::string bytes) {
    if (link_) {
        link_->take_from_client(std::move(bytes));
    }
}

void connection::pause_reading() {
    if (link_) {
        link_->pause(true);
    }
}

void connection::resume_reading() {
    if (link_) {
        link_->pause(false);
    }
}

void connection::close() {
    if (link_) {
        link_->close();
        link_.reset();
    }
}

class udp_listener::socket : public std::enable_shared_from_this<socket> {
  public:
    explicit socket(callback on_datagram) : on_datagram_(std::move(on_datagram)) {}
    socket(const socket &) = delete;
    socket &operator=(const socket &) = delete;
    ~socket() { close(); }

    error open(const std::string &interface_name, uint16_t port) {
        if (error problem = fuzz::missing(interface_name)) {
            return problem;
        }
        const auto arrive = [self = weak_from_this()](const std::string &bytes,
                                                      const std::string &on) {
            const auto alive = self.lock();
            if (alive && alive->is_open_) {
                alive->on_datagram_(bytes, {fuzz::datagram_sender, on});
            }
        };
        place_ =
            fuzz::open_ports().insert(fuzz::open_ports().end(), {port, interface_name, arrive});
        is_open_ = true;
        if (const std::string first = fuzz::the_far_side().datagram; !first.empty()) {
            fuzz::call_later({}, [arrive, first] { arrive(first, "lo"); });
        }
        return {};
    }

    void close() {
        if (std::exchange(is_open_, false)) {
            fuzz::open_ports().erase(place_);
        }
    }

  private:
    callback on_datagram_;
    std::list<fuzz::open_port>::iterator place_; // while it is open
    bool is_open_ = false;
};

udp_listener::udp_listener(event_loop &, callback on_datagram)
    : socket_(std::make_shared<socket>(std::move(on_datagram))) {}

udp_listener::~udp_listener() {
    socket_->close();
}

error udp_listener::open(const std::string &interface_name, uint16_t port) {
    return socket_->open(interface_name, port);
}

error send_datagram(event_loop &, const std::string &interface_name, const std::string &address,
                    uint16_t port, std::string_view bytes) {
    if (error problem = fuzz::missing(interface_name)) {
        return problem;
    }
    const auto &sends = fuzz::the_far_side().on_datagram;
    return sends ? sends({interface_name, address, port, std::string(bytes)}) : error{};
}

} // namespace lan_client
