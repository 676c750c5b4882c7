// What every verb shares: the options, the choice of a gateway, the connection, and the sentences
// that explain what went wrong.
#pragma once

#include "base/failure.h"
#include "gateway/format.h"
#include "gateway/gateway.h"
#include "gateway/upgrade_monitor.h"
#include "terminal/console.h"

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace engr_app {

/// Options that hold for all verbs.
struct global_options {
    std::vector<std::string> gateways; ///< ADDRESS[:PORT] or ID each; none: the only one found
    bool all = false;                  ///< all gateways found
    std::string local_key;             ///< 16 characters, or empty
    bool accept_deactivated = false;   ///< also work without the local key that was given
    std::string key_file;
    std::map<std::string, std::string>
        keys; ///< read from it: local keys by id or ADDRESS[:PORT] of a gateway
    std::string interface_name = "lo";
    std::string record_file;
    double timeout_s = 0; ///< 0: the default of what is waited for
    bool json = false;
    bool verbose = false;
};

/// One run of a verb with at most one gateway; several run at once, each on a thread of its own.
/// Its functions throw `failure` with a sentence that says what to do.
class gateway_session {
  public:
    using stop_rule = std::function<bool(const lan_client::announcement &)>;

    /// A session that finds its gateway by itself; `recorder` may be absent.
    gateway_session(const global_options &options, console &out,
                    std::shared_ptr<frame_recorder> recorder);

    /// A session of one among several gateways; files that it writes get the mark.
    gateway_session(const global_options &options, console &out,
                    std::shared_ptr<frame_recorder> recorder, gateway target,
                    std::string file_mark);

    [[nodiscard]] lan_client::event_loop &loop() { return loop_; }
    [[nodiscard]] console &out() { return out_; }
    [[nodiscard]] const global_options &options() const { return options_; }
    [[nodiscard]] std::chrono::milliseconds discovery_time() const;
    [[nodiscard]] std::chrono::milliseconds answer_time() const;

    /// What shows and records frames, for what a verb sends and hears by itself.
    [[nodiscard]] lan_client::traffic_observer observer();

    /// Listens for gateways until the rule says that one is enough, or for `limit`.
    discovery_result discover(std::chrono::milliseconds limit, const stop_rule &enough = {});
    discovery_result discover(const std::string &interface_name, std::chrono::milliseconds limit,
                              const stop_rule &enough = {});

    /// The gateway that the user named, or the only one there is; looked for once.
    const gateway &chosen();

    /// What the chosen gateway announces; listened for when it was named by its address, and absent
    /// when it was not heard.
    const std::optional<lan_client::announcement> &chosen_announcement();

    /// Where a verb writes the file that the user named: with several gateways each has its own,
    /// FILE-ID.EXTENSION.
    [[nodiscard]] std::string output_path(const std::string &path) const;

    /// False when the gateway is known to be activated and no local key was given.
    [[nodiscard]] bool key_at_hand();

    /// Starts to connect to the chosen gateway. The client comes back by itself after a lost
    /// connection if `reconnect` is set. With a local key nothing is sent or read with the built-in
    /// one, unless the user has accepted a deactivated gateway.
    lan_client::client &connect(bool reconnect = false, lan_client::client_events events = {});

    /// Asks all at once and waits for all answers, connecting first if need be. Once one request
    /// fails, those without an answer yet count as failed in the same way. With `need_key` an
    /// activated gateway without a local key is refused before anything is sent. A token or a
    /// password goes out under the built-in key only once the gateway has answered with that key.
    std::vector<lan_client::answer> ask(std::vector<lan_client::request> requests,
                                        bool need_key = true);

    /// To be called when the work is done, before the session goes. It stays as long as somebody
    /// else's upgrade is seen to run on the gateway, says so, and leaves at once on SIGINT.
    void leave();

    /// Whether an upgrade that runs is this session's own, which it may leave.
    void own_upgrade(bool own);

    /// Why there is no answer, and what to do about it.
    [[nodiscard]] failure explain(const lan_client::answer &unanswered);
    [[nodiscard]] failure explain(const lan_client::error &problem);

  private:
    void observe(const lan_client::traffic &seen);
    gateway find_by_id(const std::string &id);
    gateway find_only();
    void require_key();
    void require_shown_key(const std::vector<lan_client::request> &requests);
    void warn_of_built_in_key();
    lan_client::client_events monitored_events();
    std::optional<lan_client::answer> ask_unless(lan_client::request wanted,
                                                 const std::function<bool()> &stop);
    void look_again(const std::function<bool()> &stop);
    void stay(const std::function<bool()> &stop);
    const std::string &local_key();
    [[nodiscard]] std::string elsewhere_hint() const;
    [[nodiscard]] std::string wrong_key_sentence();
    [[nodiscard]] std::string deactivated_sentence();
    [[nodiscard]] std::vector<lan_client::aes_key> usable_keys();

    const global_options &options_;
    console &out_;
    std::shared_ptr<frame_recorder> recorder_;
    lan_client::event_loop loop_;
    std::optional<gateway> chosen_;
    std::string file_mark_;
    upgrade_monitor monitor_;
    lan_client::client_events verb_events_; // as long as the verb works
    bool linked_ = false;                   // the gateway has answered over the present connection
    bool upgrade_is_own_ = false;
    bool warned_of_built_in_key_ = false;
    std::unique_ptr<lan_client::client> client_;
};

} // namespace engr_app
