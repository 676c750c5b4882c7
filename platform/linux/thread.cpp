/* Threads over pthreads. Priorities are left to the system. */
#include "thread_state.h"

#include <link.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <new>

namespace {

/** Stack for the port's and the C library's own calls, in addition to the requested size. */
constexpr size_t stack_reserve_bytes = 256 * 1024;

thread_local kelo_thread *current_thread = nullptr;

void release(kelo_thread *thread) {
    close(thread->stop_event);
    delete thread;
}

void *run(void *argument) {
    auto *thread = static_cast<kelo_thread *>(argument);
    current_thread = thread;
    pthread_setname_np(pthread_self(), thread->name);
    if (thread->enter != nullptr) {
        thread->enter();
    }
    thread->entry(thread->argument);
    if (thread->leave != nullptr) {
        thread->leave();
    }
    current_thread = nullptr;
    if (thread->released_by_itself) {
        release(thread);
    }
    return nullptr;
}

/** Bytes of thread-local variables of the program and its libraries: the C library places them on
 * each stack. */
size_t thread_local_bytes() {
    size_t bytes = 0;
    dl_iterate_phdr(
        [](dl_phdr_info *module, size_t, void *sum) {
            for (size_t i = 0; i < module->dlpi_phnum; ++i) {
                const auto &segment = module->dlpi_phdr[i];
                *static_cast<size_t *>(sum) += segment.p_type == PT_TLS ? segment.p_memsz : 0;
            }
            return 0;
        },
        &bytes);
    return bytes;
}

/** Starts the thread of a complete record; 0 or an errno value. */
int start(kelo_thread *thread, uint32_t stack_size) {
    const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    const size_t wanted = stack_size + stack_reserve_bytes + thread_local_bytes();
    pthread_attr_t attributes;
    int error = pthread_attr_init(&attributes);
    if (error != 0) {
        return error;
    }
    error = pthread_attr_setstacksize(&attributes, (wanted + page - 1) / page * page);
    if (error == 0) {
        error = pthread_create(&thread->system, &attributes, run, thread);
    }
    pthread_attr_destroy(&attributes);
    return error;
}

/** Marks a thread as told to stop and ends what it waits in. */
void tell_to_stop(kelo_thread *thread) {
    thread->state = THRD_STATE_STOPPING;
    const uint64_t one = 1;
    // The event is never read, so its counter cannot overflow and the write cannot fail.
    [[maybe_unused]] const ssize_t written = write(thread->stop_event, &one, sizeof one);
}

} // namespace

int linux_port::stop_event() {
    return current_thread != nullptr ? current_thread->stop_event : -1;
}

bool linux_port::told_to_stop() {
    return current_thread != nullptr && current_thread->state == THRD_STATE_STOPPING;
}

int32_t CreateAndStart(thrd_handle_t *handle, thrd_hook_t enter, thrd_hook_t leave,
                       thrd_entry_t entry, void *argument, const thrd_param_t *param) {
    if (handle == nullptr) {
        return -EINVAL;
    }
    *handle = nullptr;
    if (entry == nullptr || param == nullptr) {
        return -EINVAL;
    }
    auto *thread = new (std::nothrow) kelo_thread{};
    if (thread == nullptr) {
        return -ENOMEM;
    }
    thread->enter = enter;
    thread->leave = leave;
    thread->entry = entry;
    thread->argument = argument;
    if (param->name != nullptr) {
        strncpy(thread->name, param->name, sizeof thread->name - 1);
    }
    thread->stop_event = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (thread->stop_event < 0) {
        const int error = errno;
        delete thread;
        return -error;
    }
    *handle = thread; // before the thread starts: it may use the handle at once
    const int error = start(thread, param->stack_size);
    if (error != 0) {
        *handle = nullptr;
        release(thread);
    }
    return -error;
}

int32_t GetThrdSta(thrd_handle_t handle) {
    return handle != nullptr ? handle->state.load() : THRD_STATE_STOPPING;
}

int32_t DeleteThrdHandle(thrd_handle_t handle) {
    if (handle == nullptr) {
        return 0;
    }
    tell_to_stop(handle);
    if (handle == current_thread) {
        handle->released_by_itself = true;
        return -pthread_detach(pthread_self());
    }
    const int error = pthread_join(handle->system, nullptr);
    release(handle);
    return -error;
}

uint64_t GetThrdSelfId() {
    return pthread_self();
}
