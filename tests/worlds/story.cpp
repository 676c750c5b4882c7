/* Stories from seeds, and stories as text. */
#include "story.h"

#include "roles.h"

#include <iterator>
#include <random>

namespace worlds {

namespace {

constexpr const char *role_words[role_count] = {"app", "slow app", "hostile app", "gateway thread",
                                                "misfortune"};

class dice {
  public:
    explicit dice(uint64_t seed) : engine_(seed) {}
    /** 0 to bound - 1. */
    uint32_t below(uint32_t bound) { return static_cast<uint32_t>(engine_() % bound); }
    uint32_t between(uint32_t min, uint32_t max) { return min + below(max - min + 1); }

  private:
    std::mt19937_64 engine_;
};

const action *draw(dice &with, std::span<const action> from) {
    uint32_t total = 0;
    for (const action &each : from) {
        total += each.weight;
    }
    uint32_t left = with.below(total);
    const action *drawn = from.data();
    for (; left >= drawn->weight; ++drawn) {
        left -= drawn->weight;
    }
    return drawn;
}

/** Moments meet often, and now and then a limit of the protocol goes by. */
uint32_t draw_pause_ms(dice &with) {
    constexpr uint32_t longest[] = {1, 1, 5, 50, 50, 1'000, 3'000, 45'000};
    return with.below(longest[with.below(std::size(longest))]);
}

} // namespace

std::span<const action> actions_of(role of) {
    switch (of) {
    case role::honest_app:
    case role::slow_app:
        return honest_actions();
    case role::hostile_app:
        return hostile_actions();
    case role::application:
        return application_actions();
    case role::misfortune:
        break;
    }
    return misfortune_actions();
}

size_t story::step_count() const {
    size_t count = 0;
    for (const actor &each : actors) {
        count += each.steps.size();
    }
    return count;
}

story make_story(uint64_t seed) {
    dice with(seed);
    story made{.seed = seed, .actors = {}};
    // A crowd fills the client table; misfortune comes to every second world.
    const uint32_t crowd = with.below(8) == 0 ? 8 : 0;
    const uint32_t counts[role_count] = {with.between(1, 2) + crowd, with.below(3), with.below(3),
                                         with.between(1, 3), with.below(2)};
    uint32_t name = 0;
    for (size_t is = 0; is < role_count; ++is) {
        for (uint32_t i = 0; i < counts[is]; ++i) {
            actor &added = made.actors.emplace_back(actor{static_cast<role>(is), ++name, {}});
            for (uint32_t steps = with.between(1, 8); steps > 0; --steps) {
                const action *what = draw(with, actions_of(added.is));
                added.steps.push_back({draw_pause_ms(with), what, with.below(1'000)});
            }
        }
    }
    return made;
}

std::string name_of(const actor &one) {
    return role_words[static_cast<size_t>(one.is)] + (" " + std::to_string(one.name));
}

std::string words_of(const story &told) {
    std::string text = "schedule seed " + std::to_string(told.seed) + "\n";
    for (const actor &each : told.actors) {
        for (const step &one : each.steps) {
            text += "  " + name_of(each) + ": after " + std::to_string(one.pause_ms) + " ms " +
                    one.what->words + " [" + std::to_string(one.number) + "]\n";
        }
    }
    return text;
}

} // namespace worlds
