// The scripted gateway of the client's tests.
#include "fake_gateway.h"

#include <array>

#include <asio/ip/tcp.hpp>
#include <asio/write.hpp>
#include <zlib.h>

namespace {

std::string word_bytes(std::uint32_t word) {
    return {static_cast<char>(word >> 24), static_cast<char>(word >> 16),
            static_cast<char>(word >> 8), static_cast<char>(word)};
}

std::uint32_t word_at(std::string_view bytes, std::size_t offset) {
    std::uint32_t word = 0;
    for (const char byte : bytes.substr(offset, 4)) {
        word = word << 8 | static_cast<unsigned char>(byte);
    }
    return word;
}

} // namespace

std::string gateway_frame(std::uint32_t number, std::uint32_t type,
                          std::initializer_list<std::uint32_t> words, std::string_view payload) {
    const auto length = static_cast<std::uint32_t>(words.size() * 4 + payload.size() + 8);
    std::string bytes =
        word_bytes(0x55AA) + word_bytes(number) + word_bytes(type) + word_bytes(length);
    for (const std::uint32_t word : words) {
        bytes += word_bytes(word);
    }
    bytes += payload;
    const auto covered = static_cast<uInt>(bytes.size() & 0xFFFF);
    const auto crc = crc32(0, reinterpret_cast<const Bytef *>(bytes.data()), covered);
    return bytes + word_bytes(static_cast<std::uint32_t>(crc)) + word_bytes(0xAA55);
}

struct fake_gateway::state : std::enable_shared_from_this<state> {
    state(fake_gateway &gateway, lan_client::event_loop &loop)
        : owner(&gateway), acceptor(loop.context(), {asio::ip::address_v4::loopback(), 0}),
          peer(loop.context()) {}

    void accept() {
        acceptor.async_accept([self = shared_from_this()](const asio::error_code &failed,
                                                          asio::ip::tcp::socket accepted) {
            if (failed || self->owner == nullptr) {
                return;
            }
            ++self->owner->connections;
            if (!self->owner->full) {
                self->peer = std::move(accepted);
                self->received.clear();
                if (!self->owner->deaf) {
                    self->read();
                }
            }
            self->accept();
        });
    }

    void read() {
        peer.async_read_some(
            asio::buffer(incoming),
            [self = shared_from_this()](const asio::error_code &failed, std::size_t count) {
                if (failed || self->owner == nullptr) {
                    return;
                }
                self->received.append(self->incoming.data(), count);
                self->cut();
                self->read();
            });
    }

    void cut() {
        while (received.size() >= 24 && received.size() >= word_at(received, 12) + 16) {
            const std::size_t length = word_at(received, 12);
            const seen_request request{word_at(received, 4), word_at(received, 8),
                                       received.substr(16, length - 8)};
            received.erase(0, length + 16);
            owner->on_request(request);
        }
    }

    fake_gateway *owner;
    asio::ip::tcp::acceptor acceptor;
    asio::ip::tcp::socket peer;
    std::array<char, 65536> incoming{};
    std::string received;
};

fake_gateway::fake_gateway(lan_client::event_loop &loop)
    : state_(std::make_shared<state>(*this, loop)) {
    state_->accept();
}

fake_gateway::~fake_gateway() {
    state_->owner = nullptr;
    state_->acceptor.close();
    state_->peer.close();
}

std::uint16_t fake_gateway::port() const {
    return state_->acceptor.local_endpoint().port();
}

void fake_gateway::send(std::string bytes) {
    const auto kept = std::make_shared<std::string>(std::move(bytes));
    asio::async_write(state_->peer, asio::buffer(*kept),
                      [kept, self = state_](const asio::error_code &, std::size_t) {});
}

void fake_gateway::reply(const seen_request &request, std::uint32_t ret, std::string_view text,
                         const lan_client::aes_key &key) {
    send(gateway_frame(request.number, request.type, {ret},
                       text.empty() ? "" : lan_client::encrypt(key, text)));
}

void fake_gateway::hang_up() {
    state_->peer.close();
}
