// The session file of --record.
#pragma once

#include "lan_client/traffic.h"
#include "session/file.h"
#include "session/live.h"
#include "terminal/console.h"

#include <string>

namespace engr_app {

struct global_options;

/** Records what the sessions of a run send and receive; may be used on any thread. */
class session_recorder {
  public:
    /** Begins the file. Throws a failure when it can't be made. */
    session_recorder(const global_options &options, screen &shown_on);
    /** Writes what is left. */
    ~session_recorder();
    session_recorder(const session_recorder &) = delete;
    session_recorder &operator=(const session_recorder &) = delete;

    /**
     * Records the connections of one client.
     *
     * @param local_key  of its gateway, or empty
     */
    [[nodiscard]] lan_client::wire_observer connection_observer(const std::string &local_key);

    /** Records a frame that was a datagram. */
    void take_datagram(const lan_client::traffic &frame);

  private:
    console out_;
    session::file file_;
    session::live_events live_;
};

} // namespace engr_app
