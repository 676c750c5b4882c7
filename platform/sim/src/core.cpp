/* Problems, faults, and the end of a world. */
#include "core.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include <unistd.h>

namespace sim {

namespace {
/** Independent random streams from the seed, one for each part of a world. */
constexpr uint64_t fault_stream = 0xFA17;
constexpr uint64_t network_stream = 0x0E7;
} // namespace

core::core(options with, std::unique_ptr<chooser> decides)
    : chosen(std::move(with)), fault_chance(chosen.seed ^ (fault_stream << 48)),
      threads(*this, std::move(decides)), net(*this, chosen.seed ^ (network_stream << 48)),
      posix_offset_s(chosen.posix_s) {}

void core::problem(std::string text) {
    problems.push_back("at " + std::to_string(threads.now_ms()) + " ms, thread " +
                       threads.self().name + ": " + std::move(text));
}

void core::fatal(std::string text) {
    problem(std::move(text) + "\n" + threads.describe());
    if (outside != nullptr) {
        threads.abandon(*outside);
    }
    std::fprintf(stderr, "sim: a world cannot go on (seed %llu; ENGR_SIM_SEED sets it)\n",
                 static_cast<unsigned long long>(chosen.seed));
    for (const std::string &each : problems) {
        std::fprintf(stderr, "%s\n", each.c_str());
    }
    std::fprintf(stderr, "last lines of the log:\n%s%s", log.text(40).c_str(),
                 records.trace.c_str());
    std::abort();
}

namespace {

/** Whether the contract lets an operation fail. */
bool can_fail(operation target) {
    return target != operation::kelo_hal_mutex_lock && target != operation::kelo_hal_mutex_unlock &&
           target != operation::kelo_hal_system_delay && target != operation::engr_file_close &&
           target != operation::kelo_hal_critical_section_enter &&
           target != operation::kelo_hal_critical_section_leave;
}

} // namespace

fault_id core::add_fault(operation target, trigger when, failure how) {
    if (!can_fail(target)) {
        fatal(std::string(operations[static_cast<size_t>(target)].name) + " never fails");
    }
    records.faults.push_back({.target = target, .when = when, .how = std::move(how)});
    ++records.active_faults;
    return records.faults.size() - 1;
}

void core::end_services() {
    closing = true;
    threads.changed();
    for (const thread *service : {timers.context, bus.context}) {
        if (service == nullptr || service->ended) {
            continue;
        }
        const bool in_callback = service == timers.context ? timers.running_id != 0
                                                           : bus.running_id != CMMOD_NO_MESSAGE_ID;
        if (in_callback) {
            problem("a callback on the " + service->name + " context has not returned\n" +
                    threads.describe());
            continue;
        }
        threads.wait({.what = "the end of a context"}, [service] { return service->ended; });
    }
}

void core::check_heap_leftovers() {
    std::vector<const heap_record *> left;
    for (const auto &[block, record] : heap.blocks) {
        left.push_back(&record);
    }
    std::sort(left.begin(), left.end(), [](const heap_record *one, const heap_record *other) {
        return one->number < other->number;
    });
    for (const heap_record *record : left) {
        problem("left over: " + std::to_string(record->size) + " bytes of memory from call " +
                std::to_string(record->number) + " of Malloc, by " + record->maker + " at " +
                std::to_string(record->time_ms) + " ms");
    }
}

void core::check_leftovers() {
    for (const auto &each : threads.threads()) {
        if (each->has_handle) {
            problem("left over: thread " + each->name +
                    (each->ended ? ", ended but not deleted" : ", still running"));
        } else if (!each->ended && !each->is_service && each.get() != &threads.main()) {
            problem("left over: thread " + each->name + ", still running");
        }
    }
    check_heap_leftovers();
    for (const auto &socket : net.sockets) {
        if (socket != nullptr) {
            problem("left over: " + std::string(socket->is_tcp ? "TCP" : "UDP") + " socket " +
                    std::to_string(socket->number) + " of port " + std::to_string(socket->port));
        }
    }
    for (const auto &[id, timer] : timers.timers) {
        problem("left over: timer " + std::to_string(id) + " of " + timer.maker);
    }
    for (const kelo_mutex &mutex : mutexes) {
        if (!mutex.released) {
            problem("left over: mutex " + std::to_string(mutex.number) +
                    (mutex.holder != nullptr ? ", held by " + mutex.holder->name : ""));
        }
    }
    for (const auto &[id, callback] : bus.callbacks) {
        problem("left over: bus registration " + std::to_string(id));
    }
    for (const auto &message : bus.blocks) {
        problem("left over: message block of " + std::to_string(message->shown.length) +
                " bytes, id " + std::to_string(message->message_id));
    }
    for (const auto &[handle, file] : files.open) {
        problem("left over: open file " + file.path);
    }
    for (const fault &each : records.faults) {
        if (each.active && each.strikes == 0 && !each.may_stay_unreached) {
            problem("a fault of " + std::string(operations[static_cast<size_t>(each.target)].name) +
                    " never struck (" + std::to_string(each.met) + " calls since it was set)");
        }
    }
}

void core::drop_everything() {
    for (const auto &[block, record] : heap.blocks) {
        std::free(block);
    }
    heap.blocks.clear();
    for (const auto &[handle, file] : files.open) {
        close(file.descriptor);
    }
    files.open.clear();
}

} // namespace sim
