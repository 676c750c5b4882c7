/* Message bus: one bounded queue and one delivery thread. */
#include "platform/message_bus.h"

#include "background.h"
#include "callback_context.h"
#include "linux_port/port.h"
#include "platform/memory.h"

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <deque>
#include <map>
#include <new>

namespace linux_port {

namespace {

/** Most messages that wait for delivery; a post beyond that is refused. */
constexpr size_t queue_limit = 1024;

/** The block behind an rfc_data_t. The bytes follow it. */
struct alignas(std::max_align_t) message_block {
    rfc_data_t contract;
    std::atomic<uint32_t> references;
};

struct message {
    uint16_t id;
    message_block *block;
};

void deliver_messages(std::unique_lock<std::mutex> &lock);

struct bus_service {
    callback_context context{"cmmod_bus", deliver_messages};
    std::map<uint16_t, cmmod_callback_t> receivers;
    std::deque<message> queue;
    uint16_t last_id = 0;
};

/** Never destroyed: its thread may outlive main. */
bus_service &service() {
    static auto &instance = *new bus_service;
    return instance;
}

message_block *create_block(const void *data, uint32_t length) {
    void *memory = Malloc(sizeof(message_block) + length + 1);
    if (memory == nullptr) {
        return nullptr;
    }
    auto *bytes = static_cast<char *>(memory) + sizeof(message_block);
    if (length != 0) {
        std::memcpy(bytes, data, length);
    }
    bytes[length] = 0;
    return new (memory) message_block{{bytes, length}, 1};
}

void deliver_messages(std::unique_lock<std::mutex> &lock) {
    bus_service &bus = service();
    while (!bus.context.stopping()) {
        if (bus.queue.empty()) {
            bus.context.changed().wait(lock);
            continue;
        }
        const message next = bus.queue.front();
        bus.queue.pop_front();
        bus.context.run_callback(lock, next.id, [next, receiver = bus.receivers.at(next.id)] {
            cmmod_msg_t delivered{next.id, &next.block->contract};
            receiver(&delivered);
        });
    }
}

/** An id without registration; CMMOD_NO_MESSAGE_ID when all are taken. */
uint16_t free_id(bus_service &bus) {
    for (uint32_t tries = 1; tries < CMMOD_NO_MESSAGE_ID; ++tries) {
        bus.last_id = static_cast<uint16_t>(bus.last_id % (CMMOD_NO_MESSAGE_ID - 1) + 1);
        if (!bus.receivers.contains(bus.last_id)) {
            return bus.last_id;
        }
    }
    return CMMOD_NO_MESSAGE_ID;
}

} // namespace

void shut_message_bus_down() {
    bus_service &bus = service();
    auto lock = bus.context.lock();
    bus.context.stop(lock);
    for (const message &waiting : bus.queue) {
        put_rfc_data(&waiting.block->contract);
    }
    bus.queue.clear();
    bus.receivers.clear();
}

void shutdown() {
    shut_timers_down();
    shut_message_bus_down();
}

} // namespace linux_port

using namespace linux_port;

int32_t cmmod_reg_msgcb(cmmod_callback_t callback, uint16_t *message_id) {
    if (callback == nullptr || message_id == nullptr) {
        return -EINVAL;
    }
    bus_service &bus = service();
    auto lock = bus.context.lock();
    const int32_t started = bus.context.start(lock);
    if (started != 0) {
        return started;
    }
    const uint16_t id = free_id(bus);
    if (id == CMMOD_NO_MESSAGE_ID) {
        return -ENOSPC;
    }
    try {
        bus.receivers.emplace(id, callback);
    } catch (const std::bad_alloc &) {
        return -ENOMEM;
    }
    *message_id = id;
    return 0;
}

int32_t cmmod_unreg_msgcb(uint16_t message_id) {
    bus_service &bus = service();
    auto lock = bus.context.lock();
    const bool known = bus.receivers.erase(message_id) != 0;
    std::erase_if(bus.queue, [message_id](const message &waiting) {
        const bool dropped = waiting.id == message_id;
        if (dropped) {
            put_rfc_data(&waiting.block->contract);
        }
        return dropped;
    });
    // Also when the callback ended its registration itself meanwhile: it may still run.
    bus.context.wait_for_callback(lock, message_id);
    return known ? 0 : -ENOENT;
}

int32_t cmmod_post_msg(uint16_t message_id, const void *data, uint32_t length) {
    if (data == nullptr && length != 0) {
        return -EINVAL;
    }
    message_block *block = create_block(data, length);
    if (block == nullptr) {
        return -ENOMEM;
    }
    bus_service &bus = service();
    auto lock = bus.context.lock();
    int32_t result = 0;
    if (!bus.receivers.contains(message_id)) {
        result = -ENOENT;
    } else if (bus.queue.size() >= queue_limit) {
        result = -ENOBUFS;
    } else {
        try {
            bus.queue.push_back({message_id, block});
        } catch (const std::bad_alloc &) {
            result = -ENOMEM;
        }
    }
    if (result != 0) {
        put_rfc_data(&block->contract);
        return result;
    }
    bus.context.changed().notify_all();
    return 0;
}

void put_rfc_data(rfc_data_t *rfc) {
    if (rfc == nullptr) {
        return;
    }
    auto *block = reinterpret_cast<message_block *>(rfc);
    if (block->references.fetch_sub(1) == 1) {
        block->~message_block();
        Free(block);
    }
}
