/*
 * Life of the agent, and the threads that use it.
 *
 * Every thread that works with the controller record does so inside an agent_use: the server task
 * for its whole life, timer and bus callbacks and exported functions for one call.
 */
#pragma once

#include "service_life.h"

/** Life of the agent. */
inline constinit service_life agent_life;

/** One use of the agent by the calling thread, for the life of a scope. */
class agent_use : public service_use {
  public:
    explicit agent_use(user who = user::visitor) : service_use(agent_life, who) {}
};

/** Whether a stop of the agent is under way; then no further frame is handled. Any thread. */
[[nodiscard]] inline bool agent_is_stopping() {
    return agent_life.state() == life_state::stopping;
}
