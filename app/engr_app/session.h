// What every verb shares: the options, the choice of a gateway, the connection, and the sentences
// that explain what went wrong.
#pragma once

#include "console.h"
#include "failure.h"
#include "frame_words.h"
#include "lan_client/client.h"
#include "lan_client/discovery.h"

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace engr_app {

/// Options that hold for all verbs.
struct global_options {
    std::string gateway;   ///< ADDRESS[:PORT] or ID; empty: the only one found
    std::string local_key; ///< 16 characters, or empty
    std::string interface_name = "lo";
    std::string record_file;
    double timeout_s = 0; ///< 0: the default of what is waited for
    bool json = false;
    bool verbose = false;
};

/// A gateway to talk to.
struct gateway {
    std::string address;
    std::uint16_t port = lan_client::gateway_port;
    std::optional<lan_client::announcement> announced; ///< absent when it was named by address

    /// How it is called in sentences: "gateway ID (ADDRESS)" or "gateway ADDRESS".
    [[nodiscard]] std::string name() const;
};

/// What a listening was good for.
struct heard_gateways {
    std::vector<lan_client::announcement> announcements; ///< one a gateway, in order of their ids
    unsigned unreadable = 0; ///< datagrams of gateways with other key seeds, or damaged
};

/// Why none of the gateways heard can be chosen.
[[nodiscard]] failure not_found(const heard_gateways &heard, const global_options &options);

/// One run of the program. Its functions throw `failure` with a sentence that says what to do.
class session {
  public:
    using stop_rule = std::function<bool(const lan_client::announcement &)>;

    session(const global_options &options, console &out);

    [[nodiscard]] lan_client::event_loop &loop() { return loop_; }
    [[nodiscard]] console &out() { return out_; }
    [[nodiscard]] const global_options &options() const { return options_; }
    [[nodiscard]] std::chrono::milliseconds listen_time() const;
    [[nodiscard]] std::chrono::milliseconds answer_time() const;

    /// Listens for gateways until the rule says that one is enough, or for `limit`.
    heard_gateways listen(std::chrono::milliseconds limit, const stop_rule &enough = {});

    /// The gateway that the user named, or the only one there is; looked for once.
    const gateway &chosen();

    /// False when the gateway is known to be activated and no local key was given.
    [[nodiscard]] bool key_at_hand();

    /// Starts to connect to the chosen gateway. The client comes back by itself after a lost
    /// connection if `reconnect` is set.
    lan_client::client &connect(bool reconnect = false, lan_client::client_events events = {});

    /// Asks all at once and waits for all answers, connecting first if need be. Once one request
    /// fails, those without an answer yet count as failed in the same way. With `need_key` an
    /// activated gateway without a local key is refused before anything is sent.
    std::vector<lan_client::answer> ask(std::vector<lan_client::request> requests,
                                        bool need_key = true);

    /// Why there is no answer, and what to do about it.
    [[nodiscard]] failure explain(const lan_client::answer &unanswered);
    [[nodiscard]] failure explain(const lan_client::error &problem);

    /// The payload of an answer; throws what explains a missing or refusing one.
    std::string accepted(const lan_client::answer &answered);

  private:
    void observe(const lan_client::traffic &seen);
    [[nodiscard]] lan_client::traffic_observer observer();
    gateway find_by_id(const std::string &id);
    gateway find_only();
    void require_key();
    [[nodiscard]] std::string elsewhere_hint() const;
    [[nodiscard]] std::string wrong_key_sentence() const;

    const global_options &options_;
    console &out_;
    std::optional<frame_recorder> recorder_;
    lan_client::event_loop loop_;
    std::optional<gateway> chosen_;
    std::unique_ptr<lan_client::client> client_;
};

} // namespace engr_app
