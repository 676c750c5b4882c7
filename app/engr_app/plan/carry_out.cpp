// Doing the steps of a plan with one gateway, and looking what came of them.
#include "base/json_text.h"
#include "plan/pending_step.h"

#include <algorithm>
#include <array>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace engr_app {
namespace {

using nlohmann::json;

// After these the gateway can still be talked to.
bool concerns_one_step(const failure &problem) {
    constexpr std::array<std::string_view, 5> kinds{"refused_by_gateway", "not_accepted",
                                                    "wrong_product", "not_joined", "not_confirmed"};
    return std::ranges::count(kinds, problem.kind()) > 0;
}

} // namespace

void gateway_work::stop(const failure &why) {
    outcome_.problem = why;
    for (plan_step &step : outcome_.steps) {
        step.state = step.state == step_state::to_do ? step_state::not_tried : step.state;
    }
}

void gateway_work::carry_out(pending &pending_step) {
    plan_step &step = outcome_.steps[pending_step.index];
    try {
        if (step.irreversible && !context_.confirmed) {
            throw failure("not_confirmed", step.words + ": can't be undone, so it needs --yes");
        }
        step.check = pending_step.work();
        step.state = step_state::done;
        step.words = pending_step.done_words;
    } catch (const failure &problem) {
        step.state = step_state::failed;
        step.words = problem.what();
        if (!concerns_one_step(problem)) {
            stop(problem);
        }
    }
}

void gateway_work::carry_out_all(bool last) {
    for (pending &one : pending_) {
        if (one.last != last || outcome_.steps[one.index].state != step_state::to_do) {
            continue;
        }
        if (context_.interrupted) {
            return stop(failure("cancelled", "interrupted; apply the plan again to go on"));
        }
        carry_out(one);
        if (outcome_.problem) {
            return;
        }
    }
}

void gateway_work::verify() {
    const bool checked = std::ranges::all_of(outcome_.steps, [](const plan_step &step) {
        return step.state != step_state::done || step.check == step_check::reading;
    });
    if (checked || outcome_.problem) {
        return;
    }
    read_site();
    for (const pending &one : pending_) {
        plan_step &step = outcome_.steps[one.index];
        if (one.change.empty() || step.state != step_state::done) {
            continue;
        }
        const std::vector<std::string> left = changed_devices(one.change.c_str());
        const bool differs =
            one.any_device ? !left.empty() : has_change(one.change.c_str(), one.device);
        step.check = step_check::reading;
        if (differs) {
            step.state = step_state::failed;
            step.words = fmt::format(
                "the gateway took it, but still has: {}",
                change_words(one.change.c_str(), one.any_device ? left.front() : one.device));
        }
    }
}

void gateway_work::apply() {
    try {
        carry_out_all(false);
        verify();
        list_device_firmware();
        carry_out_all(false);
        verify();
    } catch (const failure &problem) {
        return stop(problem);
    }
    if (outcome_.problem) {
        return;
    }
    if (outcome_.count(step_state::failed) == 0) {
        return carry_out_all(true);
    }
    for (const pending &one : pending_) {
        plan_step &step = outcome_.steps[one.index];
        if (one.last && step.state == step_state::to_do) {
            step.state = step_state::not_tried;
        }
    }
}

} // namespace engr_app
