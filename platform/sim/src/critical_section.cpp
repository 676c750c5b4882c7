/*
 * The critical section; misuse ends the story, since the guarded state can't be trusted any more.
 */
#include "core.h"

#include "platform/critical_section.h"

void kelo_hal_critical_section_enter(void) {
    sim::call call(sim::operation::kelo_hal_critical_section_enter);
    sim::core &core = sim::current_core();
    sim::thread *&holder = core.threads.critical_section_holder;
    if (holder == &core.threads.self()) {
        core.fatal("the critical section is entered by the thread that holds it");
    }
    const std::function<sim::thread *()> blocker = [&holder] { return holder; };
    core.threads.wait({.what = "the critical section", .bounded = true, .blocker = &blocker},
                      [&holder] { return holder == nullptr; });
    holder = &core.threads.self();
    call.end(0);
}

void kelo_hal_critical_section_leave(void) {
    sim::call call(sim::operation::kelo_hal_critical_section_leave);
    sim::core &core = sim::current_core();
    sim::thread *&holder = core.threads.critical_section_holder;
    if (holder != &core.threads.self()) {
        core.fatal("the critical section is left by a thread that does not hold it");
    }
    holder = nullptr;
    core.threads.changed();
    call.end(0);
}
