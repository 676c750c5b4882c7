/* The list of uses, the state of the agent, and the hand-over of a stop to the last use. */
#include "agent_use.h"

#include "platform/clock.h"
#include "platform/thread.h"
#include "short_lock.h"

#include <atomic>

namespace {

/** Pause between two looks at a condition that another thread will bring about. */
constexpr uint32_t poll_ms = 1;

std::atomic_flag gate = ATOMIC_FLAG_INIT;
std::atomic<agent_state> state{agent_state::stopped};
agent_use *uses = nullptr;           // guarded by the gate
void (*pending_release)() = nullptr; // guarded by the gate

} // namespace

/** Access to the links of the uses; all calls with the gate held. */
struct use_list {
    static void add(agent_use &use) {
        use.next_ = uses;
        uses = &use;
    }
    static void remove(const agent_use &use) {
        agent_use **link = &uses;
        while (*link != &use) {
            link = &(*link)->next_;
        }
        *link = use.next_;
    }
    static bool any(bool of_this_thread, uint64_t thread_id) {
        for (const agent_use *use = uses; use != nullptr; use = use->next_) {
            if ((use->thread_id_ == thread_id) == of_this_thread) {
                return true;
            }
        }
        return false;
    }
};

namespace {

bool caller_is_inside() {
    const uint64_t self = GetThrdSelfId();
    const short_lock hold(gate);
    return use_list::any(true, self);
}

bool others_are_inside() {
    const uint64_t self = GetThrdSelfId();
    const short_lock hold(gate);
    return use_list::any(false, self);
}

/** Moves from one resting state into a transition; waits for transitions of others. */
transition begin(agent_state from, agent_state to) {
    while (true) {
        agent_state seen = from;
        if (state.compare_exchange_strong(seen, to)) {
            return transition::claimed;
        }
        if (seen == agent_state::stopped || seen == agent_state::started) {
            return transition::needless;
        }
        if (caller_is_inside()) {
            return transition::from_within;
        }
        kelo_hal_system_sleep(poll_ms);
    }
}

} // namespace

transition agent_begin_start() {
    return begin(agent_state::stopped, agent_state::starting);
}

void agent_end_start(bool succeeded) {
    state.store(succeeded ? agent_state::started : agent_state::stopped);
}

transition agent_begin_stop() {
    return begin(agent_state::started, agent_state::stopping);
}

void agent_end_stop(void (*release)()) {
    while (others_are_inside()) {
        kelo_hal_system_sleep(poll_ms);
    }
    {
        const short_lock hold(gate);
        if (uses != nullptr) {
            pending_release = release;
            return;
        }
    }
    release();
    state.store(agent_state::stopped);
}

agent_state agent_current_state() {
    return state.load();
}

agent_use::agent_use(user who) : thread_id_(GetThrdSelfId()) {
    const short_lock hold(gate);
    const agent_state now = state.load();
    entered_ = now == agent_state::started || (who == user::worker && now == agent_state::starting);
    if (entered_) {
        use_list::add(*this);
    }
}

agent_use::~agent_use() {
    if (!entered_) {
        return;
    }
    void (*release)() = nullptr;
    {
        const short_lock hold(gate);
        use_list::remove(*this);
        if (uses == nullptr && pending_release != nullptr) {
            release = pending_release;
            pending_release = nullptr;
        }
    }
    if (release != nullptr) {
        release();
        state.store(agent_state::stopped);
    }
}
