/* The world as tests see it. */
#include "sim/world.h"

#include "core.h"

#include <cstdio>
#include <cstdlib>

namespace sim {

namespace {

world *the_world;
core *the_core;

std::unique_ptr<chooser> chooser_for(const options &chosen) {
    if (!chosen.decisions.empty()) {
        return std::make_unique<recorded_chooser>(chosen.decisions);
    }
    return std::make_unique<seeded_chooser>(chosen.seed);
}

} // namespace

options with_environment(options chosen) {
    if (const char *seed = std::getenv("ENGR_SIM_SEED")) {
        chosen.seed = std::strtoull(seed, nullptr, 0);
    }
    if (const char *decisions = std::getenv("ENGR_SIM_DECISIONS")) {
        chosen.decisions = decisions;
    }
    if (std::getenv("ENGR_SIM_TRACE") != nullptr) {
        chosen.trace = true;
    }
    return chosen;
}

core &current_core() {
    if (the_core == nullptr) {
        std::fputs("sim: a contract function was called while no sim::world exists\n", stderr);
        std::abort();
    }
    return *the_core;
}

world::world(options chosen) : world(std::move(chosen), nullptr) {}

world::world(options chosen, std::unique_ptr<chooser> decides) {
    if (the_core != nullptr) {
        std::fputs("sim: only one sim::world may exist at a time\n", stderr);
        std::abort();
    }
    if (decides == nullptr) {
        decides = chooser_for(chosen);
    }
    core_ = std::make_unique<core>(std::move(chosen), std::move(decides));
    the_core = core_.get();
    the_world = this;
}

world::~world() {
    if (!core_->finished) {
        finish();
        if (!core_->problems.empty()) {
            core_->fatal("problems at the end of a world whose finish() was not called");
        }
    }
    core_->drop_everything();
    the_core = nullptr;
    the_world = nullptr;
}

world &world::current() {
    current_core();
    return *the_world;
}

bool world::exists() {
    return the_core != nullptr;
}

uint64_t world::now_ms() const {
    return core_->threads.now_ms();
}

void world::run_for(uint64_t milliseconds) {
    scheduler &threads = core_->threads;
    threads.test_acts();
    const uint64_t target = threads.now_ms() + milliseconds;
    threads.wait({.what = "time to pass", .deadline = &target, .after_all_others = true},
                 [&] { return threads.now_ms() >= target; });
}

bool world::run_until(const std::function<bool()> &condition, uint64_t limit_ms) {
    scheduler &threads = core_->threads;
    threads.test_acts();
    const uint64_t target = threads.now_ms() + limit_ms;
    const wake woken = threads.wait(
        {.what = "a condition of the test", .deadline = &target, .always_ask = true}, condition);
    return woken == wake::ready;
}

void world::run_until_idle() {
    run_for(0);
}

uint32_t world::posix_s() const {
    return static_cast<uint32_t>(core_->posix_offset_s +
                                 static_cast<int64_t>(core_->threads.now_ms() / 1000));
}

void world::jump_posix(int64_t seconds) {
    core_->posix_offset_s += seconds;
    core_->threads.test_acts();
}

bool world::run_until_listening(uint16_t port, uint64_t limit_ms) {
    return run_until([&] { return listens(port); }, limit_ms);
}

datagram_link &world::datagrams() {
    return core_->net.datagrams;
}

fault_id world::fail(std::string_view operation, trigger when, failure how) {
    return core_->add_fault(operation_named(operation), when, std::move(how));
}

void world::clear(fault_id fault) {
    auto &cleared = core_->records.faults.at(fault);
    core_->records.active_faults -= cleared.active ? 1 : 0;
    cleared.active = false;
}

void world::clear_faults() {
    for (fault_id each = 0; each < core_->records.faults.size(); ++each) {
        clear(each);
    }
}

uint64_t world::strikes(fault_id fault) const {
    return core_->records.faults.at(fault).strikes;
}

uint64_t world::calls(std::string_view operation) const {
    return core_->records.counts[static_cast<size_t>(operation_named(operation))];
}

logbook &world::log() {
    return core_->log;
}

resources world::in_use() const {
    resources used;
    used.memory_blocks = core_->heap.blocks.size();
    used.memory_bytes = core_->heap.bytes;
    for (const auto &socket : core_->net.sockets) {
        used.sockets += socket != nullptr ? 1 : 0;
    }
    for (const auto &each : core_->threads.threads()) {
        used.threads += each->has_handle ? 1 : 0;
    }
    used.timers = core_->timers.timers.size();
    for (const kelo_mutex &mutex : core_->mutexes) {
        used.mutexes += mutex.released ? 0 : 1;
        used.held_mutexes += mutex.holder != nullptr ? 1 : 0;
    }
    used.registrations = core_->bus.callbacks.size();
    used.message_blocks = core_->bus.blocks.size();
    used.files = core_->files.open.size();
    return used;
}

void world::problem(std::string text) {
    core_->problem(std::move(text));
}

const std::vector<std::string> &world::finish() {
    if (!core_->finished) {
        run_until_idle();
        core_->end_services();
        core_->check_leftovers();
        core_->finished = true;
    }
    return core_->problems;
}

uint64_t world::seed() const {
    return core_->chosen.seed;
}

uint64_t world::steps() const {
    return core_->threads.steps();
}

std::string world::trace_text() const {
    return core_->records.trace;
}

core &core_of(world &of) {
    return *of.core_;
}

std::unique_ptr<world> make_world(options with, std::unique_ptr<chooser> decides) {
    return std::unique_ptr<world>(new world(std::move(with), std::move(decides)));
}

} // namespace sim
