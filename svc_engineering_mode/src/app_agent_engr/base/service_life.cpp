/* State changes, the list of uses, and how a stop is completed by the last use. */
#include "service_life.h"

#include "platform/clock.h"
#include "platform/owners.h"

namespace {

using platform::held_critical_section;

/** Interval for polling a condition that another thread brings about. */
constexpr uint32_t poll_ms = 1;

} // namespace

transition service_life::begin(life_state from, life_state to) {
    while (true) {
        const bool is_inside = is_used(true);
        {
            const held_critical_section hold;
            const life_state found = state_;
            if (found == from) {
                state_ = to;
                return transition::claimed;
            }
            if (found == life_state::stopped || found == life_state::started) {
                return transition::needless;
            }
            if (found == life_state::stopping && is_inside) {
                return transition::from_within;
            }
        }
        kelo_hal_system_delay(poll_ms);
    }
}

void service_life::end_start(bool succeeded) {
    state_ = succeeded ? life_state::started : life_state::stopped;
}

void service_life::wait_for_start(thrd_handle_t thread) const {
    while (state_ == life_state::starting && GetThrdSta(thread) == THRD_STATE_RUNNING) {
        kelo_hal_system_delay(poll_ms);
    }
}

void service_life::end_stop() {
    wait_for_others();
    state_ = life_state::stopped;
}

void service_life::end_stop(void (*release)()) {
    wait_for_others();
    {
        const held_critical_section hold;
        if (uses_ != nullptr) {
            release_ = release;
            return;
        }
    }
    release();
    state_ = life_state::stopped;
}

void service_life::wait_for_others() const {
    while (is_used(false)) {
        kelo_hal_system_delay(poll_ms);
    }
}

bool service_life::is_used(bool by_caller) const {
    const uint64_t self = GetThrdSelfId();
    const held_critical_section hold;
    for (const service_use *use = uses_; use != nullptr; use = use->next_) {
        if ((use->thread_id_ == self) == by_caller) {
            return true;
        }
    }
    return false;
}

service_use::service_use(service_life &life, user who) : life_(life), thread_id_(GetThrdSelfId()) {
    const held_critical_section hold;
    const life_state found = life.state_;
    entered_ =
        found == life_state::started || (who == user::worker && found != life_state::stopped);
    if (entered_) {
        next_ = life.uses_;
        life.uses_ = this;
    }
}

service_use::~service_use() {
    if (!entered_) {
        return;
    }
    void (*release)() = nullptr;
    {
        const held_critical_section hold;
        service_use **link = &life_.uses_;
        while (*link != this) {
            link = &(*link)->next_;
        }
        *link = next_;
        if (life_.uses_ == nullptr) {
            release = life_.release_;
            life_.release_ = nullptr;
        }
    }
    if (release != nullptr) {
        release();
        life_.state_ = life_state::stopped;
    }
}
