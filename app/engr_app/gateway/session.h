// One run of a verb with one gateway: which one it is, the connection to it, requests and their
// answers.
#pragma once

#include "base/failure.h"
#include "files/names_file.h"
#include "gateway/discovery.h"
#include "gateway/format.h"
#include "gateway/recorder.h"
#include "lan_client/upgrade_monitor.h"
#include "terminal/console.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace engr_app {

/** Options that hold for all verbs. */
struct global_options {
    std::vector<std::string> gateways; /**< ADDRESS[:PORT] or ID each; none: the only one found */
    std::string gateways_from;         /**< what named them, when no option did; else empty */
    bool all = false;                  /**< all gateways found */
    std::string local_key;             /**< 16 characters, or empty */
    bool accept_deactivated = false;   /**< also work without the local key that was given */
    std::string key_file;
    std::map<std::string, std::string> keys; /**< from the key file, by gateway ID or ADDRESS */
    std::string interface_name;   /**< traffic stays on it; empty: all, and the routing table */
    std::string record_file;      /**< empty: nothing is recorded */
    bool records_secrets = false; /**< leaves them in that file */
    std::string names_file;       /**< empty: the one at names_path, if it is there */
    double timeout_s = 0;         /**< for an answer; 0: the default */
    double listen_s = 0;          /**< for announcements; 0: the default */
    bool json = false;
    bool verbose = false;
    bool quiet = false; /**< only results and errors */
};

/**
 * A session with at most one gateway. Each is used by one thread; several may run at once. Its
 * functions throw failures that say what to do next.
 */
class gateway_session {
  public:
    /**
     * A session that finds its gateway by itself.
     *
     * @param options   must live as long as the session, as must `out`
     * @param recorder  records what is sent and received; may be absent
     */
    gateway_session(const global_options &options, console &out,
                    std::shared_ptr<session_recorder> recorder);

    /**
     * A session with one of several gateways.
     *
     * @param file_mark  goes into the names of files that it writes
     */
    gateway_session(const global_options &options, console &out,
                    std::shared_ptr<session_recorder> recorder, gateway target,
                    std::string file_mark);

    [[nodiscard]] lan_client::event_loop &loop() { return loop_; }
    [[nodiscard]] console &out() { return out_; }
    [[nodiscard]] const global_options &options() const { return options_; }
    [[nodiscard]] std::chrono::milliseconds discovery_time() const;
    [[nodiscard]] std::chrono::milliseconds answer_time() const;

    /** @return what records, for the sessions of other gateways; null when nothing does */
    [[nodiscard]] const std::shared_ptr<session_recorder> &recorder() const { return recorder_; }

    /**
     * Lets Ctrl-C end the wait that goes on, or the next one, with a failure, until the verb has a
     * handler of its own. Before the session first waits for the network, Ctrl-C ends the program,
     * so that one can leave a question or a file that does not come.
     */
    void end_on_interrupt();

    /** Lets Ctrl-C pass: whoever has made this session ends the work. Call it before any wait. */
    void ignore_interrupt() { ends_on_interrupt_ = true; }

    /** @return what shows and records datagrams, for a verb that has sockets of its own */
    [[nodiscard]] lan_client::traffic_observer datagram_observer();

    /** Listens for announcements, and keeps them for later runs. */
    discovery_result listen(const listening &how);

    /** The same on the interfaces that the user has named. */
    discovery_result discover(std::chrono::milliseconds limit,
                              const announcement_rule &enough = {});

    /** @return the gateway that the user named, or the only one there is; searched for once */
    const gateway &chosen();

    /**
     * @return what the chosen gateway announces; listens for it when that was not heard in this
     *         run, and is empty when nothing came
     */
    const std::optional<lan_client::announcement> &chosen_announcement();

    /**
     * @return where to write the file that the user named: with several gateways each has one of
     *         its own, FILE-ID.EXTENSION
     */
    [[nodiscard]] std::string output_path(const std::string &path) const;

    /** @return the labels of all gateways of the run, or none when it is for one only */
    [[nodiscard]] const std::vector<std::string> &run_gateways() const { return run_gateways_; }
    void set_run_gateways(std::vector<std::string> labels) { run_gateways_ = std::move(labels); }

    /** @return the installer's names; read when they are first asked for */
    const names_file &names();

    /** @return the local key given for the chosen gateway, or an empty text */
    const std::string &local_key();

    /** @return false when the gateway is known to be activated and no local key was given */
    [[nodiscard]] bool has_needed_key();

    /** Throws a failure when the gateway is known to be activated and no local key was given. */
    void require_key();

    /**
     * Starts to connect to the chosen gateway. With a local key nothing is sent or read under the
     * built-in one, unless the user has accepted a deactivated gateway.
     *
     * @param reconnect  the client connects again by itself after a lost connection
     * @return the client, which the session owns; valid until the next call
     */
    lan_client::client &connect(bool reconnect = false, lan_client::client_events events = {});

    /** @return whether the gateway has taken the connection and it is still there */
    [[nodiscard]] bool is_connected() const { return connected_; }

    /**
     * Sends all requests and waits for all answers, connecting first if need be. Once a request
     * fails, those without an answer yet count as failed in the same way. A token or a password
     * goes out under the built-in key only once the gateway has answered with that key.
     *
     * @param need_key  refuse an activated gateway without a local key before anything is sent
     * @return an answer for each request, in their order
     */
    std::vector<lan_client::answer> ask(std::vector<lan_client::request> requests,
                                        bool need_key = true);

    /**
     * To be called when the work is done, before the session goes. A gateway ends an upgrade when
     * any connection to it ends, so it stays as long as somebody else's upgrade runs there.
     */
    void leave();

    /** To be called with each answer that a verb gets from the client itself. */
    void note_answer(const lan_client::answer &answered) { monitor_.on_answer(answered); }

    /** Says whether an upgrade that runs is this session's own, which it may leave. */
    void own_upgrade(bool own);

  private:
    [[nodiscard]] lan_client::traffic_observer frame_observer();
    void open_client(bool reconnect, std::chrono::milliseconds connect_timeout);
    void leave_outdated_place();
    void require_shown_key(const std::vector<lan_client::request> &requests);
    void warn_of_built_in_key();
    lan_client::client_events monitored_events();
    [[nodiscard]] std::vector<lan_client::aes_key> usable_keys();

    const global_options &options_;
    console &out_;
    std::shared_ptr<session_recorder> recorder_;
    lan_client::event_loop loop_;
    std::optional<gateway> chosen_;
    std::string file_mark_;
    std::vector<std::string> run_gateways_;
    std::optional<names_file> names_;
    lan_client::upgrade_monitor monitor_;
    lan_client::client_events verb_events_; // as long as the verb works
    bool connected_ = false;
    bool upgrade_is_own_ = false;
    bool warned_of_built_in_key_ = false;
    bool place_checked_ = false; // of a gateway that was remembered
    bool ends_on_interrupt_ = false;
    bool interrupted_ = false;
    std::unique_ptr<lan_client::client> client_;
};

} // namespace engr_app
