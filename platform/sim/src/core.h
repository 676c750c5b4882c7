/* Everything that a world consists of. */
#pragma once

#include "calls.h"
#include "network.h"
#include "scheduler.h"

#include "platform/message_bus.h"
#include "platform/mutex.h"
#include "platform/timer.h"
#include "sim/world.h"

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

/** A mutex; records stay until the world ends, so that the use of stale handles is detected. */
struct kelo_mutex {
    uint32_t number = 0;
    sim::thread *holder = nullptr;
    bool released = false;
};

namespace sim {

/** One block of Malloc. */
struct heap_record {
    size_t size;
    uint64_t number; /**< number of the Malloc call */
    uint64_t time_ms;
    std::string maker; /**< thread */
};

struct heap_state {
    std::unordered_map<void *, heap_record> blocks;
    size_t bytes = 0;
};

struct timer_record {
    sys_timer_callback_t callback;
    void *argument;
    uint64_t due_ms = never;
    uint32_t period_ms = 0;
    uint64_t order = 0; /**< among those due at the same time */
    std::string maker;
};

struct timer_state {
    std::map<uint16_t, timer_record> timers;
    uint16_t last_id = 0;
    uint64_t starts = 0;
    uint64_t next_due_ms = never;
    uint16_t running_id = 0; /**< whose callback runs; 0: none */
    thread *context = nullptr;

    void find_next_due();
};

/** A block of the bus; the part that the contract shows comes first. */
struct message_block {
    rfc_data_t shown;
    std::unique_ptr<char[]> bytes;
    uint16_t message_id;
    bool delivered = false;
};

struct bus_state {
    std::map<uint16_t, cmmod_callback_t> callbacks;
    std::deque<message_block *> waiting;
    std::vector<std::unique_ptr<message_block>> blocks; /**< in use, oldest first */
    uint16_t last_id = 0;
    uint16_t running_id = CMMOD_NO_MESSAGE_ID;
    thread *context = nullptr;
};

struct file_record {
    int descriptor;
    std::string path;
};

struct file_state {
    std::map<int32_t, file_record> open;
    int32_t next_handle = 0; /**< 0 is a handle like any other */
};

/** A failure that for_each_nth_failure has prepared. */
struct prepared_failure {
    operation target;
    trigger when;
    failure how;
};

struct core {
    core(options with, std::unique_ptr<chooser> decides);

    options chosen;
    call_records records;
    random_source fault_chance;
    scheduler threads;
    network net;
    heap_state heap;
    std::deque<kelo_mutex> mutexes;
    timer_state timers;
    bus_state bus;
    file_state files;
    logbook log;
    int64_t posix_offset_s; /**< time of day minus virtual time */
    std::vector<std::string> problems;
    bool closing = false; /**< the port's own contexts are to end */
    bool finished = false;
    fiber *outside =
        nullptr; /**< context to switch to when the story cannot go on; null: the process ends */
    std::optional<prepared_failure> prepared;

    /** Adds a problem with time and thread. */
    void problem(std::string text);
    /** Adds a problem after which the story cannot go on. */
    [[noreturn]] void fatal(std::string text);
    fault_id add_fault(operation target, trigger when, failure how);
    /** Problems for all that is left over. */
    void check_leftovers();
    void check_heap_leftovers();
    /** Ends the port's own contexts. */
    void end_services();
    /** Ends a story, finished or not: no thread goes on, all memory is released. */
    void drop_everything();
};

/** The core of the current world; ends the process when there is none. */
core &current_core();

/** Makes a world for explore.cpp. */
std::unique_ptr<world> make_world(options with, std::unique_ptr<chooser> decides);
core &core_of(world &of);

} // namespace sim
