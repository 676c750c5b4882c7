#include "console/web_server.h"

#include "console/access.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/websocket.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <list>
#include <stdexcept>
#include <thread>
#include <utility>

namespace console {
namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
namespace websocket = beast::websocket;
using asio::ip::tcp;
using boost::system::error_code;
// Executors of any kind would double the size of the code, and compression more than that.
using executor = asio::io_context::executor_type;
using tcp_socket = asio::basic_stream_socket<tcp, executor>;
using tcp_acceptor = asio::basic_socket_acceptor<tcp, executor>;
using tcp_stream = beast::basic_stream<tcp, executor>;
using live_stream = websocket::stream<tcp_stream, false>;
using timer = asio::basic_waitable_timer<std::chrono::steady_clock,
                                         asio::wait_traits<std::chrono::steady_clock>, executor>;
using namespace std::chrono_literals;

constexpr int connections_max = 16;
constexpr std::size_t conversations_max = 8;
constexpr std::size_t head_bytes_max = 8 << 10;
constexpr std::size_t message_bytes_max = 64 << 10;
/** What a browser has not read waits here; more would only be older when it is read. */
constexpr int unread_bytes_max = 256 << 10;
constexpr auto request_time = 10s;
/** After half of it without a byte from the browser it is asked for a sign of life. */
constexpr auto silence_max = 30s;
constexpr auto round_time = 50ms;
/** Rest after a failed accept, so that a lack of descriptors does not become a busy loop. */
constexpr auto accept_pause = 50ms;

/** Whether what was read is something else than a request; the end of a connection is not. */
bool is_no_http(error_code error) {
    return error.category() == http::make_error_code(http::error::bad_target).category() &&
           error != http::error::end_of_stream && error != http::error::partial_message;
}

} // namespace

/** What all connections share; lives on the server's thread, wake apart. */
class web_server::core {
  public:
    explicit core(web_settings chosen);
    ~core();
    core(const core &) = delete;
    core &operator=(const core &) = delete;

    void begin();
    void end();
    void begin_round();
    void wake();

    class live_connection;
    class http_connection;

    web_settings settings;
    tcp::endpoint endpoint;
    std::atomic<int> connections = 0;
    std::list<live_connection *> conversations;

  private:
    void accept();
    void plan_round(std::chrono::milliseconds pause);

    // Its end destroys the connections, which use what stands above.
    asio::io_context context_{1};
    tcp_acceptor acceptor_{context_};
    timer accept_timer_{context_};
    timer round_timer_{context_};
    bool is_round_near_ = false;
    std::atomic<bool> is_awake_ = false;
    std::thread thread_;
};

/** A browser's WebSocket. */
class web_server::core::live_connection
    : public std::enable_shared_from_this<web_server::core::live_connection> {
  public:
    live_connection(core &owner, tcp_stream &&stream) : owner_(owner), socket_(std::move(stream)) {
        place_ = owner_.conversations.insert(owner_.conversations.end(), this);
    }
    live_connection(const live_connection &) = delete;
    live_connection &operator=(const live_connection &) = delete;
    ~live_connection() {
        owner_.conversations.erase(place_);
        --owner_.connections;
    }

    void begin(const http::request<http::empty_body> &request) {
        beast::get_lowest_layer(socket_).expires_never();
        error_code ignored;
        beast::get_lowest_layer(socket_).socket().set_option(
            asio::socket_base::send_buffer_size(unread_bytes_max), ignored);
        socket_.set_option(websocket::stream_base::timeout{.handshake_timeout = request_time,
                                                           .idle_timeout = silence_max,
                                                           .keep_alive_pings = true});
        socket_.read_message_max(message_bytes_max);
        socket_.auto_fragment(false);
        socket_.text(true);
        socket_.async_accept(request, [self = shared_from_this()](error_code error) {
            if (!error) {
                self->converse();
            }
        });
    }

    void begin_round() {
        if (conversation_) {
            conversation_->begin_round();
            send();
        }
    }

  private:
    void converse() {
        const auto hurry = [weak = weak_from_this(), runner = socket_.get_executor()] {
            asio::post(runner, [weak] {
                if (const auto self = weak.lock()) {
                    self->send();
                }
            });
        };
        conversation_ = owner_.settings.converse(hurry);
        read();
        owner_.begin_round();
    }

    void read() {
        socket_.async_read(input_, [self = shared_from_this()](error_code error, std::size_t) {
            if (error) {
                self->end();
                return;
            }
            const auto bytes = self->input_.cdata();
            const bool is_fine = self->socket_.got_text() &&
                                 self->conversation_->take_message(
                                     {static_cast<const char *>(bytes.data()), bytes.size()});
            if (!is_fine) {
                self->close();
                return;
            }
            self->input_.consume(bytes.size());
            self->send();
            self->read();
        });
    }

    void send() {
        if (is_sending_ || is_ending_) {
            return;
        }
        std::optional<std::string> message = conversation_->next_message();
        if (!message) {
            return;
        }
        is_sending_ = true;
        output_ = std::move(*message);
        socket_.async_write(asio::buffer(output_),
                            [self = shared_from_this()](error_code error, std::size_t) {
                                self->is_sending_ = false;
                                if (error) {
                                    self->end();
                                } else {
                                    self->send();
                                }
                            });
    }

    void close() {
        is_ending_ = true;
        socket_.async_close(websocket::close_code::policy_error,
                            [self = shared_from_this()](error_code) { self->end(); });
    }

    /** What is under way fails, and with the last of it the connection is gone. */
    void end() {
        is_ending_ = true;
        beast::get_lowest_layer(socket_).cancel();
        beast::get_lowest_layer(socket_).close();
    }

    core &owner_;
    live_stream socket_;
    std::list<live_connection *>::iterator place_;
    std::unique_ptr<conversation> conversation_;
    beast::flat_buffer input_;
    std::string output_;
    bool is_sending_ = false;
    bool is_ending_ = false;
};

