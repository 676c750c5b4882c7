// The simulated port under the contract tests: the body is thread "main" of a world, and the peers
// are the world's. Whatever is left over at the end of a test fails it.
#include "port_harness.h"

#include "sim/testing.h"

namespace contract_tests {

namespace {

class sim_stream_peer : public stream_peer {
  public:
    explicit sim_stream_peer(sim::peer end) : end_(std::move(end)) { end_.stop_reading(); }
    ~sim_stream_peer() override { end_.close(); }

    bool send(std::string_view bytes) override { return end_.send(bytes); }
    std::string receive(size_t count) override { return end_.receive(count, expectation_bound_ms); }
    bool wait_for_end() override { return end_.wait_for_end(expectation_bound_ms); }
    void close() override { end_.close(); }
    void reset() override { end_.reset(); }

  private:
    sim::peer end_;
};

class sim_datagram_peer : public datagram_peer {
  public:
    explicit sim_datagram_peer(sim::udp_peer end) : end_(std::move(end)) {}
    ~sim_datagram_peer() override { end_.close(); }

    [[nodiscard]] uint32_t address() const override { return end_.address(); }
    [[nodiscard]] uint16_t port() const override { return end_.port(); }
    bool send_to(uint32_t address, uint16_t port, std::string_view bytes) override {
        end_.send_to(address, port, bytes);
        return true;
    }
    std::optional<datagram> receive() override {
        auto received = end_.receive(expectation_bound_ms);
        if (!received) {
            return std::nullopt;
        }
        return datagram{std::move(received->bytes), received->address, received->port};
    }

  private:
    sim::udp_peer end_;
};

class sim_harness : public port_harness {
  public:
    ~sim_harness() override {
        for (const std::string &problem : world_.finish()) {
            ADD_FAILURE() << problem << "\nto rerun: " << sim::rerun_line(world_.seed());
        }
    }

    void run(const std::function<void()> &body) override { body(); }
    [[nodiscard]] uint64_t now_ms() override { return world_.now_ms(); }
    [[nodiscard]] uint32_t address() const override { return sim::options{}.gateway_address; }
    uint16_t free_port() override { return next_port_++; }

    std::unique_ptr<stream_peer> connect(uint16_t port) override {
        sim::peer end = world_.connect(port);
        return end ? std::make_unique<sim_stream_peer>(std::move(end)) : nullptr;
    }
    std::unique_ptr<datagram_peer> open_datagram_peer() override {
        return std::make_unique<sim_datagram_peer>(world_.open_udp());
    }

  private:
    sim::world world_{sim::with_environment()};
    uint16_t next_port_ = 20'000;
};

} // namespace

std::unique_ptr<port_harness> make_port_harness() {
    return std::make_unique<sim_harness>();
}

} // namespace contract_tests
