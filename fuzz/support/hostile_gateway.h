// A gateway at the far end of a client's connection that does what an input says, line by line:
//
//     =RET TEXT           answers the oldest open request, encrypted with the key in use
//     bRET TEXT           the same under the key that every app knows
//     pRET TEXT           the same without encryption
//     cRET TEXT           the same with a wrong CRC
//     #COUNT NUMBER TEXT  answers it with a segment
//     !TYPE RET TEXT      reports
//     ?TYPE TEXT          has the app ask something
//     xBYTES              sends bytes that are no frame
//     d                   takes nothing more of what the app sends
//     wMILLISECONDS       waits
//
// At the end it hangs up. Numbers that are left out are 0.
#pragma once

#include "lan_client/crypto.h"
#include "support/fake_network.h"

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <string>
#include <string_view>

namespace fuzz {

/** One request as it arrived, its payload not decrypted. */
struct seen_request {
    uint32_t number = 0;
    uint32_t type = 0;
    std::string payload;
};

/** The gateway of one connection; it must exist until that has ended. */
class hostile_gateway {
  public:
    /**
     * @param key    that it uses
     * @param waits  whether an answer waits for a request; else it is left out when there is none
     */
    hostile_gateway(std::string_view script, const lan_client::aes_key &key, bool waits);
    hostile_gateway(const hostile_gateway &) = delete;
    hostile_gateway &operator=(const hostile_gateway &) = delete;
    ~hostile_gateway();

    /** What `?` does; called on the loop's thread. */
    std::function<void(uint32_t type, std::string_view text)> on_ask;
    /** Called with each request. */
    std::function<void(const seen_request &)> on_request;

  private:
    void play(far_end &app);
    void play_next(far_end &app);
    bool play_line(far_end &app, std::string_view line);
    void answer(far_end &app, char kind, std::string_view line);
    void take(far_end &app, std::string_view bytes);

    std::string_view script_;
    lan_client::aes_key key_;
    bool waits_;
    bool playing_ = false; // the next line is on its way
    std::chrono::milliseconds pause_{0};
    std::string received_;
    std::deque<seen_request> open_;
};

} // namespace fuzz
