/* The message bus: messages are delivered in order on a simulated thread of the port. */
#include "core.h"

#include <algorithm>
#include <cstring>

namespace sim {
namespace {

/** Most messages that wait; further ones are refused. */
constexpr size_t bus_queue_max = 64;

void release(bus_state &bus, const message_block *block) {
    std::erase_if(bus.blocks, [block](const auto &each) { return each.get() == block; });
}

void run_bus(core &core) {
    bus_state &bus = core.bus;
    while (true) {
        core.threads.wait({.what = "a message"},
                          [&core, &bus] { return core.closing || !bus.waiting.empty(); });
        if (core.closing) {
            return;
        }
        if (bus.waiting.empty()) {
            continue;
        }
        message_block *block = bus.waiting.front();
        bus.waiting.pop_front();
        block->delivered = true;
        bus.running_id = block->message_id;
        cmmod_msg_t message = {.message_id = block->message_id, .rfc = &block->shown};
        bus.callbacks.at(block->message_id)(&message);
        bus.running_id = CMMOD_NO_MESSAGE_ID;
        core.threads.changed();
        core.threads.point();
    }
}

} // namespace
} // namespace sim

int32_t cmmod_reg_msgcb(cmmod_callback_t callback, uint16_t *message_id) {
    sim::call call(sim::operation::cmmod_reg_msgcb);
    if (call.fails()) {
        return call.failed();
    }
    sim::core &core = sim::current_core();
    sim::bus_state &bus = core.bus;
    if (callback == nullptr || message_id == nullptr ||
        bus.callbacks.size() >= CMMOD_NO_MESSAGE_ID) {
        return call.done(-1);
    }
    do {
        ++bus.last_id;
    } while (bus.last_id == CMMOD_NO_MESSAGE_ID || bus.callbacks.count(bus.last_id) != 0);
    if (bus.context == nullptr) {
        bus.context = &core.threads.start("bus", [&core] { sim::run_bus(core); });
        bus.context->is_service = true;
    }
    bus.callbacks[bus.last_id] = callback;
    *message_id = bus.last_id;
    return call.done(0);
}

int32_t cmmod_unreg_msgcb(uint16_t message_id) {
    sim::call call(sim::operation::cmmod_unreg_msgcb, {message_id});
    if (call.fails()) {
        return call.failed();
    }
    sim::core &core = sim::current_core();
    sim::bus_state &bus = core.bus;
    if (bus.callbacks.erase(message_id) == 0) {
        return call.done(-1);
    }
    std::erase_if(bus.waiting,
                  [message_id](const auto *block) { return block->message_id == message_id; });
    std::erase_if(bus.blocks, [message_id](const auto &block) {
        return block->message_id == message_id && !block->delivered;
    });
    if (&core.threads.self() != bus.context) {
        const std::function<sim::thread *()> deliverer = [&bus] { return bus.context; };
        core.threads.wait({.what = "the end of the callback of message",
                           .detail = message_id,
                           .bounded = true,
                           .blocker = &deliverer},
                          [&bus, message_id] { return bus.running_id != message_id; });
    }
    return call.done(0);
}

int32_t cmmod_post_msg(uint16_t message_id, const void *data, uint32_t length) {
    sim::call call(sim::operation::cmmod_post_msg, {message_id});
    call.note(data, data == nullptr ? 0 : length);
    if (call.fails()) {
        return call.failed();
    }
    sim::core &core = sim::current_core();
    sim::bus_state &bus = core.bus;
    if (bus.callbacks.count(message_id) == 0 || (data == nullptr && length != 0) ||
        bus.waiting.size() >= sim::bus_queue_max) {
        return call.done(-1);
    }
    auto block = std::make_unique<sim::message_block>();
    block->bytes = std::make_unique<char[]>(size_t{length} + 1);
    if (length != 0) {
        std::memcpy(block->bytes.get(), data, length);
    }
    block->shown = {.data = block->bytes.get(), .length = length};
    block->message_id = message_id;
    bus.waiting.push_back(block.get());
    bus.blocks.push_back(std::move(block));
    return call.done(0);
}

void put_rfc_data(rfc_data_t *rfc) {
    if (rfc == nullptr) {
        return;
    }
    sim::call call(sim::operation::put_rfc_data);
    sim::core &core = sim::current_core();
    const auto found =
        std::find_if(core.bus.blocks.begin(), core.bus.blocks.end(),
                     [rfc](const auto &block) { return &block->shown == rfc && block->delivered; });
    if (found == core.bus.blocks.end()) {
        core.problem("put_rfc_data of a message block without a reference of the caller's");
    } else {
        sim::release(core.bus, found->get());
    }
    call.end(0);
}
