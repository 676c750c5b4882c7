/* The thread of the timers and that of the message bus. */
#include "callback_context.h"

#include <utility>

namespace linux_port {

namespace {

/** For callbacks that send and log; the port does not know what they need. */
constexpr uint32_t stack_bytes = 256 * 1024;

} // namespace

callback_context::callback_context(const char *name, void (*loop)(std::unique_lock<std::mutex> &))
    : name_(name), loop_(loop) {}

void callback_context::thread_entry(void *argument) {
    auto *context = static_cast<callback_context *>(argument);
    auto lock = context->lock();
    context->thread_id_ = GetThrdSelfId();
    context->loop_(lock);
    context->thread_id_ = 0;
}

int32_t callback_context::start(std::unique_lock<std::mutex> &) {
    if (thread_ != nullptr) {
        return 0;
    }
    stopping_ = false;
    const thrd_param_t param{stack_bytes, 0, name_};
    return CreateAndStart(&thread_, nullptr, nullptr, thread_entry, this, &param);
}

void callback_context::stop(std::unique_lock<std::mutex> &lock) {
    stopping_ = true;
    changed_.notify_all();
    const thrd_handle_t ended = std::exchange(thread_, nullptr);
    lock.unlock();
    DeleteThrdHandle(ended);
    lock.lock();
}

void callback_context::wait_for_callback(std::unique_lock<std::mutex> &lock, uint16_t id) {
    if (running_id_ != id || thread_id_ == GetThrdSelfId()) {
        return;
    }
    ended_.wait(lock, [this, before = runs_] { return runs_ != before; });
}

} // namespace linux_port
