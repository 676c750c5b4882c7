/*
 * The story of a random world as data: who takes part, and what each does when. A seed makes one;
 * it can be cut down, told (telling.h) and read.
 */
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace worlds {

class stage;
struct actor_run;

/** Who takes part. */
enum class role : uint8_t {
    honest_app,
    slow_app,    /**< honest, on a slow connection and slow to read */
    hostile_app, /**< sends and does what no app should */
    application, /**< a thread of the gateway */
    misfortune   /**< makes calls of the port fail */
};
constexpr size_t role_count = 5;

/** One kind of thing that a role does. */
struct action {
    const char *words;
    uint32_t weight; /**< how often, compared with the others of the role */
    void (*act)(stage &at, actor_run &by, uint32_t number);
};
/** What a role does; both kinds of honest app do the same. */
std::span<const action> actions_of(role of);

/** One thing that an actor does. */
struct step {
    uint32_t pause_ms; /**< before it */
    const action *what;
    uint32_t number; /**< detail of its action */
};

struct actor {
    role is;
    uint32_t name; /**< stays when others are dropped */
    std::vector<step> steps;
};

struct story {
    uint64_t seed = 0; /**< of the schedule and of whatever else is random in the world */
    std::vector<actor> actors;

    [[nodiscard]] size_t step_count() const;
};

/** The story of a seed. */
story make_story(uint64_t seed);
/** "app 2 (slow)", as problems and stories name an actor. */
std::string name_of(const actor &one);
/** The story for people, a line for each step, in order of actors. */
std::string words_of(const story &told);

} // namespace worlds
