// The reference gateway with its agent in a simulated world, kept from input to input as long as
// no input has changed it: to make a world takes as long as tens of inputs.
#pragma once

#include "sim/world.h"

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace fuzz {

inline constexpr uint16_t lan_port = 6668;

class gateway_world {
  public:
    /** The gateway as it was at its start. The one of the input before must have settled. */
    static gateway_world &fresh();

    gateway_world();
    gateway_world(const gateway_world &) = delete;
    gateway_world &operator=(const gateway_world &) = delete;
    ~gateway_world();

    [[nodiscard]] sim::world &world() { return world_; }

    /** Connects an app, whose frames are answered from then on. */
    [[nodiscard]] sim::peer connect();

    /** The next input gets another gateway. */
    void mark_changed() { is_changed_ = true; }

    /** Whether a service took what may change the gateway. */
    [[nodiscard]] bool is_changed() const { return is_changed_; }

    /**
     * Ends an input, whose peers have closed: a sound app is served, the table of clients is empty
     * afterwards, and nothing is held that was not before. A changed gateway is stopped and closed,
     * after which nothing at all may be left.
     */
    void settle();

    /** Stops and closes the gateway, after which nothing may be left; this one is then gone. */
    static void end();

  private:
    void note_call(std::string_view line);

    sim::world world_;
    sim::resources at_rest_;
    bool is_changed_ = false;
    unsigned inputs_ = 0;
};

} // namespace fuzz
