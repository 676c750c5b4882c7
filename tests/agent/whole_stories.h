/*
 * Whole stories of a gateway's life, each a few lines, to be told under any fault. In a run without
 * a fault every request gets an answer, which is recorded; under a fault each gets the same answer,
 * a refusal of its own, or none.
 */
#pragma once

#include "upgrade_story.h"

#include <span>
#include <string>
#include <vector>

/** The answers of a run without a fault, one for each request, in order. */
using recorded_answers = std::vector<std::string>;

/** A gateway and its apps in one run of a story. */
class story_run {
  public:
    /** @param right  answers of the run without a fault; null: this is that run */
    story_run(sim::world &in, const recorded_answers *right);

    /** Starts the agent, and waits for its server. */
    void start(int32_t mode = ENGR_MODE_LAN);
    /** Sends a request from the first app, connecting it when need be, and checks the answer.
     * Returns whether it is that of the run without a fault. */
    bool ask(uint32_t fr_type, std::string_view payload = {}, bool encrypted = true);
    /** The same for a request that has no answer when all goes well. */
    void ask_in_vain(uint32_t fr_type, std::string_view payload);
    /** An app by its place, connected when it was not; null when that does not work. */
    story_app *app(size_t place = 0);
    /** Takes what has come to an app beside answers and checks that it may come. Returns the frames
     * as receive_text gives them. */
    std::vector<std::string> take_reports(size_t place, uint64_t limit_ms = 100);
    /** The fault passes: the agent, started anew if need be, serves the next request. */
    void end();

    [[nodiscard]] bool has_fault() const { return right_ != nullptr; }
    [[nodiscard]] const recorded_answers &answers() const { return answers_; }

    sim::world &world;
    upgrade_gateway gateway;

  private:
    std::string answer_to(uint32_t fr_type, std::string_view payload, bool encrypted);

    const recorded_answers *right_;
    recorded_answers answers_;
    std::vector<story_app> apps_;
};

/** One story. */
struct whole_story {
    const char *name;
    void (*tell)(story_run &run);
    /** It uses what a process has once only, so that each run needs one of its own. */
    bool own_process = false;

    /** For failure messages. */
    friend std::ostream &operator<<(std::ostream &out, const whole_story &story) {
        return out << story.name;
    }
};

std::span<const whole_story> whole_stories();