/** A connection until it becomes a WebSocket, if it does. */
class web_server::core::http_connection
    : public std::enable_shared_from_this<web_server::core::http_connection> {
  public:
    http_connection(core &owner, tcp_socket &&socket) : owner_(owner), stream_(std::move(socket)) {
        ++owner_.connections;
    }
    http_connection(const http_connection &) = delete;
    http_connection &operator=(const http_connection &) = delete;
    ~http_connection() {
        if (!is_handed_on_) {
            --owner_.connections;
        }
    }

    void read() {
        parser_.emplace();
        parser_->header_limit(head_bytes_max);
        stream_.expires_after(request_time);
        http::async_read(
            stream_, input_, *parser_,
            [self = shared_from_this()](error_code error, std::size_t) { self->answer(error); });
    }

  private:
    using response = http::response<http::span_body<const char>>;

    void answer(error_code error) {
        if (error == http::error::header_limit || error == http::error::buffer_overflow) {
            refuse(http::status::request_header_fields_too_large, "the request is too long");
        } else if (error == http::error::unexpected_body || error == http::error::body_limit) {
            refuse(http::status::payload_too_large, "the console takes no content");
        } else if (is_no_http(error)) {
            refuse(http::status::bad_request, "this is no HTTP request");
        } else if (!error) {
            answer_request();
        }
    }

    void answer_request() {
        const auto &request = parser_->get();
        const auto field = [&](http::field name) -> std::optional<std::string_view> {
            const auto found = request.find(name);
            return found == request.end() ? std::nullopt
                                          : std::optional<std::string_view>(found->value());
        };
        const credentials shown{.target = request.target(),
                                .host = field(http::field::host).value_or(""),
                                .origin = field(http::field::origin),
                                .cookie = field(http::field::cookie)};
        if (const std::string reason =
                refusal(shown, owner_.settings.token, owner_.endpoint.port());
            !reason.empty()) {
            refuse(http::status::forbidden, reason);
        } else if (request.method() != http::verb::get) {
            refuse(http::status::method_not_allowed, "the console answers GET only");
        } else if (path_of(shown.target) == owner_.settings.socket_path) {
            become_live();
        } else {
            send_file(path_of(shown.target), shown.host);
        }
    }

    void become_live() {
        if (!websocket::is_upgrade(parser_->get()) || input_.size() != 0) {
            refuse(http::status::upgrade_required, "this is the address of a WebSocket");
        } else if (owner_.conversations.size() >= conversations_max) {
            refuse(http::status::service_unavailable,
                   "too many pages of the console are open; close one of them");
        } else {
            is_handed_on_ = true;
            std::make_shared<live_connection>(owner_, std::move(stream_))->begin(parser_->get());
        }
    }

    void send_file(std::string_view path, std::string_view host) {
        const auto found = std::find_if(owner_.settings.files.begin(), owner_.settings.files.end(),
                                        [&](const web_file &each) { return each.path == path; });
        if (found == owner_.settings.files.end()) {
            refuse(http::status::not_found, "there is nothing here");
            return;
        }
        response made = begin_response(http::status::ok, found->type, found->bytes);
        made.set("Content-Security-Policy",
                 fmt::format("default-src 'self'; connect-src 'self' ws://{}; base-uri 'none'; "
                             "form-action 'none'; frame-ancestors 'none'; object-src 'none'",
                             host));
        made.set(http::field::set_cookie,
                 fmt::format("{}={}; Path=/; HttpOnly; SameSite=Strict",
                             cookie_name(owner_.endpoint.port()), owner_.settings.token));
        send(std::move(made));
    }

    /** Says why, and ends the connection. */
    void refuse(http::status status, std::string reason) {
        text_ = std::move(reason) + "\n";
        response made = begin_response(status, "text/plain; charset=utf-8", text_);
        made.set("Content-Security-Policy", "default-src 'none'; frame-ancestors 'none'");
        made.keep_alive(false);
        if (status == http::status::method_not_allowed) {
            made.set(http::field::allow, "GET");
        }
        send(std::move(made));
    }

    /** @param bytes  live until they are sent */
    response begin_response(http::status status, std::string_view type, std::string_view bytes) {
        response made{status, 11};
        made.body() = {bytes.data(), bytes.size()};
        made.set(http::field::content_type, type);
        made.set(http::field::cache_control, "no-store");
        made.set("X-Content-Type-Options", "nosniff");
        made.set("X-Frame-Options", "DENY");
        made.set("Referrer-Policy", "no-referrer");
        made.set("Cross-Origin-Opener-Policy", "same-origin");
        made.set("Cross-Origin-Resource-Policy", "same-origin");
        made.keep_alive(parser_->is_header_done() && parser_->keep_alive());
        return made;
    }

    void send(response &&made) {
        response_ = std::move(made);
        response_->prepare_payload();
        stream_.expires_after(request_time);
        http::async_write(
            stream_, *response_, [self = shared_from_this()](error_code error, std::size_t) {
                if (!error && self->response_->keep_alive()) {
                    self->read();
                } else {
                    error_code ignored;
                    self->stream_.socket().shutdown(tcp_socket::shutdown_send, ignored);
                }
            });
    }

    core &owner_;
    tcp_stream stream_;
    beast::flat_buffer input_{head_bytes_max * 2};
    std::optional<http::request_parser<http::empty_body>> parser_;
    std::optional<response> response_;
    std::string text_; /**< of a refusal */
    bool is_handed_on_ = false;
};

