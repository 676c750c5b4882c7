// TCP over asio, confined to an interface.
#include "connection.h"

#include "bind_to_interface.h"

#include <algorithm>
#include <array>
#include <deque>
#include <utility>

#include <asio/ip/tcp.hpp>

namespace lan_client {
namespace {

// Longest single write, so that a long frame shows its progress.
constexpr std::size_t write_bytes = 16 * 1024;

error read_error(const asio::error_code &code) {
    const bool closed = code == asio::error::eof;
    return {error_kind::connection_lost, closed ? "the gateway closed it" : code.message()};
}

error connect_error(const asio::error_code &code) {
    const bool refused = code == asio::error::connection_refused;
    return {refused ? error_kind::refused : error_kind::unreachable, code.message()};
}

} // namespace

// One socket's life. Handlers hold it, so it outlives a close until the last of them has run.
class connection::link : public std::enable_shared_from_this<link> {
  public:
    link(event_loop &loop, const connection_events &events)
        : events_(events), socket_(loop.context()), connect_limit_(loop) {}

    void open(const connection_target &target, std::chrono::milliseconds connect_timeout) {
        asio::error_code failed;
        const auto address = asio::ip::make_address_v4(target.address, failed);
        if (failed) {
            return end_later({error_kind::bad_address, failed.message()});
        }
        socket_.open(asio::ip::tcp::v4(), failed);
        if (failed) {
            return end_later({error_kind::unreachable, failed.message()});
        }
        if (error problem = bind_to_interface(socket_.native_handle(), target.interface_name)) {
            return end_later(std::move(problem));
        }
        connect_limit_.start(connect_timeout, [this, self = weak_from_this()] {
            if (const auto alive = self.lock()) {
                end({error_kind::unreachable, "no answer to the attempt to connect"});
            }
        });
        socket_.async_connect(
            {address, target.port},
            [self = shared_from_this()](const asio::error_code &code) { self->connected(code); });
    }

    void send(std::string bytes) {
        outgoing_.push_back(std::move(bytes));
        if (outgoing_.size() == 1) {
            write_next();
        }
    }

    void pause_reading(bool paused) {
        paused_ = paused;
        read_next();
    }

    void close() {
        ended_ = true;
        open_ = false;
        connect_limit_.cancel();
        asio::error_code ignored;
        socket_.close(ignored);
    }

  private:
    // The owner has not returned from open yet, so it gets to know from the loop.
    void end_later(error problem) {
        connect_limit_.start(std::chrono::milliseconds(0),
                             [this, self = weak_from_this(), problem = std::move(problem)] {
                                 if (const auto alive = self.lock()) {
                                     end(problem);
                                 }
                             });
    }

    void end(const error &problem) {
        close();
        events_.on_closed(problem);
    }

    void connected(const asio::error_code &code) {
        if (ended_) {
            return;
        }
        if (code) {
            return end(connect_error(code));
        }
        connect_limit_.cancel();
        asio::error_code ignored;
        socket_.set_option(asio::ip::tcp::no_delay(true), ignored);
        open_ = true;
        read_next();
        events_.on_connected();
    }

    void read_next() {
        if (reading_ || paused_ || !open_) {
            return;
        }
        reading_ = true;
        socket_.async_read_some(
            asio::buffer(incoming_),
            [self = shared_from_this()](const asio::error_code &code, std::size_t count) {
                self->reading_ = false;
                if (self->ended_) {
                    return;
                }
                if (code) {
                    return self->end(read_error(code));
                }
                self->events_.on_bytes({self->incoming_.data(), count});
                self->read_next();
            });
    }

    void write_next() {
        const std::string &bytes = outgoing_.front();
        socket_.async_write_some(
            asio::buffer(bytes.data() + written_, std::min(bytes.size() - written_, write_bytes)),
            [self = shared_from_this()](const asio::error_code &code, std::size_t count) {
                // The reader notices a broken connection, too, after what the peer sent before.
                if (!self->ended_ && !code) {
                    self->written(count);
                }
            });
    }

    void written(std::size_t count) {
        written_ += count;
        if (written_ == outgoing_.front().size()) {
            outgoing_.pop_front();
            written_ = 0;
        }
        if (!outgoing_.empty()) {
            write_next();
        }
        events_.on_written(count);
    }

    connection_events events_;
    asio::ip::tcp::socket socket_;
    timer connect_limit_;
    std::array<char, 64 * 1024> incoming_;
    std::deque<std::string> outgoing_; // the front is being written
    std::size_t written_ = 0;          // bytes of the front that are
    bool open_ = false;
    bool ended_ = false;
    bool reading_ = false; // a read is under way
    bool paused_ = false;
};

connection::connection(event_loop &loop, connection_events events)
    : loop_(loop), events_(std::move(events)) {}

connection::~connection() {
    close();
}

void connection::open(const connection_target &target, std::chrono::milliseconds connect_timeout) {
    close();
    link_ = std::make_shared<link>(loop_, events_);
    link_->open(target, connect_timeout);
}

void connection::send(std::string bytes) {
    if (link_) {
        link_->send(std::move(bytes));
    }
}

void connection::pause_reading() {
    if (link_) {
        link_->pause_reading(true);
    }
}

void connection::resume_reading() {
    if (link_) {
        link_->pause_reading(false);
    }
}

void connection::close() {
    if (link_) {
        link_->close();
        link_.reset();
    }
}

} // namespace lan_client
