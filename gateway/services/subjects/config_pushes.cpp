#include "subjects/config_pushes.h"

#include "calls/activity.h"
#include "platform/owners.h"
#include "platform/timer.h"
#include "store/records.h"

#include <fmt/format.h>
#include <sys/stat.h>

#include <ctime>
#include <optional>
#include <string>
#include <utility>

namespace gateway {
namespace {

/** The agent writes what it has received already, so that this is long. */
constexpr uint32_t writing_ms = 300;

/** What changes when a file is written. */
struct file_mark {
    ino_t number = 0;
    off_t size = 0;
    int64_t seconds = 0;
    int64_t nanoseconds = 0;
    bool operator==(const file_mark &) const = default;
};

kelo_mutex_t push_mutex; // guards what follows
uint16_t push_timer;     // 0: none was needed yet
std::string pushing_app;
std::string pushed_name;
std::optional<file_mark> mark_before; // while a push is expected

file_mark mark_of(const std::string &name) {
    struct stat file {};
    if (stat(name.c_str(), &file) != 0) {
        return {};
    }
    return {file.st_ino, file.st_size, file.st_mtim.tv_sec, file.st_mtim.tv_nsec};
}

/** Tells the push that was expected, if it came. */
void end_expectation() {
    const file_mark now = mark_of(pushed_name);
    if (mark_before && now != *mark_before && now != file_mark{}) {
        tell_event(fmt::format("{} pushed {}, {} bytes", pushing_app, pushed_name, now.size));
    }
    mark_before.reset();
}

void on_push_timer(uint16_t, void *) {
    const platform::held_mutex guard(push_mutex);
    end_expectation();
}

} // namespace

void config_pushes_init() {
    make_mutex(push_mutex);
}

void config_pushes_shutdown() {
    if (const uint16_t timer = std::exchange(push_timer, uint16_t{0}); timer != 0) {
        sys_delete_timer(timer);
    }
    mark_before.reset();
    kelo_hal_mutex_release(std::exchange(push_mutex, nullptr));
}

void expect_config_push(const char *name) {
    const platform::held_mutex guard(push_mutex);
    if (push_timer == 0 && sys_add_timer(on_push_timer, nullptr, &push_timer) != 0) {
        push_timer = 0;
        return;
    }
    end_expectation(); // of the request before
    pushing_app = asking_app();
    pushed_name = name;
    mark_before = mark_of(pushed_name);
    static_cast<void>(sys_start_timer(push_timer, writing_ms, SYS_TIMER_ONE_SHOT));
}

} // namespace gateway