web_server::core::core(web_settings chosen) : settings(std::move(chosen)) {
    endpoint = {asio::ip::make_address(settings.address), settings.port};
    try {
        acceptor_.open(endpoint.protocol());
        acceptor_.set_option(asio::socket_base::reuse_address(true));
        acceptor_.bind(endpoint);
        acceptor_.listen(connections_max);
    } catch (const boost::system::system_error &error) {
        throw std::runtime_error(fmt::format(
            "the console cannot have {}:{}: {}; choose another with --console ADDRESS:PORT",
            settings.address, settings.port, error.code().message()));
    }
    endpoint = acceptor_.local_endpoint();
}

web_server::core::~core() {
    end();
}

void web_server::core::end() {
    context_.stop();
    if (thread_.joinable()) {
        thread_.join();
    }
}

void web_server::core::begin() {
    accept();
    thread_ = std::thread([this] { context_.run(); });
}

void web_server::core::accept() {
    acceptor_.async_accept([this](error_code error, tcp_socket socket) {
        if (error) {
            accept_timer_.expires_after(accept_pause);
            accept_timer_.async_wait([this](error_code) { accept(); });
            return;
        }
        if (connections < connections_max) {
            std::make_shared<http_connection>(*this, std::move(socket))->read();
        }
        accept();
    });
}

void web_server::core::wake() {
    if (!is_awake_.exchange(true)) {
        asio::post(context_, [this] {
            if (!is_round_near_) {
                plan_round(round_time);
                is_round_near_ = true;
            }
        });
    }
}

void web_server::core::plan_round(std::chrono::milliseconds pause) {
    round_timer_.expires_after(pause);
    round_timer_.async_wait([this](error_code error) {
        if (!error) {
            begin_round();
        }
    });
}

void web_server::core::begin_round() {
    is_awake_ = false;
    is_round_near_ = false;
    const std::chrono::milliseconds pause = settings.prepare_round();
    for (live_connection *each : conversations) {
        each->begin_round();
    }
    if (!conversations.empty()) {
        plan_round(pause);
    }
}

web_server::web_server(web_settings settings)
    : core_(std::make_unique<core>(std::move(settings))) {}

web_server::~web_server() = default;

void web_server::begin() {
    core_->begin();
}

void web_server::end() {
    core_->end();
}

std::string web_server::page_address() const {
    const std::string address = core_->endpoint.address().to_string();
    const bool is_v6 = core_->endpoint.address().is_v6();
    return fmt::format("http://{}:{}/?token={}", is_v6 ? "[" + address + "]" : address,
                       core_->endpoint.port(), core_->settings.token);
}

bool web_server::has_conversations() const {
    return !core_->conversations.empty();
}

void web_server::wake() {
    core_->wake();
}

} // namespace console
