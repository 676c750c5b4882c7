// Asking before a change that can't be taken back, or that concerns all gateways.
#pragma once

#include <functional>
#include <mutex>
#include <string>

namespace CLI {
class App;
}

namespace engr_app {

class gateway_session;

/** Which runs of a verb are asked about. */
enum class asked_runs {
    none,
    with_all, /**< those with --all: the gateways are not named one by one */
    any,      /**< a single gateway, too: what is done can't be taken back */
};

/**
 * The consent of the user to what a verb does, for all gateways of a run: asked for once, on the
 * terminal, unless --yes gives it. A member of the verb's arguments.
 */
class consent {
  public:
    /**
     * Declares --yes. A run that would be asked about without a terminal to ask on is wrong usage,
     * and ends before anything is sent.
     *
     * @param asked  is called when the arguments have been read
     */
    void declare(CLI::App &parser, std::function<asked_runs()> asked);
    void declare(CLI::App &parser, asked_runs asked);

    /**
     * Throws a failure of the kind "not_confirmed" when the user declines.
     *
     * @param change  what will happen, as a sentence without its end: "Change to channel 20"
     */
    void require(gateway_session &session, const std::string &change);

    /** The same for a change that turns out only in the course of the work to need it. */
    void require_always(gateway_session &session, const std::string &change);

  private:
    bool given_ = false; // --yes
    std::function<asked_runs()> asked_runs_;
    std::mutex mutex_; // several gateways may need it at the same time
    bool asked_ = false;
};

} // namespace engr_app
