/* Threads of the contract and of tests. */
#include "core.h"

#include "platform/thread.h"

int32_t CreateAndStart(thrd_handle_t *handle, thrd_hook_t enter, thrd_hook_t leave,
                       thrd_entry_t entry, void *argument, const thrd_param_t *param) {
    sim::call call(sim::operation::CreateAndStart,
                   {param != nullptr ? int64_t{param->stack_size} : 0,
                    param != nullptr ? int64_t{param->priority} : 0});
    *handle = nullptr;
    if (call.fails()) {
        return call.failed();
    }
    if (entry == nullptr || param == nullptr) {
        return call.done(-1);
    }
    const char *name = param->name != nullptr ? param->name : "";
    call.note(name);
    sim::thread &started = sim::current_core().threads.start(
        name,
        [=] {
            if (enter != nullptr) {
                enter();
            }
            entry(argument);
            if (leave != nullptr) {
                leave();
            }
        },
        param->stack_size);
    started.has_handle = true;
    *handle = &started;
    return call.done(0);
}

namespace {

int64_t number_of(thrd_handle_t handle) {
    return handle == nullptr ? 0 : handle->number;
}

/** Reports the use of a released handle. */
bool is_stale(sim::core &core, thrd_handle_t handle, const char *function) {
    if (handle->released) {
        core.problem(std::string(function) + " with the handle of thread " + handle->name +
                     ", which was released");
    }
    return handle->released;
}

} // namespace

int32_t GetThrdSta(thrd_handle_t handle) {
    sim::call call(sim::operation::GetThrdSta, {number_of(handle)});
    if (call.fails()) {
        return call.failed();
    }
    if (handle == nullptr || is_stale(sim::current_core(), handle, "GetThrdSta")) {
        return call.done(THRD_STATE_STOPPING);
    }
    return call.done(handle->told_to_stop || handle->ended ? THRD_STATE_STOPPING
                                                           : THRD_STATE_RUNNING);
}

int32_t DeleteThrdHandle(thrd_handle_t handle) {
    sim::call call(sim::operation::DeleteThrdHandle, {number_of(handle)});
    if (call.fails()) {
        return call.failed();
    }
    if (handle == nullptr) {
        return call.done(0);
    }
    sim::core &core = sim::current_core();
    if (is_stale(core, handle, "DeleteThrdHandle")) {
        return call.done(-1);
    }
    if (!handle->has_handle) {
        core.problem("DeleteThrdHandle of thread " + handle->name + " for the second time");
        return call.done(-1);
    }
    handle->has_handle = false;
    handle->told_to_stop = true;
    core.threads.changed();
    if (handle == &core.threads.self()) {
        handle->deletes_itself = true;
        return call.done(0);
    }
    const std::function<sim::thread *()> stopped = [handle] { return handle; };
    core.threads.wait({.what = "the end of thread",
                       .detail = handle->number,
                       .bounded = true,
                       .blocker = &stopped},
                      [handle] { return handle->ended; });
    handle->released = true;
    return call.done(0);
}

uint64_t GetThrdSelfId(void) {
    sim::call call(sim::operation::GetThrdSelfId);
    const uint32_t number = sim::current_core().threads.self().number;
    call.end(number);
    return number;
}

namespace sim {

void test_thread::join() {
    thread *joined = started_;
    if (joined == nullptr || joined->ended) {
        return;
    }
    core &core = current_core();
    core.threads.test_acts();
    const std::function<thread *()> blocker = [joined] { return joined; };
    core.threads.wait({.what = "the end of thread",
                       .detail = joined->number,
                       .bounded = true,
                       .blocker = &blocker},
                      [joined] { return joined->ended; });
}

bool test_thread::ended() const {
    return started_->ended;
}

test_thread world::spawn(std::string name, std::function<void()> function) {
    thread &started = core_->threads.start(std::move(name), std::move(function));
    core_->threads.point();
    return test_thread(started);
}

} // namespace sim
