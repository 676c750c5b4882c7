#include "plan/run.h"

#include "files/output_file.h"
#include "gateway/session.h"
#include "lan_client/crypto.h"
#include "lan_client/event_loop.h"
#include "support/input_error.h"

#include <algorithm>
#include <map>
#include <set>
#include <thread>
#include <utility>

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <unistd.h>

namespace engr_app {
namespace {

// With more gateways, bars of each would hide the one of all.
constexpr std::size_t most_with_bars = 8;

// Held as long as a plan is applied; a kill ends it, too.
class plan_lock {
  public:
    explicit plan_lock(const std::string &path)
        : descriptor_(path == "-" ? -1 : ::open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
        if (descriptor_ >= 0 && ::flock(descriptor_, LOCK_EX | LOCK_NB) != 0) {
            ::close(descriptor_);
            throw failure("busy", fmt::format("{} is being applied by another engr_app; wait for "
                                              "its end",
                                              path));
        }
    }
    plan_lock(const plan_lock &) = delete;
    plan_lock &operator=(const plan_lock &) = delete;
    ~plan_lock() {
        if (descriptor_ >= 0) {
            ::close(descriptor_);
        }
    }

  private:
    int descriptor_;
};

std::string progress_path(const site_plan &plan, const plan_run_options &options) {
    if (!options.progress_file.empty()) {
        return options.progress_file;
    }
    if (plan.path() == "-") {
        throw wrong_usage("a plan from standard input needs --progress FILE");
    }
    return plan.path() + ".progress.json";
}

// Gateways that have an address need no announcement to be worked with.
discovery_result find_gateways(gateway_session &session, const site_plan &plan,
                               bool listen_to_all) {
    const bool all = listen_to_all || !session.options().keys.empty(); // keys are known by ids
    const bool any = plan.has_patterns();
    std::set<std::string> awaited;
    for (const gateway_plan &one : plan.gateways({})) {
        const auto placed = parse_address(one.address);
        if (all || !placed) {
            awaited.insert(placed ? placed->address : one.id);
        }
    }
    if (awaited.empty() && !any) {
        return {};
    }
    session.out().progress("listening for the gateways of the plan ...");
    return session.discover(session.discovery_time(), [&](const auto &announced) {
        awaited.erase(announced.id);
        awaited.erase(announced.address);
        return awaited.empty() && !any;
    });
}

std::vector<gateway_plan> chosen_gateways(const site_plan &plan, const discovery_result &found,
                                          const std::vector<std::string> &only) {
    std::vector<gateway_plan> all = plan.gateways(found);
    for (const std::string &name : only) {
        if (std::ranges::find(all, name, &gateway_plan::name) == all.end()) {
            throw wrong_usage(
                fmt::format("--only {}: the plan has no gateway of this name, or its pattern has "
                            "found none",
                            name));
        }
    }
    if (!only.empty()) {
        std::erase_if(all, [&only](const gateway_plan &one) {
            return std::ranges::count(only, one.name) == 0;
        });
    }
    if (all.empty()) {
        throw failure("no_gateway",
                      fmt::format("no gateway was found that {} is for", plan.path()));
    }
    return all;
}

// The key that the plan names; an empty one would mean the built-in key.
std::string key_of(const gateway_plan &plan) {
    std::string key = plan.key.read("key of " + plan.name);
    if (key.size() != lan_client::key_bytes) {
        throw wrong_usage(fmt::format("the key of {} has {} characters; a local key has exactly {}",
                                      plan.name, key.size(), lan_client::key_bytes));
    }
    return key;
}

class plan_runner {
  public:
    plan_runner(gateway_session &session, plan_context &context, const plan_run_options &options,
                const discovery_result &found)
        : session_(session), context_(context), options_(options), found_(found) {}

    std::vector<gateway_outcome> run(const std::vector<gateway_plan> &plans, bool apply) {
        std::vector<gateway_outcome> outcomes;
        for (const gateway_plan &one : plans) {
            outcomes.push_back({.plan = one, .id = one.id, .address = one.address});
        }
        if (outcomes.size() > 1) {
            bar_ = session_.out().bar(apply ? "applying" : "looking", outcomes.size(), "gateways");
        }
        quiet_ = outcomes.size() > most_with_bars;
        std::atomic<std::size_t> next = 0;
        std::atomic<std::size_t> done = 0;
        const auto work_on = [&] {
            for (std::size_t at = next++; at < outcomes.size(); at = next++) {
                work_with(outcomes[at], apply);
                waiting_.post([&, at] { show(outcomes[at], ++done, apply); });
            }
        };
        {
            std::vector<std::jthread> threads;
            for (std::size_t left = std::min(options_.at_once, outcomes.size()); left > 0; --left) {
                threads.emplace_back(work_on);
            }
            waiting_.on_interrupt([this] { interrupt(); });
            waiting_.run_until([&] { return done == outcomes.size(); }, std::chrono::hours(24 * 7));
        }
        bar_.finish();
        return outcomes;
    }

  private:
    void interrupt() {
        if (!context_.interrupted.exchange(true)) {
            session_.out().notice("interrupted: each gateway's step is finished first");
        }
    }

    void show(const gateway_outcome &outcome, std::size_t done, bool apply) {
        bar_.show(done);
        if (apply) {
            session_.out().notice(outcome_sentence(outcome));
        }
    }

