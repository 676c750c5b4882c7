/* The scheduler: at each point the chooser takes one of the threads that can run. */
#include "scheduler.h"

#include "core.h"

#include <algorithm>
#include <cerrno>

namespace sim {

scheduler::scheduler(core &owner, std::unique_ptr<chooser> decides)
    : owner_(owner), chooser_(std::move(decides)) {
    auto main_thread = std::make_unique<thread>();
    main_thread->number = 1;
    main_thread->name = "main";
    main_thread->context = std::make_unique<fiber>();
    current_ = main_thread.get();
    live_.push_back(current_);
    threads_.push_back(std::move(main_thread));
}

bool scheduler::can_run(thread &candidate) {
    const wait_state *wait = candidate.waiting;
    if (wait == nullptr) {
        return true;
    }
    if ((wait->deadline != nullptr && *wait->deadline <= now_ms_) ||
        (wait->stoppable && candidate.told_to_stop)) {
        return true;
    }
    if (candidate.checked_change == changes_ && !wait->always_ask) {
        return false;
    }
    if (wait->ready(wait->condition)) {
        return true;
    }
    candidate.checked_change = changes_;
    return false;
}

void scheduler::collect(bool yields) {
    run_due_actions();
    candidates_.clear();
    thread *patient = nullptr; // runs only when no other thread can
    if (!yields && current_->waiting == nullptr && !current_->ended) {
        candidates_.push_back(current_);
    }
    for (thread *candidate : live_) {
        if (candidate == current_ && current_->waiting == nullptr) {
            continue;
        }
        if (candidates_.size() < candidates_max && can_run(*candidate)) {
            if (candidate->waiting != nullptr && candidate->waiting->after_all_others) {
                patient = candidate;
            } else {
                candidates_.push_back(candidate);
            }
        }
    }
    if (yields) {
        candidates_.push_back(current_);
    }
    if (candidates_.empty() && patient != nullptr) {
        candidates_.push_back(patient);
    }
}

void scheduler::decide(bool preempted) {
    size_t chosen = 0;
    if (candidates_.size() > 1) {
        chosen = chooser_->choose(candidates_.size(), preempted);
        decisions_ += decision_digit(chosen);
    }
    thread *next = candidates_[chosen];
    if (next != current_) {
        go_on_with(*next);
    }
}

void scheduler::go_on_with(thread &next) {
    thread &leaving = *current_;
    leaving.saved_errno = errno;
    current_ = &next;
    leaving.context->switch_to(*next.context);
    errno = leaving.saved_errno;
    if (dead_ != nullptr) {
        dead_->context->release_stack();
        dead_ = nullptr;
    }
}

void scheduler::count_step() {
    ++steps_;
    if (steps_ - steps_at_progress_ > owner_.chosen.steps_without_time_max) {
        steps_at_progress_ = steps_;
        owner_.fatal("livelock: " + std::to_string(owner_.chosen.steps_without_time_max) +
                     " steps without time moving");
    }
}

void scheduler::point(bool yields) {
    count_step();
    if (live_.size() == 1 && actions_.empty()) {
        return;
    }
    collect(yields);
    decide(!yields);
}

wake scheduler::block(wait_state &wait) {
    thread &waiter = *current_;
    if (critical_section_holder == &waiter) {
        owner_.fatal(std::string("the critical section is held in a wait for ") + wait.what);
    }
    if (!wait.after_all_others && wait.ready(wait.condition)) {
        return wake::ready;
    }
    wait.since_ms = now_ms_;
    waiter.waiting = &wait;
    waiter.checked_change = changes_ - 1;
    if (wait.blocker != nullptr) {
        look_for_circle(wait);
    }
    count_step();
    for (collect(false); candidates_.empty(); collect(false)) {
        advance();
    }
    decide(false);
    waiter.waiting = nullptr;
    if (wait.ready(wait.condition)) {
        return wake::ready;
    }
    return wait.stoppable && waiter.told_to_stop ? wake::stopped : wake::timed_out;
}

void scheduler::advance() {
    uint64_t next = actions_.empty() ? never : actions_.begin()->first;
    for (const thread *sleeper : live_) {
        if (sleeper->waiting != nullptr && sleeper->waiting->deadline != nullptr) {
            next = std::min(next, *sleeper->waiting->deadline);
        }
    }
    if (next == never) {
        owner_.fatal("deadlock: nobody can go on and nothing is due");
    }
    now_ms_ = std::max(now_ms_, next);
    steps_at_progress_ = steps_;
    changed();
    look_for_hang();
}

void scheduler::run_due_actions() {
    while (!actions_.empty() && actions_.begin()->first <= now_ms_) {
        const auto due = actions_.extract(actions_.begin());
        due.mapped()();
        changed();
    }
}

void scheduler::at(uint64_t time_ms, std::function<void()> action) {
    actions_.emplace(time_ms, std::move(action));
}

void scheduler::look_for_circle(const wait_state &wait) {
    const thread *next = (*wait.blocker)();
    for (size_t hops = 0; next != nullptr && hops <= live_.size(); ++hops) {
        if (next == current_) {
            owner_.fatal("deadlock: threads wait for each other");
        }
        const wait_state *its = next->waiting;
        const bool stuck = its != nullptr && its->blocker != nullptr && !its->ready(its->condition);
        next = stuck ? (*its->blocker)() : nullptr;
    }
}

void scheduler::look_for_hang() {
    for (const thread *sleeper : live_) {
        const wait_state *wait = sleeper->waiting;
        if (wait != nullptr && wait->bounded &&
            now_ms_ - wait->since_ms > owner_.chosen.untimed_wait_ms_max) {
            owner_.fatal("hang: " + sleeper->name + " waits for " + wait->what + " since " +
                         std::to_string(wait->since_ms) + " ms");
        }
    }
}

thread &scheduler::start(std::string name, std::function<void()> body, size_t stack_bytes) {
    auto added = std::make_unique<thread>();
    thread *started = added.get();
    started->number = static_cast<uint32_t>(threads_.size() + 1);
    started->name = std::move(name);
    started->body = std::move(body);
    started->context = std::make_unique<fiber>(
        [](void *argument) {
            auto *self = static_cast<thread *>(argument);
            current_core().threads.run_body(*self);
        },
        started, stack_bytes);
    live_.push_back(started);
    threads_.push_back(std::move(added));
    changed();
    return *started;
}

void scheduler::run_body(thread &started) {
    if (dead_ != nullptr) {
        dead_->context->release_stack();
        dead_ = nullptr;
    }
    errno = 0;
    started.body();
    started.body = nullptr;
    end_current();
}

void scheduler::end_current() {
    thread &ending = *current_;
    if (critical_section_holder == &ending) {
        owner_.fatal("the critical section is held at the end of its thread");
    }
    ending.ended = true;
    ending.released = ending.released || ending.deletes_itself;
    live_.erase(std::find(live_.begin(), live_.end(), &ending));
    changed();
    for (collect(false); candidates_.empty(); collect(false)) {
        advance();
    }
    size_t chosen = 0;
    if (candidates_.size() > 1) {
        chosen = chooser_->choose(candidates_.size(), false);
        decisions_ += decision_digit(chosen);
    }
    current_ = candidates_[chosen];
    dead_ = &ending;
    ending.context->end_with(*current_->context);
}

void scheduler::abandon(fiber &outside) {
    current_->context->end_with(outside);
}

std::string scheduler::describe() const {
    std::string text;
    for (const auto &each : threads_) {
        if (each->ended) {
            continue;
        }
        text += "  " + each->name;
        if (each->told_to_stop) {
            text += ", told to stop,";
        }
        if (each->waiting == nullptr) {
            text += each.get() == current_ ? " runs\n" : " could go on\n";
            continue;
        }
        text += std::string(" waits for ") + each->waiting->what;
        if (each->waiting->detail != 0) {
            text += ' ' + std::to_string(each->waiting->detail);
        }
        const thread *blocker =
            each->waiting->blocker != nullptr ? (*each->waiting->blocker)() : nullptr;
        text += blocker != nullptr ? " (" + blocker->name + ")" : "";
        if (each->waiting->deadline != nullptr && *each->waiting->deadline != never) {
            text += " until " + std::to_string(*each->waiting->deadline) + " ms";
        }
        text += " since " + std::to_string(each->waiting->since_ms) + " ms\n";
    }
    return text;
}

} // namespace sim