    void work_with(gateway_outcome &outcome, bool apply) {
        try {
            if (context_.interrupted) {
                throw failure("cancelled", "interrupted before it was its turn");
            }
            const gateway target = find(outcome.plan);
            outcome.address = target.place();
            global_options own = session_.options();
            if (outcome.plan.key.is_given()) {
                own.keys.clear();
                own.local_key = key_of(outcome.plan);
            }
            console out(session_.out(), outcome.plan.name, quiet_);
            gateway_session session(own, out, session_.recorder(), target, "");
            session.ignore_interrupt();
            work_in(session, outcome, apply);
        } catch (const failure &problem) {
            outcome.problem = problem;
        } catch (const support::input_error &problem) {
            outcome.problem = failure("input", problem.what());
        } catch (const std::exception &problem) {
            outcome.problem = failure("internal", problem.what());
        }
    }

    void work_in(gateway_session &session, gateway_outcome &outcome, bool apply) {
        try {
            gateway_work work(session, context_, outcome);
            work.look();
            if (apply) {
                work.apply();
            }
        } catch (const failure &problem) {
            outcome.problem = problem;
        }
        session.leave();
    }

    [[nodiscard]] gateway find(const gateway_plan &plan) const {
        std::optional<gateway> placed = parse_address(plan.address);
        const lan_client::announcement *announced =
            placed ? found_.find_address(placed->address) : found_.find_id(plan.id);
        if (placed) {
            placed->announced = announced == nullptr ? std::nullopt : std::optional(*announced);
            return *placed;
        }
        if (announced == nullptr) {
            throw not_found(found_, plan.id);
        }
        return from_announcement(*announced);
    }

    gateway_session &session_;
    plan_context &context_;
    const plan_run_options &options_;
    const discovery_result &found_;
    lan_client::event_loop waiting_;
    progress_bar bar_;
    bool quiet_ = false;
};

// One entry may name a gateway by its id and another one by its address.
void require_distinct_places(const std::vector<gateway_plan> &plans,
                             const discovery_result &found) {
    std::map<std::string, std::string> names;
    for (const gateway_plan &one : plans) {
        const auto placed = parse_address(one.address);
        const lan_client::announcement *announced = placed ? nullptr : found.find_id(one.id);
        const std::string place = placed      ? placed->place()
                                  : announced ? from_announcement(*announced).place()
                                              : one.id;
        const auto [known, is_new] = names.emplace(place, one.name);
        if (!is_new) {
            throw wrong_usage(fmt::format("{} and {} are the same gateway, at {}", known->second,
                                          one.name, place));
        }
    }
}

// Before anything is sent: a secret or an image that is missing at the end of the work is worse.
void require_files(const std::vector<gateway_plan> &plans, plan_context &context) {
    for (const gateway_plan &one : plans) {
        if (one.key.is_given()) {
            static_cast<void>(key_of(one));
        }
        if (one.token.is_given()) {
            static_cast<void>(one.token.read("token of " + one.name));
        }
        if (one.firmware) {
            context.images.open(one.firmware->file);
        }
        for (const auto &[product, image] : one.device_firmware) {
            context.images.open(image.file);
        }
    }
}

std::vector<std::string> irreversible_steps(const std::vector<gateway_outcome> &outcomes) {
    std::vector<std::string> sentences;
    for (const gateway_outcome &one : outcomes) {
        for (const plan_step &step : one.steps) {
            if (step.irreversible && step.state == step_state::to_do) {
                sentences.push_back(
                    fmt::format("{}: {}: {}", one.plan.name, step.item, step.words));
            }
        }
    }
    return sentences;
}

bool may_be_irreversible(const gateway_plan &plan) {
    return plan.cloud_config || plan.remove_others || plan.firmware ||
           !plan.device_firmware.empty();
}

} // namespace

std::string outcome_sentence(const gateway_outcome &outcome) {
    if (outcome.problem && outcome.steps.empty()) {
        return fmt::format("{}: {}", outcome.plan.name, outcome.problem->what());
    }
    const std::size_t failed = outcome.count(step_state::failed);
    const std::string counts =
        fmt::format("{} done, {} already as planned{}", outcome.count(step_state::done),
                    outcome.count(step_state::as_planned),
                    failed == 0 ? "" : fmt::format(", {} failed", failed));
    return outcome.problem
               ? fmt::format("{}: {}; {}", outcome.plan.name, counts, outcome.problem->what())
               : fmt::format("{}: {}", outcome.plan.name, counts);
}

std::vector<gateway_outcome>
run_plan(gateway_session &session, const site_plan &plan, const plan_run_options &options,
         const std::function<void(const std::vector<std::string> &)> &confirm) {
    const std::string progress_file = progress_path(plan, options);
    std::optional<plan_lock> lock;
    if (options.apply) {
        check_output_path(progress_file, true);
        lock.emplace(plan.path());
    }
    plan_progress progress(progress_file);
    image_store images;
    plan_context context{
        .progress = progress, .images = images, .again = options.again, .confirmed = options.yes};
    const discovery_result found = find_gateways(session, plan, options.listen);
    const std::vector<gateway_plan> plans = chosen_gateways(plan, found, options.only);
    require_distinct_places(plans, found);
    require_files(plans, context);
    plan_runner runner(session, context, options, found);
    if (!options.apply) {
        return runner.run(plans, false);
    }
    if (!options.yes && std::ranges::any_of(plans, may_be_irreversible)) {
        std::vector<gateway_outcome> looked =
            plan_runner(session, context, options, found).run(plans, false);
        const std::vector<std::string> steps = irreversible_steps(looked);
        if (context.interrupted) {
            return looked;
        }
        if (!steps.empty()) {
            confirm(steps);
            context.confirmed = true;
        }
    }
    return runner.run(plans, true);
}

} // namespace engr_app
